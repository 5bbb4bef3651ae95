#include "KestruneDock/DevGit/GitWidget.h"

#include <filesystem>

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPainter>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPalette>
#include <QPushButton>
#include <QVBoxLayout>

#include "KestruneDock/WidgetViews/WidgetCard.h"

#include "KestruneKit/Repositories/RepositoriesMonitor.h"
#include "KestruneKit/Repositories/RepositoryStanding.h"

namespace kestrune {

namespace {

QString text(std::string_view words) { return QString::fromUtf8(words.data(), static_cast<qsizetype>(words.size())); }

} // namespace

GitWidget::GitWidget(WidgetInstance instance, WidgetMonitors& monitors) : LinesTile(std::move(instance), 4), monitors_(monitors)
{
    monitors_.setGitFolder(instance_.id, folder());
    watch_ = monitors_.addRepositoriesObserver([this](const std::string& changed) {
        if (folder() == changed)
            tellChanged();
    });
}

GitWidget::~GitWidget()
{
    monitors_.removeRepositoriesObserver(watch_);
    if (shown_)
        monitors_.repositories().poller().setWanted(instance_.id.toString(), false);
    monitors_.setGitFolder(instance_.id, std::nullopt);
}

std::optional<std::string> GitWidget::folder() const
{
    auto found = instance_.options.find(std::string(folderOption));
    if (found == instance_.options.end() || found->second.empty())
        return std::nullopt;
    return found->second;
}

void GitWidget::setInstance(WidgetInstance instance)
{
    auto before = folder();
    LinesTile::setInstance(std::move(instance));
    if (folder() == before)
        return;
    monitors_.setGitFolder(instance_.id, folder());
    if (shown_ && folder())
        monitors_.repositories().read(*folder());
}

void GitWidget::shownChanged()
{
    // The first holder makes the poller read every folder at once; a later one reads its own.
    RepositoriesMonitor& repositories = monitors_.repositories();
    bool reading = repositories.poller().isActive();
    repositories.poller().setWanted(instance_.id.toString(), shown_);
    if (shown_ && reading && folder() && !repositories.states().contains(*folder()))
        repositories.read(*folder());
}

GitWidget::Face GitWidget::faceFor(const std::optional<std::string>& folder, const RepositoryState* state)
{
    if (!folder)
        return { QStringLiteral("Git"), QStringLiteral("Choose a folder"), stateColour::unknown() };
    QString name = QString::fromStdString(std::filesystem::path(*folder).filename().string());
    if (name.isEmpty())
        name = QString::fromStdString(*folder);
    if (!state)
        return { name, QStringLiteral("Reading…"), stateColour::unknown() };
    if (const RepositoryFailure* failure = state->failure())
        return { name, QString::fromStdString(failure->text), stateColour::trouble() };
    RepositoryStanding standing = RepositoryStanding::of(*state->status());
    QColor colour = stateColour::waiting();
    switch (standing.standing) {
    case RepositoryStanding::Case::committed:
    case RepositoryStanding::Case::upToDate:
        colour = stateColour::good();
        break;
    case RepositoryStanding::Case::conflicts:
    case RepositoryStanding::Case::gone:
        colour = stateColour::trouble();
        break;
    case RepositoryStanding::Case::operation:
        colour = standing.count > 0 ? stateColour::trouble() : stateColour::waiting();
        break;
    default:
        break;
    }
    QString branch = state->status()->branch ? QString::fromStdString(*state->status()->branch) : QString();
    return { branch.isEmpty() ? name : name + QStringLiteral(" · ") + branch, text(standing.text()), colour };
}

GitWidget::Face GitWidget::face() const
{
    auto chosen = folder();
    const RepositoryState* state = nullptr;
    if (chosen) {
        const auto& states = monitors_.repositories().states();
        if (auto found = states.find(*chosen); found != states.end())
            state = &found->second;
    }
    return faceFor(chosen, state);
}

QWidget* GitWidget::makeCard()
{
    WidgetMonitors& monitors = monitors_;
    std::optional<std::string> chosen = folder();
    std::string holder = "card:" + instance_.id.toString();
    auto watch = std::make_shared<uint64_t>(0);
    auto* card = new ListCard(
        [&monitors, chosen](ListCard& shown) {
            shown.items->clear();
            const auto& states = monitors.repositories().states();
            auto found = chosen ? states.find(*chosen) : states.end();
            const RepositoryState* state = found == states.end() ? nullptr : &found->second;
            Face face = faceFor(chosen, state);
            const RepositoryStatus* status = state ? state->status() : nullptr;
            if (!status) {
                shown.status->setText(face.value);
                return;
            }
            QString where = status->branch ? QString::fromStdString(*status->branch) : QStringLiteral("Not on a branch");
            if (status->upstream)
                where += QStringLiteral(" → %1 · %2 to push, %3 to pull").arg(QString::fromStdString(*status->upstream)).arg(status->ahead).arg(status->behind);
            shown.status->setText(where + QStringLiteral("\n") + face.value);
            for (const RepositoryChange& change : status->changes)
                shown.items->addItem(QStringLiteral("%1  %2").arg(text(toString(change.kind)), QString::fromStdString(change.path)));
        },
        [&monitors, holder, watch] {
            monitors.removeRepositoriesObserver(*watch);
            monitors.repositories().poller().setWanted(holder, false);
        });
    *watch = monitors.addRepositoriesObserver([card, chosen](const std::string& changed) {
        if (chosen == changed)
            card->refresh();
    });
    monitors.repositories().poller().setWanted(holder, true);
    if (chosen)
        addActions(*card, monitors, *chosen);
    return card;
}

void GitWidget::addActions(ListCard& card, WidgetMonitors& monitors, const std::string& folder)
{
    auto* message = new QLineEdit;
    message->setPlaceholderText(QStringLiteral("Commit message"));
    message->setAccessibleName(QStringLiteral("Commit message"));
    auto* outcome = new QLabel;
    outcome->setWordWrap(true);
    outcome->setAccessibleName(QStringLiteral("Outcome"));
    auto* output = new QPlainTextEdit;
    output->setReadOnly(true);
    output->setAccessibleName(QStringLiteral("Git’s output"));
    output->setMaximumHeight(110);
    outcome->hide();
    output->hide();
    // Reading the folder switches off the repository's own programs; the buttons do not.
    auto* trust = new QLabel(QStringLiteral("Commit, Pull and Push run git as you set it up, hooks and filters included. "
                                            "Keeping this card up to date runs none of them."));
    trust->setWordWrap(true);
    // Quieter than the card's own text, but readable: a disabled label's grey is too faint.
    QPalette quiet = trust->palette();
    QColor quieter = quiet.color(QPalette::WindowText);
    quieter.setAlphaF(0.65);
    quiet.setColor(QPalette::WindowText, quieter);
    trust->setPalette(quiet);
    auto* layout = static_cast<QVBoxLayout*>(card.layout());
    layout->insertWidget(layout->count() - 1, message);
    layout->addWidget(trust);
    layout->addWidget(outcome);
    layout->addWidget(output);

    // While git runs the card takes nothing more.
    auto act = [&monitors, folder, message, outcome, output, guard = QPointer<ListCard>(&card)](GitAction action) {
        static constexpr std::string_view doing[] = { "Committing…", "Pulling…", "Pushing…" };
        outcome->setText(text(doing[static_cast<int>(action)]));
        outcome->show();
        guard->setEnabled(false);
        monitors.repositories().perform(action, folder, message->text().toStdString(), [guard, message, outcome, output, action](GitActionResult result) {
            if (!guard)
                return;
            guard->setEnabled(true);
            static constexpr std::string_view done[] = { "Committed", "Pulled", "Pushed" };
            outcome->setText(result.succeeded ? text(done[static_cast<int>(action)]) : QString::fromStdString(result.failure));
            output->setPlainText(QString::fromStdString(result.output));
            output->setVisible(!result.output.empty());
            if (result.succeeded && action == GitAction::commitAll)
                message->clear();
        });
    };
    for (GitAction action : { GitAction::commitAll, GitAction::pull, GitAction::push }) {
        auto* button = new QPushButton(text(toString(action)));
        QObject::connect(button, &QPushButton::clicked, &card, [act, action] { act(action); });
        card.buttons->addWidget(button);
    }
    QObject::connect(message, &QLineEdit::returnPressed, &card, [act] { act(GitAction::commitAll); });
    auto* now = new QPushButton(QStringLiteral("Read Now"));
    QObject::connect(now, &QPushButton::clicked, &card, [&monitors, folder] { monitors.repositories().read(folder); });
    card.buttons->addWidget(now);
}

WidgetLines GitWidget::lines() const
{
    Face shown = face();
    return { shown.caption, shown.value, shown.state };
}

} // namespace kestrune
