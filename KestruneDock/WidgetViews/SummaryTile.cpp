#include "KestruneDock/WidgetViews/SummaryTile.h"

#include <algorithm>

#include <set>

#include <QClipboard>
#include <QDesktopServices>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPointer>
#include <QPushButton>
#include <QRegularExpression>
#include <QUrl>

#include "KestruneDock/WidgetViews/WidgetCard.h"
#include "KestruneKit/Containers/ContainersMonitor.h"
#include "KestruneKit/DevServers/DevServersMonitor.h"
#include "KestruneKit/Endpoints/EndpointsMonitor.h"
#include "KestruneKit/GitHub/PullRequestsMonitor.h"
#include "KestruneKit/Simulators/SimulatorsMonitor.h"

namespace kestrune {

namespace {

std::vector<std::string> addressesOf(const WidgetInstance& instance)
{
    auto found = instance.options.find(std::string(SummaryTile::addressesOption));
    return found == instance.options.end() ? std::vector<std::string> {} : endpointAddresses(found->second);
}

} // namespace

SummaryTile::SummaryTile(WidgetInstance instance, WidgetMonitors& monitors, WidgetMonitors::Source source)
    : LinesTile(std::move(instance), 4.5), monitors_(monitors), source_(source)
{
    watch_ = monitors_.addObserver(source_, [this] { tellChanged(); });
    if (source_ == WidgetMonitors::Source::endpoints)
        monitors_.setEndpointAddresses(instance_.id, addressesOf(instance_));
}

SummaryTile::~SummaryTile()
{
    monitors_.removeObserver(source_, watch_);
    if (shown_)
        poller().setWanted(instance_.id.toString(), false);
    if (source_ == WidgetMonitors::Source::endpoints)
        monitors_.setEndpointAddresses(instance_.id, {});
}

void SummaryTile::setInstance(WidgetInstance instance)
{
    LinesTile::setInstance(std::move(instance));
    if (source_ == WidgetMonitors::Source::endpoints)
        monitors_.setEndpointAddresses(instance_.id, addressesOf(instance_));
}

namespace {

DevPoller& pollerOf(WidgetMonitors& monitors, WidgetMonitors::Source source)
{
    switch (source) {
    case WidgetMonitors::Source::pullRequests: return monitors.pullRequests().poller();
    case WidgetMonitors::Source::containers: return monitors.containers().poller();
    case WidgetMonitors::Source::endpoints: return monitors.endpoints().poller();
    case WidgetMonitors::Source::simulators: return monitors.simulators().poller();
    case WidgetMonitors::Source::devServers:
    case WidgetMonitors::Source::aiUsage:
    case WidgetMonitors::Source::commands:
    case WidgetMonitors::Source::systemStats:
    case WidgetMonitors::Source::storage:
    case WidgetMonitors::Source::processes:
    case WidgetMonitors::Source::battery:
    case WidgetMonitors::Source::keepAwake:
    case WidgetMonitors::Source::sound:
    case WidgetMonitors::Source::cameras:
    case WidgetMonitors::Source::screenTime:
    case WidgetMonitors::Source::desktops:
    case WidgetMonitors::Source::look:
        break;
    }
    return monitors.devServers().poller();
}

QString words(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())); }

// Whether to say "install it with Homebrew": looked at once.
bool machineHasHomebrew()
{
    static const bool has = hasHomebrew();
    return has;
}

void addLink(QListWidget& list, const QString& label, const QString& address)
{
    auto* item = new QListWidgetItem(label);
    item->setData(Qt::UserRole, address);
    item->setToolTip(address);
    list.addItem(item);
}

void addHeading(QListWidget& list, const QString& label)
{
    auto* item = new QListWidgetItem(label);
    QFont font = item->font();
    font.setBold(true);
    item->setFont(font);
    item->setFlags(Qt::ItemIsEnabled);
    list.addItem(item);
}

// The Containers card's heading: where the engine stands and what to do about it, or the
// summary and the engine's name.
QString containersCardText(const ContainersState& state)
{
    using Phase = ContainersState::Phase;
    auto lines = [](std::string_view title, std::string_view detail) { return words(title) + QStringLiteral("\n") + words(detail); };
    std::string_view engine = containerEngineName(state.engine);
    switch (state.phase) {
    case Phase::looking: return words(containersText::lookingLong);
    case Phase::notInstalled: return lines(containersText::notInstalledTitle, containersText::notInstalledDetail);
    case Phase::notRunning: return lines(containersText::notRunningTitle, containersText::notRunningAdvice(engine));
    case Phase::starting: return lines(containersText::startingTitle, containersText::startingDetail);
    case Phase::noneRunning:
    case Phase::running: break;
    }
    QString said = state.phase == Phase::noneRunning ? lines(containersText::noneRunningTitle, containersText::noneRunningDetail)
                                                      : QString::fromStdString(containersText::summary(state));
    return engine.empty() ? said : said + QStringLiteral(" · ") + words(engine);
}

