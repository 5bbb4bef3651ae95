#include "KestruneDock/Desktop/DesktopWindowWatch.h"

#include <algorithm>

#include <QDir>
#include <QImage>
#include <QStandardPaths>

#include "KestruneDock/Desktop/X11WindowList.h"
#include "KestruneDock/Dock/WorkspaceLinux.h"

namespace kestrune {

DesktopWindowWatch::DesktopWindowWatch(WorkspaceLinux& workspace, Runtime& runtime) : workspace_(workspace), runtime_(runtime)
{
    workspace_.setActivator([this](const std::string& path) { return activate(path); });
    windows_ = std::make_unique<X11WindowList>([this] { update(); });
    update();
}

DesktopWindowWatch::~DesktopWindowWatch() { workspace_.setActivator(nullptr); }

bool DesktopWindowWatch::isWatching() const { return windows_->isWatching(); }

void DesktopWindowWatch::update()
{
    const auto& clients = windows_->clients();
    applications_ = groupWindows(clients, workspace_.desktopEntries());
    size_t grouped = 0;
    for (const auto& application : applications_)
        if (!isWindowApplication(application.path))
            grouped += application.windows.size();
    // A window of no known entry may be an app installed since the entries were read.
    Date now = runtime_.now();
    bool stale = !entriesRead_ || secondsBetween(*entriesRead_, now).count() >= entriesRereadSeconds;
    if (grouped < clients.size() && stale) {
        entriesRead_ = now;
        applications_ = groupWindows(clients, workspace_.desktopEntries(true));
    } else if (!entriesRead_) {
        entriesRead_ = now;
    }
    std::erase_if(iconsAsked_, [&](uint32_t window) {
        return std::none_of(clients.begin(), clients.end(), [&](const auto& client) { return client.window == window; });
    });
    std::vector<RunningApplication> running;
    running.reserve(applications_.size());
    for (const auto& application : applications_) {
        if (isWindowApplication(application.path))
            readIcon(application);
        running.push_back({ application.pid, application.path, true });
    }
    if (running != workspace_.runningApplications())
        workspace_.setRunningApplications(std::move(running));
    if (changed_)
        changed_();
}

std::set<std::string> DesktopWindowWatch::demandingAttention() const
{
    std::set<uint32_t> asking;
    for (const DesktopWindow& client : windows_->clients())
        if (client.demandsAttention)
            asking.insert(client.window);
    std::set<std::string> paths;
    for (const auto& application : applications_)
        if (std::any_of(application.windows.begin(), application.windows.end(), [&](uint32_t window) { return asking.contains(window); }))
            paths.insert(application.path);
    return paths;
}

std::vector<DesktopWindowWatch::Minimized> DesktopWindowWatch::minimizedWindows() const
{
    std::vector<Minimized> minimized;
    for (const DesktopWindow& client : windows_->clients()) {
        if (!client.minimized)
            continue;
        for (const auto& application : applications_) {
            if (std::find(application.windows.begin(), application.windows.end(), client.window) != application.windows.end()) {
                minimized.push_back({ client.window, X11WindowList::title(client.window), application.path });
                break;
            }
        }
    }
    return minimized;
}

bool DesktopWindowWatch::activeIsFullScreen() const
{
    auto active = windows_->activeWindow();
    const auto& clients = windows_->clients();
    return active && std::any_of(clients.begin(), clients.end(), [&](const DesktopWindow& client) {
        return client.window == *active && client.fullScreen && !client.minimized;
    });
}

void DesktopWindowWatch::readIcon(const DesktopApplication& application)
{
    if (iconFiles_.contains(application.name))
        return;
    // A window is asked once: most put their icon up before they map, and the rest go generic.
    for (uint32_t window : application.windows) {
        if (!iconsAsked_.insert(window).second)
            continue;
        auto icon = X11WindowList::icon(window, iconSize);
        if (!icon)
            continue;
        QImage image(reinterpret_cast<const uchar*>(icon->pixels.data()), icon->width, icon->height, QImage::Format_ARGB32);
        QString folder = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation) + QStringLiteral("/app.quillane.dock/window-icons");
        QString file = folder + QLatin1Char('/') + QString::fromStdString(application.name.substr(0, 100)) + QStringLiteral(".png");
        if (!QDir().mkpath(folder) || !image.save(file, "PNG"))
            continue;
        iconFiles_[application.name] = file.toStdString();
        workspace_.setWindowApplicationIcon(application.path, file.toStdString());
        return;
    }
}

std::vector<std::pair<uint32_t, std::string>> DesktopWindowWatch::windows(const std::string& path) const
{
    std::vector<std::pair<uint32_t, std::string>> list;
    for (const auto& application : applications_)
        if (application.path == path)
            for (uint32_t window : application.windows)
                list.emplace_back(window, X11WindowList::title(window));
    return list;
}

void DesktopWindowWatch::activateWindow(uint32_t window) { windows_->activate(window, X11WindowList::userTime()); }

bool DesktopWindowWatch::close(const std::string& path)
{
    bool any = false;
    for (const auto& application : applications_)
        if (application.path == path)
            for (uint32_t window : application.windows) {
                windows_->close(window, X11WindowList::userTime());
                any = true;
            }
    return any;
}

std::vector<int64_t> DesktopWindowWatch::processes(const std::string& path) const
{
    std::vector<int64_t> pids;
    for (const DesktopWindow& client : windows_->clients())
        for (const auto& application : applications_)
            if (application.path == path && std::find(application.windows.begin(), application.windows.end(), client.window) != application.windows.end()
                && client.pid > 0 && std::find(pids.begin(), pids.end(), client.pid) == pids.end())
                pids.push_back(client.pid);
    return pids;
}

bool DesktopWindowWatch::activate(const std::string& path)
{
    auto application = std::find_if(applications_.begin(), applications_.end(), [&](const auto& a) { return a.path == path; });
    if (application == applications_.end())
        return false;
    auto recent = windows_->byRecentUse();
    auto window = windowToActivate(*application, windows_->activeWindow(), recent);
    if (!window)
        return false;
    windows_->activate(*window, X11WindowList::userTime());
    return true;
}

} // namespace kestrune
