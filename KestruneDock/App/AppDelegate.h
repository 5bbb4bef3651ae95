#pragma once
// OVERVIEW
// The application's launch and termination, in the order the dock depends on. A second launch
// hands over to the running dock and exits before anything starts; the handover's restore guard
// is running before the system dock is touched; the system dock is back before the process
// ends. On Linux the login item is an XDG autostart entry, the single-instance test a lock in
// the runtime folder, the reopen notification a line on the instance's local socket, and the
// menu-bar icon a tray icon.
//
// TYPICAL USAGE (main)
//   QApplication app(argc, argv);
//   AppDelegate delegate(arguments);
//   if (auto status = delegate.applicationDidFinishLaunching()) return *status;
//   QObject::connect(&app, &QCoreApplication::aboutToQuit, [&] { delegate.applicationWillTerminate(); });
//   return app.exec();
//
// Main thread only.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestruneDock/Panel/DockPanelController.h"
#include "KestruneKit/Core/Environment.h"
#include "KestruneKit/Core/Runtime.h"

class QWidget;

namespace kestrune {

class AIUsageEngine;
class ApplicationsMenuOffer;
class DesktopTrash;
class DesktopWindowWatch;
class DisplaySleepWatch;
class LauncherEntryWatch;
class DockPanelController;
class DockStore;
class MenuBarIcon;
class Preferences;
class PreferencesFollower;
class QtRuntime;
class SessionWatch;
class SignalWatch;
class SingleInstance;
class SettingsWindow;
class SystemDockHandover;
class WelcomeWindow;
class WidgetMonitors;
class WidgetPaging;
class WidgetRow;
class WidgetStore;
class TileRaster;
class Workspace;

class AppDelegate {
public:
    static constexpr const char* bundleIdentifier = "app.quillane.dock";
    static constexpr const char* relaunchMarkKey = "kestrune.launch.relaunchMarkedAt";
    static constexpr const char* welcomeFinishedKey = "welcomeFinished";
    static constexpr std::string_view settingsOption = "--settings";

    explicit AppDelegate(std::vector<std::string> arguments);
    ~AppDelegate();
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    // The launch sequence. A status to exit with at once (a second instance, or no lock to be
    // had), or none when the dock is up and the event loop should run.
    [[nodiscard]] std::optional<int> applicationDidFinishLaunching();
    // The termination sequence: the system dock is restored before this returns. Runs once.
    void applicationWillTerminate();

    // Brings the app's own windows forward (the settings window for now).
    void reopen();
    void openSettings();

    [[nodiscard]] DockPanelController* dockController() const { return dockController_.get(); }
    [[nodiscard]] bool launchedAtLogin() const { return launchedAtLogin_; }
    [[nodiscard]] bool loginItemRegistered() const { return loginItemRegistered_; }
    [[nodiscard]] AIUsageEngine* aiUsageEngine() const { return aiUsage_.get(); }

private:
    void received(const std::string& message);
    [[nodiscard]] DockDesktopServices desktopServices(const Environment& environment, const std::string& home);
    void showAbout();
    void finishWelcome();
    void showMenuBarIcon(bool shown);

    std::vector<std::string> arguments_;
    Date launchTime_;
    bool loginItemRegistered_ = false;
    bool launchedAtLogin_ = false;
    bool terminated_ = false;

    std::unique_ptr<QtRuntime> runtime_;
    std::unique_ptr<SingleInstance> instance_;
    std::unique_ptr<SignalWatch> signals_;
    std::unique_ptr<Preferences> preferences_;
    std::unique_ptr<PreferencesFollower> follower_;
    // The app's own open windows; one of them visible makes the app a regular, foreground one.
    std::vector<QWidget*> windows_;
    std::unique_ptr<ApplicationsMenuOffer> menuOffer_;
    std::unique_ptr<SystemDockHandover> dockGuard_;
    std::unique_ptr<AIUsageEngine> aiUsage_;
    std::unique_ptr<Workspace> workspace_;
    std::unique_ptr<DesktopWindowWatch> windowWatch_;
    std::unique_ptr<TileRaster> raster_;
    std::unique_ptr<DockStore> store_;
    std::unique_ptr<DockPanelController> dockController_;
    std::unique_ptr<WidgetStore> widgetStore_;
    std::unique_ptr<WidgetPaging> widgetPaging_;
    std::unique_ptr<WidgetMonitors> widgetMonitors_;
    std::unique_ptr<WidgetRow> widgetRow_;
    std::unique_ptr<DesktopTrash> trash_;
    std::unique_ptr<MenuBarIcon> menuBarIcon_;
    std::unique_ptr<SettingsWindow> settingsWindow_;
    std::unique_ptr<WelcomeWindow> welcome_;
    uint64_t menuBarIconWatch_ = 0;
    std::optional<std::string> shownSaveFailure_;
    std::string loginEntryPath_;
    std::unique_ptr<SessionWatch> sessionWatch_;
    std::unique_ptr<DisplaySleepWatch> displaySleepWatch_;
    uint64_t activityWatch_ = 0;
    std::unique_ptr<LauncherEntryWatch> launcherEntries_;
};

} // namespace kestrune