void fillCard(ListCard& card, WidgetMonitors& monitors, WidgetMonitors::Source source, const std::set<int>& ignored,
              const std::vector<std::string>& addresses)
{
    card.items->clear();
    switch (source) {
    case WidgetMonitors::Source::endpoints: {
        const auto& results = monitors.endpoints().results();
        card.status->setText(QString::fromStdString(endpointsText::summary(addresses, results)));
        for (const std::string& address : addresses) {
            auto found = results.find(address);
            QString state = found == results.end() ? words(endpointsText::checking)
                                                   : QString::fromStdString(endpointsText::detail(found->second));
            addLink(*card.items, QStringLiteral("%1 — %2").arg(QString::fromStdString(address), state), QString::fromStdString(address));
        }
        break;
    }
    case WidgetMonitors::Source::devServers: {
        const auto& servers = monitors.devServers().servers();
        std::vector<DevServer> shown;
        for (const DevServer& server : servers ? *servers : std::vector<DevServer> {})
            if (!ignored.contains(server.port))
                shown.push_back(server);
        card.status->setText(servers ? QString::fromStdString(devServersText::summary(shown)) : words(devServersText::looking));
        for (const DevServer& server : shown)
            addLink(*card.items, QStringLiteral("%1 — %2").arg(server.port).arg(QString::fromStdString(server.process)),
                    QStringLiteral("http://localhost:%1").arg(server.port));
        break;
    }
    case WidgetMonitors::Source::pullRequests: {
        const PullRequestsState& state = monitors.pullRequests().state();
        QString said = QString::fromStdString(pullRequestsText::summary(state, machineHasHomebrew()));
        // What to do about a failure, under it.
        if (state.phase == PullRequestsState::Phase::failed && state.failure && state.failure != GitHubFailure::offline)
            said += QStringLiteral("\n") + words(pullRequestsText::failureHint(*state.failure));
        card.status->setText(said);
        if (!state.report)
            break;
        auto list = [&](const PullRequestList& requests, const QString& heading) {
            if (requests.items.empty())
                return;
            addHeading(*card.items, heading);
            for (const PullRequest& request : requests.items)
                addLink(*card.items, QStringLiteral("%1#%2  %3%4").arg(QString::fromStdString(request.repository)).arg(request.number)
                                         .arg(QString::fromStdString(request.title), request.checksFailing() ? QStringLiteral("  ✗") : QString()),
                        QString::fromStdString(request.url));
        };
        list(state.report->review, QString::fromStdString(pullRequestsText::waitingForReview(state.report->review.issueCount)));
        list(state.report->mine, words(pullRequestsText::yoursSection));
        break;
    }
    case WidgetMonitors::Source::containers: {
        const ContainersState& state = monitors.containers().state();
        card.status->setText(containersCardText(state));
        for (const Container& container : state.containers) {
            auto* item = new QListWidgetItem(QStringLiteral("%1 — %2 · %3").arg(QString::fromStdString(container.name()),
                QString::fromStdString(container.image), QString::fromStdString(container.status)));
            item->setData(Qt::UserRole, QString::fromStdString(container.name()));
            card.items->addItem(item);
        }
        break;
    }
    case WidgetMonitors::Source::simulators: {
        const auto& reading = monitors.simulators().reading();
        card.status->setText(QString::fromStdString(simulatorsText::summary(reading)));
        for (const Simulator& simulator : reading ? reading->simulators : std::vector<Simulator> {}) {
            std::string shown = simulator.kind == SimulatorKind::android ? simulatorsText::displayName(simulator.name) : simulator.name;
            auto* item = new QListWidgetItem(QStringLiteral("%1 — %2").arg(QString::fromStdString(shown),
                simulator.serial ? QStringLiteral("Running") : QStringLiteral("Shut down")));
            item->setData(Qt::UserRole, QString::fromStdString(simulator.name));
            item->setData(Qt::UserRole + 1, simulator.serial ? QString::fromStdString(*simulator.serial) : QString());
            item->setData(Qt::UserRole + 2, QString::fromStdString(simulator.udid));
            item->setData(Qt::UserRole + 3, static_cast<int>(simulator.kind));
            card.items->addItem(item);
        }
        break;
    }
    case WidgetMonitors::Source::aiUsage:
    case WidgetMonitors::Source::commands:
    case WidgetMonitors::Source::systemStats:
    case WidgetMonitors::Source::storage:
    case WidgetMonitors::Source::processes:
    case WidgetMonitors::Source::battery:
    case WidgetMonitors::Source::keepAwake:
    case WidgetMonitors::Source::sound:
    case WidgetMonitors::Source::cameras:
    case WidgetMonitors::Source::screenTime:
    case WidgetMonitors::Source::desktops:
    case WidgetMonitors::Source::look:
        break;
    }
}

