#pragma once
// Connects the window system to the dock's store on Linux: the windows the window manager lists
// become the workspace's running applications, and a click on a running app's tile brings its
// window forward (the next one on a second click).
//
//   DesktopWindowWatch watch(workspace);
//
// Main thread only.

#include <memory>
#include <optional>

#include "KestruneDock/Desktop/DesktopApplications.h"
#include "KestruneKit/Core/Runtime.h"

namespace kestrune {

class WorkspaceLinux;
class X11WindowList;

class DesktopWindowWatch {
public:
    // Entries are read again for an unknown window at most this often (an app just installed).
    static constexpr double entriesRereadSeconds = 10;

    DesktopWindowWatch(WorkspaceLinux& workspace, Runtime& runtime);
    ~DesktopWindowWatch();
    DesktopWindowWatch(const DesktopWindowWatch&) = delete;
    DesktopWindowWatch& operator=(const DesktopWindowWatch&) = delete;

    [[nodiscard]] bool isWatching() const;
    [[nodiscard]] const std::vector<DesktopApplication>& applications() const { return applications_; }

private:
    void update();
    bool activate(const std::string& path);

    WorkspaceLinux& workspace_;
    Runtime& runtime_;
    std::unique_ptr<X11WindowList> windows_;
    std::vector<DesktopApplication> applications_;
    std::optional<Date> entriesRead_;
};

} // namespace kestrune
