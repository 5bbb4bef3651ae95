#include "KestruneDock/DevGit/GitWidget.h"

#include <filesystem>

#include <QPainter>

#include "KestruneKit/Repositories/RepositoriesMonitor.h"
#include "KestruneKit/Repositories/RepositoryStanding.h"

namespace kestrune {

namespace {

QString text(std::string_view words) { return QString::fromUtf8(words.data(), static_cast<qsizetype>(words.size())); }

} // namespace

GitWidget::GitWidget(WidgetInstance instance, WidgetMonitors& monitors) : WidgetTile(std::move(instance)), monitors_(monitors)
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
    WidgetTile::setInstance(std::move(instance));
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

double GitWidget::length(double iconSize) const
{
    Face shown = face();
    // Long enough for most of what it says; a longer text is cut short with an ellipsis.
    double wanted = widgetface::linesLength(iconSize, shown.caption, shown.value, true);
    return std::clamp(wanted, iconSize * 2, iconSize * 4);
}

void GitWidget::paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const
{
    Face shown = face();
    widgetface::paintPlate(painter, tile, context);
    widgetface::paintLines(painter, tile, shown.caption, shown.value, shown.state);
}

std::string GitWidget::accessibleText() const
{
    Face shown = face();
    return (shown.caption + QStringLiteral(": ") + shown.value).toStdString();
}

} // namespace kestrune