// Start and Shut Down act on the device chosen in the list.
void addSimulatorButtons(ListCard& card, WidgetMonitors& monitors)
{
    auto told = [alive = QPointer<ListCard>(&card)](const std::string& failure) {
        if (alive && !failure.empty())
            alive->status->setText(QString::fromStdString(failure));
    };
    auto chosen = [&card]() -> std::optional<Simulator> {
        QListWidgetItem* item = card.items->currentItem();
        if (!item)
            return std::nullopt;
        Simulator simulator;
        simulator.name = item->data(Qt::UserRole).toString().toStdString();
        if (QString serial = item->data(Qt::UserRole + 1).toString(); !serial.isEmpty())
            simulator.serial = serial.toStdString();
        simulator.udid = item->data(Qt::UserRole + 2).toString().toStdString();
        simulator.kind = static_cast<SimulatorKind>(item->data(Qt::UserRole + 3).toInt());
        return simulator;
    };
    auto* start = new QPushButton(QStringLiteral("Start"));
    QObject::connect(start, &QPushButton::clicked, &card, [&monitors, chosen, told] {
        if (auto simulator = chosen(); simulator && !simulator->serial)
            monitors.simulators().start(*simulator, told);
    });
    auto* shutDown = new QPushButton(QStringLiteral("Shut Down"));
    QObject::connect(shutDown, &QPushButton::clicked, &card, [&monitors, chosen, told] {
        if (auto simulator = chosen(); simulator && simulator->serial)
            monitors.simulators().shutDown(*simulator, told);
    });
    card.buttons->addWidget(start);
    card.buttons->addWidget(shutDown);
}

} // namespace

DevPoller& SummaryTile::poller() const
{
    return pollerOf(monitors_, source_);
}

std::set<int> SummaryTile::ignoredPorts() const
{
    // The option names ports to leave out, separated by spaces or commas.
    std::set<int> ignored;
    auto found = instance_.options.find(std::string(ignoredPortsOption));
    if (found != instance_.options.end())
        for (const QString& port : QString::fromStdString(found->second).split(QRegularExpression(QStringLiteral("[,\\s]+")), Qt::SkipEmptyParts))
            ignored.insert(port.toInt());
    return ignored;
}

QWidget* SummaryTile::makeCard()
{
    WidgetMonitors& monitors = monitors_;
    WidgetMonitors::Source source = source_;
    std::string holder = "card:" + instance_.id.toString();
    std::set<int> ignored = ignoredPorts();
    std::vector<std::string> addresses = addressesOf(instance_);
    auto watch = std::make_shared<uint64_t>(0);
    auto* card = new ListCard([&monitors, source, ignored, addresses](ListCard& shown) { fillCard(shown, monitors, source, ignored, addresses); },
        [&monitors, source, holder, watch] {
            monitors.removeObserver(source, *watch);
            pollerOf(monitors, source).setWanted(holder, false);
        });
    *watch = monitors.addObserver(source, [card] { card->refresh(); });
    pollerOf(monitors, source).setWanted(holder, true);
    if (source == WidgetMonitors::Source::containers) {
        if (monitors.containers().state().phase == ContainersState::Phase::notInstalled) {
            auto* get = new QPushButton(words(containersText::getDockerButton));
            QObject::connect(get, &QPushButton::clicked, card, [] { QDesktopServices::openUrl(QUrl(QString::fromUtf8(containersText::getDockerAddress.data()))); });
            card->buttons->addWidget(get);
        }
        for (ContainerAction action : { ContainerAction::start, ContainerAction::stop, ContainerAction::restart }) {
            QString name = action == ContainerAction::start ? QStringLiteral("Start") : action == ContainerAction::stop ? QStringLiteral("Stop") : QStringLiteral("Restart");
            auto* button = new QPushButton(name);
            QObject::connect(button, &QPushButton::clicked, card, [card, &monitors, action] {
                QListWidgetItem* item = card->items->currentItem();
                if (!item)
                    return;
                QPointer<ListCard> alive(card);
                monitors.containers().perform(action, item->data(Qt::UserRole).toString().toStdString(), [alive](std::optional<ContainerActionFailure> failure) {
                    if (alive && failure)
                        alive->status->setText(words(text(*failure)));
                });
            });
            card->buttons->addWidget(button);
        }
    } else if (source == WidgetMonitors::Source::simulators) {
        addSimulatorButtons(*card, monitors);
    } else {
        if (source == WidgetMonitors::Source::pullRequests) {
            // Signing in happens in a terminal: the command, ready to paste.
            auto* copy = new QPushButton(words(pullRequestsText::copySignIn));
            QObject::connect(copy, &QPushButton::clicked, card, [] { QGuiApplication::clipboard()->setText(QStringLiteral("gh auth login")); });
            auto showCopy = [copy, &monitors] {
                const PullRequestsState& state = monitors.pullRequests().state();
                copy->setVisible(state.phase == PullRequestsState::Phase::noClient || state.failure == GitHubFailure::signedOut);
            };
            showCopy();
            uint64_t copyWatch = monitors.addObserver(source, showCopy);
            QObject::connect(copy, &QObject::destroyed, [&monitors, source, copyWatch] { monitors.removeObserver(source, copyWatch); });
            card->buttons->addWidget(copy);
        }
        card->activated = [](QListWidgetItem& item) {
            QString address = item.data(Qt::UserRole).toString();
            if (!address.isEmpty())
                QDesktopServices::openUrl(QUrl(address));
        };
    }
    return card;
}

