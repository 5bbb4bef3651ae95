#include "KestruneDock/App/AppDelegate.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>

#include <QApplication>
#include <QGuiApplication>
#include <QLabel>
#include <QMessageBox>
#include <QStandardPaths>
#include <QVBoxLayout>
#include <QWidget>

#include "KestruneDock/App/ApplicationsMenuEntry.h"
#include "KestruneDock/App/LoginItem.h"
#include "KestruneDock/App/SettingsWindow.h"
#include "KestruneDock/App/WelcomeWindow.h"
#include "KestruneDock/App/MenuBarIcon.h"
#include "KestruneDock/App/QtRuntime.h"
#include "KestruneDock/App/SignalWatch.h"
#include "KestruneDock/App/SingleInstance.h"
#include "KestruneDock/Dock/DockStore.h"
#include "KestruneDock/Desktop/DesktopTrash.h"
#include "KestruneDock/Desktop/DesktopWindowWatch.h"
#include "KestruneDock/Desktop/DisplaySleepWatch.h"
#include "KestruneDock/Desktop/LauncherEntryWatch.h"
#include "KestruneDock/Desktop/SessionWatch.h"
#include "KestruneDock/Dock/WorkspaceLinux.h"
#include "KestruneDock/Panel/DockPanelController.h"
#include "KestruneDock/Panel/FailureAlert.h"
#include "KestruneDock/Panel/TileRasterQt.h"
#include "KestruneDock/SystemDock/SystemDockHandover.h"
#include "KestruneDock/WidgetViews/WidgetMonitors.h"
#include "KestruneDock/WidgetViews/WidgetRow.h"
#include "KestruneDock/Widgets/WidgetPaging.h"
#include "KestruneDock/Widgets/WidgetStore.h"
#include "KestruneKit/AIUsage/AIUsageEngine.h"
#include "KestruneKit/Core/ApplicationSupport.h"
#include "KestruneKit/Core/AtomicFile.h"
#include "KestruneKit/Core/Environment.h"
#include "KestruneKit/DevTools/KestruneActivity.h"
#include "KestruneKit/Preferences/Preferences.h"
#include "KestruneKit/Preferences/PreferencesFollower.h"

