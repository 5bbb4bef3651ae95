#include "KestruneDock/Desktop/DesktopWindowWatch.h"

#include <algorithm>

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
    std::vector<RunningApplication> running;
    running.reserve(applications_.size());
    for (const auto& application : applications_)
        running.push_back({ application.pid, application.path, true });
    if (running != workspace_.runningApplications())
        workspace_.setRunningApplications(std::move(running));
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
