#include "KestruneDock/WidgetViews/SummaryTile.h"

#include <algorithm>

#include <set>

#include <QRegularExpression>

#include "KestruneKit/Containers/ContainersMonitor.h"
#include "KestruneKit/DevServers/DevServersMonitor.h"
#include "KestruneKit/GitHub/PullRequestsMonitor.h"

namespace kestrune {

SummaryTile::SummaryTile(WidgetInstance instance, WidgetMonitors& monitors, WidgetMonitors::Source source)
    : WidgetTile(std::move(instance)), monitors_(monitors), source_(source)
{
    watch_ = monitors_.addObserver(source_, [this] { tellChanged(); });
}

SummaryTile::~SummaryTile()
{
    monitors_.removeObserver(source_, watch_);
    if (shown_)
        poller().setWanted(instance_.id.toString(), false);
}

DevPoller& SummaryTile::poller() const
{
    switch (source_) {
    case WidgetMonitors::Source::pullRequests: return monitors_.pullRequests().poller();
    case WidgetMonitors::Source::containers: return monitors_.containers().poller();
    case WidgetMonitors::Source::devServers:
    case WidgetMonitors::Source::aiUsage:
        break;
    }
    return monitors_.devServers().poller();
}

std::vector<DevServer> SummaryTile::devServers() const
{
    const auto& servers = monitors_.devServers().servers();
    if (!servers)
        return {};
    // The option names ports to leave out, separated by spaces or commas.
    std::set<int> ignored;
    auto found = instance_.options.find(std::string(ignoredPortsOption));
    if (found != instance_.options.end())
        for (const QString& port : QString::fromStdString(found->second).split(QRegularExpression(QStringLiteral("[,\\s]+")), Qt::SkipEmptyParts))
            ignored.insert(port.toInt());
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
        QString value = QString::fromStdString(pullRequestsText::summary(state, false));
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
    if (source_ == WidgetMonitors::Source::devServers) {
        if (!monitors_.devServers().servers())
            return { QString::fromUtf8(devServersText::looking.data()), stateColour::unknown() };
        std::vector<DevServer> servers = devServers();
        return { QString::fromStdString(devServersText::summary(servers)), servers.empty() ? stateColour::unknown() : stateColour::good() };
    }
    const ContainersState& state = monitors_.containers().state();
    QString value = QString::fromStdString(containersText::summary(state));
    if (state.readFailure)
        return { value, stateColour::trouble() };
    return { value, state.phase == ContainersState::Phase::running ? stateColour::good() : stateColour::unknown() };
}

double SummaryTile::length(double iconSize) const
{
    Face shown = face();
    return std::clamp(widgetface::linesLength(iconSize, caption(), shown.value, true), iconSize * 2, iconSize * 4.5);
}

void SummaryTile::paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const
{
    Face shown = face();
    widgetface::paintPlate(painter, tile, context);
    widgetface::paintLines(painter, tile, caption(), shown.value, shown.state);
}

std::string SummaryTile::accessibleText() const
{
    return (caption() + QStringLiteral(": ") + face().value).toStdString();
}

} // namespace kestrune