namespace kestrune {

namespace {

// The kestrune command, which Claude Code's status-line script asks to read its input: beside
// this program (installed, or in the build tree), else on the PATH.
std::optional<std::string> kestruneCommand()
{
    QString here = QCoreApplication::applicationDirPath();
    for (const QString& candidate : { here + QStringLiteral("/kestrune"), here + QStringLiteral("/../tools/kestrune/kestrune"),
                                      QStandardPaths::findExecutable(QStringLiteral("kestrune")) })
        if (!candidate.isEmpty() && ::access(candidate.toLocal8Bit().constData(), X_OK) == 0)
            return std::filesystem::weakly_canonical(candidate.toStdString()).string();
    return std::nullopt;
}

// A relaunch marked this recently is the updater's, not the login's.
constexpr double relaunchWindowSeconds = 60;

} // namespace

AppDelegate::AppDelegate(std::vector<std::string> arguments) : arguments_(std::move(arguments)) {}

AppDelegate::~AppDelegate()
{
    applicationWillTerminate();
    // Views before the stores they read, stores before the services they use.
    if (preferences_ && menuBarIconWatch_)
        preferences_->removeObserver(menuBarIconWatch_);
    welcome_.reset();
    settingsWindow_.reset();
    if (activityWatch_)
        KestruneActivity::shared().removeObserver(activityWatch_);
    sessionWatch_.reset();
    launcherEntries_.reset();
    displaySleepWatch_.reset();
    menuOffer_.reset();
    menuBarIcon_.reset();
    trash_.reset();
    dockController_.reset();
    widgetRow_.reset();
    widgetPaging_.reset();
    widgetStore_.reset();
    widgetMonitors_.reset();
    store_.reset();
    windowWatch_.reset();
    aiUsage_.reset();
}

std::optional<int> AppDelegate::applicationDidFinishLaunching()
{
    Environment environment = processEnvironment();
    std::string home = homeFolder();

    // 1. The launch time, the login item, and whether the login started us.
    runtime_ = std::make_unique<QtRuntime>();
    launchTime_ = runtime_->now();
    loginItemRegistered_ = LoginItem::isRegistered(LoginItem::entryPath(environment, home));
    bool loginArgument = std::find(arguments_.begin(), arguments_.end(), LoginItem::loginArgument) != arguments_.end();
    preferences_ = Preferences::open(bundleIdentifier);
    std::optional<double> relaunchMark = preferences_->doubleValue(relaunchMarkKey);
    bool relaunched = relaunchMark
        && std::abs(std::chrono::duration<double>(launchTime_.time_since_epoch()).count() - *relaunchMark) < relaunchWindowSeconds;
    if (relaunchMark)
        preferences_->remove(relaunchMarkKey);
    launchedAtLogin_ = loginArgument && !relaunched;

    // 2. One dock per session: a later launch hands over to the first and leaves at once.
    auto claim = SingleInstance::claim(SingleInstance::folder(environment, home));
    // `--settings` asks for the settings window, of the running dock or of this one.
    bool settingsArgument = std::find(arguments_.begin(), arguments_.end(), settingsOption) != arguments_.end();
    if (claim.role == SingleInstance::Role::duplicate) {
        auto message = settingsArgument ? SingleInstance::openSettingsMessage : SingleInstance::reopenMessage;
        if (!SingleInstance::send(claim.socketPath, message))
            std::fprintf(stderr, "kestrune-dock: another Kestrune Dock is running but did not answer\n");
        return 0;
    }
    if (claim.role == SingleInstance::Role::failed)
        std::fprintf(stderr, "kestrune-dock: %s; running without the single-instance check\n", claim.problem.c_str());
    instance_ = std::move(claim.instance);
    if (instance_)
        instance_->listen([this](const std::string& message) { received(message); });
    signals_ = std::make_unique<SignalWatch>(std::vector<int> { SIGTERM, SIGINT, SIGHUP }, [](int) {
        QCoreApplication::quit();
    });
    follower_ = std::make_unique<PreferencesFollower>(*preferences_, *runtime_);

    // 3. No entry of ours in the applications menu: offer one, once the dock is up beside it.
    if (ApplicationsMenuOffer::isWanted(*preferences_, environment, home)) {
        QString executable = QCoreApplication::applicationFilePath();
        menuOffer_ = std::make_unique<ApplicationsMenuOffer>(*preferences_,
            ApplicationsMenuEntry::forThisUser(environment, home, executable.toStdString()), [this] {
                std::erase(windows_, &menuOffer_->box());
            });
        runtime_->post([this] {
            if (menuOffer_)
                menuOffer_->show();
        });
    }

    // 4. The app's own windows: none yet, but for that offer.
    windows_.clear();
    if (menuOffer_)
        windows_.push_back(&menuOffer_->box());

    // 5. The restore guard, before the system dock is touched (none on Linux).
    dockGuard_ = SystemDockHandover::forThisPlatform(*preferences_, bundleIdentifier);
    if (dockGuard_)
        dockGuard_->startRestoreGuard();

    // 6. The AI usage engine: it collects in the background once a widget asks for its figures.
    aiUsage_ = std::make_unique<AIUsageEngine>(*runtime_, home, applicationSupportFolder(environment, home));

    // 7. The system dock's own look, imported once.
    if (dockGuard_)
        dockGuard_->importSystemDockLook();

    // 8. While the welcome is unfinished the system dock is put back first.
    bool welcomeFinished = preferences_->boolValue(welcomeFinishedKey).value_or(false);
    if (dockGuard_ && !welcomeFinished)
        dockGuard_->restore();

    // 9. Take the system dock out of the way, once the welcome is behind us.
    if (dockGuard_ && welcomeFinished)
        dockGuard_->hide();

    // 10. The dock panel.
    workspace_ = Workspace::forThisPlatform(*runtime_);
    if (auto* desktop = dynamic_cast<WorkspaceLinux*>(workspace_.get()))
        windowWatch_ = std::make_unique<DesktopWindowWatch>(*desktop, *runtime_);
    raster_ = std::make_unique<TileRasterQt>();
    store_ = std::make_unique<DockStore>(*preferences_, *workspace_, *runtime_, raster_.get());
    dockController_ = std::make_unique<DockPanelController>(*preferences_, *store_, *runtime_);
    dockController_->setDesktopServices(desktopServices(environment, home));
    // The widgets after the apps and stacks: `kestrune widgets …` edits reach the store through
    // the preferences' follower.
    widgetStore_ = std::make_unique<WidgetStore>(*preferences_);
    widgetPaging_ = std::make_unique<WidgetPaging>(*widgetStore_, *preferences_);
    widgetMonitors_ = std::make_unique<WidgetMonitors>(*runtime_);
    if (auto* desktop = dynamic_cast<WorkspaceLinux*>(workspace_.get()))
        widgetMonitors_->setApplicationNamer([desktop](const WindowFacts& window) {
            const std::vector<DesktopEntryFacts>& entries = desktop->desktopEntries();
            WindowMatch match = matchWindow(window, entries);
            return match.entry ? desktop->displayName(entries[*match.entry].path) : std::string();
        });
    widgetMonitors_->setAIUsage(aiUsage_.get());
    if (auto command = kestruneCommand())
        widgetMonitors_->setClaudeBridge(ClaudeBridge::Place::standard(environment, home, *command));
    widgetRow_ = std::make_unique<WidgetRow>(*widgetStore_, *widgetPaging_, *widgetMonitors_);
    dockController_->setWidgetRow(widgetRow_.get());
    if (windowWatch_) {
        auto follow = [this] {
            if (!dockController_ || !windowWatch_)
                return;
            dockController_->setDemandingAttention(windowWatch_->demandingAttention());
            dockController_->setFullScreenActive(windowWatch_->activeIsFullScreen());
            std::vector<DockPanelController::MinimizedWindow> minimized;
            for (auto& window : windowWatch_->minimizedWindows())
                minimized.push_back({ window.window, std::move(window.title), std::move(window.path) });
            dockController_->setMinimizedWindows(std::move(minimized));
        };
        windowWatch_->setChanged(follow);
        follow();
    }
    // The trash's watch calls from its own thread; the tile is the main thread's.
    trash_ = std::make_unique<DesktopTrash>(DesktopTrash::folderFor(environment, home), [this] {
        runtime_->post([this] {
            if (dockController_ && trash_)
                dockController_->setTrashItems(trash_->count());
        });
    });
    dockController_->setTrashItems(trash_->count());
    if (welcomeFinished) {
        dockController_->show();
    } else {
        // The dock waits, out of sight, behind the welcome.
        dockController_->orderOut(true);
        welcome_ = std::make_unique<WelcomeWindow>([this] { runtime_->post([this] { finishWelcome(); }); });
        windows_.push_back(welcome_.get());
        welcome_->show();
    }

    // 11. The menu-bar icon, unless the user put it away.
    loginEntryPath_ = LoginItem::entryPath(environment, home);
    showMenuBarIcon(preferences_->boolValue(SettingsWindow::showMenuBarIconKey).value_or(true));
    menuBarIconWatch_ = preferences_->addObserver([this](const std::string& key) {
        if (key == SettingsWindow::showMenuBarIconKey)
            showMenuBarIcon(preferences_->boolValue(SettingsWindow::showMenuBarIconKey).value_or(true));
        // The dock goes on with a change that could not be saved; the user hears once per reason.
        auto failure = preferences_->saveFailure();
        if (failure && failure != shownSaveFailure_)
            runtime_->post([why = *failure] { showFailure(QStringLiteral("Couldn’t save your settings."), why); });
        shownSaveFailure_ = failure;
    });

    if (settingsArgument)
        runtime_->post([this] { openSettings(); });

    // 13. The observers: "openSettings" and "reopen" arrive on the instance's socket (from the
    // tray, a second launch or another process), "kestrune.prepareDockToRise" from the welcome.

    // 14. The remaining services: the session and display watches pause every monitor while the
    // system sleeps, the session is locked or not the active one, or the displays are asleep.
    sessionWatch_ = std::make_unique<SessionWatch>(KestruneActivity::shared());
    // Apps' badges, from the session bus.
    launcherEntries_ = std::make_unique<LauncherEntryWatch>([this](const std::string& id, const DockBadge& badge) {
        if (!dockController_)
            return;
        if (auto path = workspace_->applicationPath(id))
            dockController_->setBadge(*path, badge);
    });
    displaySleepWatch_ = std::make_unique<DisplaySleepWatch>(KestruneActivity::shared());
    // While a screen saver or lock screen has the screen, or another user's session, the dock
    // steps aside.
    auto followActivity = [this] {
        KestruneActivity& activity = KestruneActivity::shared();
        if (dockController_)
            dockController_->setScreenGivenAway(activity.isRaised(KestruneActivity::PauseReason::displaysSleep)
                || activity.isRaised(KestruneActivity::PauseReason::sessionInactive));
    };
    activityWatch_ = KestruneActivity::shared().addObserver(followActivity);
    followActivity();
    return std::nullopt;
}

DockDesktopServices AppDelegate::desktopServices(const Environment& environment, const std::string& home)
{
    DockDesktopServices services;
    // An app opens at login through an autostart entry of its own: a copy of its desktop entry.
    std::string autostart = parentFolder(LoginItem::entryPath(environment, home));
    auto autostartEntry = [autostart](const std::string& path) { return autostart + "/" + std::filesystem::path(path).filename().string(); };
    services.opensAtLogin = [autostartEntry](const std::string& path) { return LoginItem::isRegistered(autostartEntry(path)); };
    services.setOpensAtLogin = [autostartEntry](const std::string& path, bool open) {
        std::string entry = autostartEntry(path);
        if (!open) {
            std::error_code ignored;
            std::filesystem::remove(entry, ignored);
            return;
        }
        auto text = readWholeFile(path);
        if (!text || !createFolders(parentFolder(entry)) || writeFileAtomically(entry, *text, 0644))
            std::fprintf(stderr, "kestrune-dock: could not write %s\n", entry.c_str());
    };
    services.openSettings = [this] { openSettings(); };
    services.emptyTrash = [this] { return trash_ ? trash_->empty() : std::string(); };
    if (auto* desktop = dynamic_cast<WorkspaceLinux*>(workspace_.get())) {
        services.actions = [desktop](const std::string& path) { return desktop->actions(path); };
        services.launchAction = [desktop](const std::string& path, const std::string& action) { desktop->launchAction(path, action); };
        services.opensFiles = [desktop](const std::string& path, const std::vector<std::string>& files) { return desktop->opensFiles(path, files); };
        services.openFiles = [desktop](const std::string& path, const std::vector<std::string>& files) { desktop->openFiles(path, files); };
        services.moveToTrash = [](const std::vector<std::string>& files) { return WorkspaceLinux::moveToTrash(files); };
    }
    if (windowWatch_) {
        DesktopWindowWatch* watch = windowWatch_.get();
        services.windows = [watch](const std::string& path) { return watch->windows(path); };
        services.activateWindow = [watch](uint32_t window) { watch->activateWindow(window); };
        services.quit = [watch](const std::string& path) { watch->close(path); };
        services.forceQuit = [watch](const std::string& path) {
            for (int64_t pid : watch->processes(path))
                ::kill(static_cast<pid_t>(pid), SIGTERM);
        };
    }
    return services;
}

void AppDelegate::received(const std::string& message)
{
    if (message == SingleInstance::reopenMessage)
        reopen();
    else if (message == SingleInstance::openSettingsMessage)
        openSettings();
    else if (message == "kestrune.prepareDockToRise" && dockController_)
        dockController_->prepareToRise();
    else if (message == "kestrune.loginItemChanged")
        loginItemRegistered_ = LoginItem::isRegistered(loginEntryPath_);
}

void AppDelegate::finishWelcome()
{
    if (!welcome_)
        return;
    std::erase(windows_, welcome_.get());
    welcome_->hide();
    welcome_.release()->deleteLater();
    preferences_->set(welcomeFinishedKey, true);
    preferences_->synchronize();
    if (dockGuard_)
        dockGuard_->hide();
    received("kestrune.prepareDockToRise");
}

void AppDelegate::showMenuBarIcon(bool shown)
{
    if (shown && !menuBarIcon_) {
        menuBarIcon_ = std::make_unique<MenuBarIcon>(MenuBarIcon::Actions {
            [this] { openSettings(); },
            [this] { showAbout(); },
            [] { QCoreApplication::quit(); },
        });
    } else if (!shown) {
        menuBarIcon_.reset();
    }
}

void AppDelegate::reopen()
{
    // The dock itself is always there; what comes forward are the app's own windows.
    for (QWidget* window : windows_) {
        if (window->isMinimized())
            window->showNormal();
        if (window->isVisible()) {
            window->raise();
            window->activateWindow();
        }
    }
    if (settingsWindow_ && settingsWindow_->isVisible()) {
        settingsWindow_->raise();
        settingsWindow_->activateWindow();
    }
    // With no window open and no icon beside the clock, a second launch is how to reach the
    // settings: they open.
    bool anyShown = std::any_of(windows_.begin(), windows_.end(), [](QWidget* window) { return window->isVisible(); });
    if (!anyShown && !menuBarIcon_)
        openSettings();
    std::fprintf(stderr, "kestrune-dock: reopen\n");
}

void AppDelegate::openSettings()
{
    if (!settingsWindow_) {
        SettingsWindow::Setup setup;
        setup.loginEntryPath = loginEntryPath_;
        setup.executable = QCoreApplication::applicationFilePath().toStdString();
        setup.notify = [this](const std::string& name) { received(name); };
        setup.widgets = widgetStore_.get();
        setup.widgetMonitors = widgetMonitors_.get();
        settingsWindow_ = std::make_unique<SettingsWindow>(*preferences_, std::move(setup));
        windows_.push_back(settingsWindow_.get());
    }
    settingsWindow_->showPage(SettingsWindow::Page::dock);
}

void AppDelegate::showAbout()
{
    auto* box = new QMessageBox(QMessageBox::NoIcon, QStringLiteral("About Kestrune Dock"),
        QStringLiteral("Kestrune Dock %1\nA dock with live widgets for developers.").arg(QCoreApplication::applicationVersion()));
    box->setIconPixmap(QIcon(QStringLiteral(":/kestrune/app.svg")).pixmap(64, 64));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->show();
}

void AppDelegate::applicationWillTerminate()
{
    if (terminated_ || !runtime_)
        return;
    terminated_ = true;
    // 1. Keep Awake's inhibitor goes first, whatever happens next.
    if (widgetMonitors_)
        widgetMonitors_->releaseHeld();
    // 2. No power watch is held.
    // 3. The dock's views stop showing.
    if (dockController_)
        dockController_->orderOut();
    // 4–5. The guard stands down and the system dock comes back, before we return.
    if (dockGuard_)
        dockGuard_->restore();
    dockGuard_.reset();
    if (preferences_)
        preferences_->synchronize();
}

} // namespace kestrune