std::vector<DevServer> SummaryTile::devServers() const
{
    const auto& servers = monitors_.devServers().servers();
    if (!servers)
        return {};
    std::set<int> ignored = ignoredPorts();
    std::vector<DevServer> kept;
    for (const DevServer& server : *servers)
        if (!ignored.contains(server.port))
            kept.push_back(server);
    return kept;
}

void SummaryTile::shownChanged()
{
    poller().setWanted(instance_.id.toString(), shown_);
}

QString SummaryTile::caption() const
{
    std::string_view name = title(instance_.kind);
    return QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size()));
}

SummaryTile::Face SummaryTile::face() const
{
    if (source_ == WidgetMonitors::Source::pullRequests) {
        const PullRequestsState& state = monitors_.pullRequests().state();
        QString value = QString::fromStdString(pullRequestsText::summary(state, machineHasHomebrew()));
        switch (state.phase) {
        case PullRequestsState::Phase::looking:
        case PullRequestsState::Phase::noClient:
            return { value, stateColour::unknown() };
        case PullRequestsState::Phase::failed:
            return { value, stateColour::trouble() };
        case PullRequestsState::Phase::loaded:
            break;
        }
        if (value == QString::fromUtf8(pullRequestsText::checksFailing.data()))
            return { value, stateColour::trouble() };
        return { value, state.report && state.report->review.issueCount > 0 ? stateColour::waiting() : stateColour::good() };
    }
    if (source_ == WidgetMonitors::Source::endpoints) {
        std::vector<std::string> addresses = addressesOf(instance_);
        const auto& results = monitors_.endpoints().results();
        QString value = QString::fromStdString(endpointsText::summary(addresses, results));
        bool known = !addresses.empty() && std::all_of(addresses.begin(), addresses.end(), [&](const std::string& address) { return results.contains(address); });
        bool allUp = known && std::all_of(addresses.begin(), addresses.end(), [&](const std::string& address) { return results.at(address).isUp(); });
        return { value, !known ? stateColour::unknown() : allUp ? stateColour::good() : stateColour::trouble() };
    }
    if (source_ == WidgetMonitors::Source::devServers) {
        if (!monitors_.devServers().servers())
            return { QString::fromUtf8(devServersText::looking.data()), stateColour::unknown() };
        std::vector<DevServer> servers = devServers();
        return { QString::fromStdString(devServersText::summary(servers)), servers.empty() ? stateColour::unknown() : stateColour::good() };
    }
    if (source_ == WidgetMonitors::Source::simulators) {
        const auto& reading = monitors_.simulators().reading();
        QString value = QString::fromStdString(simulatorsText::summary(reading));
        if (reading && !reading->failure.empty())
            return { value, stateColour::trouble() };
        bool running = reading && std::any_of(reading->simulators.begin(), reading->simulators.end(), [](const Simulator& one) { return one.serial.has_value(); });
        return { value, running ? stateColour::good() : stateColour::unknown() };
    }
    const ContainersState& state = monitors_.containers().state();
    QString value = QString::fromStdString(containersText::summary(state));
    if (state.readFailure)
        return { value, stateColour::trouble() };
    return { value, state.phase == ContainersState::Phase::running ? stateColour::good() : stateColour::unknown() };
}

WidgetLines SummaryTile::lines() const
{
    Face shown = face();
    return { caption(), shown.value, shown.state };
}

} // namespace kestrune
