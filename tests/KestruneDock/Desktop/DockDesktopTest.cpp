// The dock on a real X server and window manager, driven as a user would: synthetic pointer
// input, results read back through X properties, screenshots under build/screens/.

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <QByteArray>

#include "KestruneDock/Dock/DockPreferences.h"
#include "KestruneDock/Dock/DockRowLayout.h"
#include "KestruneKit/Core/Uuid.h"
#include "KestruneKit/Process/ChildProcess.h"
#include "tests/helpers/Spawn.h"
#include "tests/helpers/TestSupport.h"
#include "tests/helpers/XSession.h"

namespace kestrune {
namespace {

using test::XSession;

// A user's home for the dock: three pinned apps from a private applications folder.
class DockHome {
public:
    DockHome()
    {
        for (const char* name : { "Alpha", "Beta", "Gamma" })
            folder.write(std::string("share/applications/") + name + ".desktop",
                std::string("[Desktop Entry]\nType=Application\nName=") + name + "\nExec=/bin/true\n");
        nlohmann::json preferences;
        preferences["pinnedApps"] = { folder.file("share/applications/Alpha.desktop"), folder.file("share/applications/Beta.desktop"),
            folder.file("share/applications/Gamma.desktop") };
        // Not asked to be added to the applications menu, but in the test about that.
        preferences["kestrune.launch.applicationsMenuDeclined"] = true;
        // Past the welcome, but in the test about it.
        preferences["welcomeFinished"] = true;
        // No widgets (an empty list, as JSON bytes), but in the tests about them.
        preferences["widgets"] = { { "$data", "W10=" } };
        folder.write("config/kestrune-dock/app.quillane.dock.json", preferences.dump(2));
        ::mkdir(folder.file("run").c_str(), 0700);
    }

    [[nodiscard]] std::string preferencesText() const { return test::readFile(folder.file("config/kestrune-dock/app.quillane.dock.json")); }

    [[nodiscard]] Environment environment(const XSession& session, const Environment& extra = {}) const
    {
        Environment environment = session.environment();
        environment["HOME"] = folder.path();
        environment["XDG_CONFIG_HOME"] = folder.file("config");
        environment["XDG_DATA_HOME"] = folder.file("data");
        environment["XDG_DATA_DIRS"] = folder.file("share");
        environment["XDG_RUNTIME_DIR"] = folder.file("run");
        environment["QT_QPA_PLATFORM"] = "xcb";
        environment.erase("QT_SCALE_FACTOR");
        for (const auto& [name, value] : extra)
            environment[name] = value;
        return environment;
    }

    test::TemporaryFolder folder;
};

std::unique_ptr<ChildProcess> startDock(const Environment& environment)
{
    ChildProcessOptions options;
    options.executable = KESTRUNE_DOCK;
    options.environment = environment;
    options.output = ChildStream::nullDevice;
    options.error = ChildStream::pipe;
    return test::spawn(options);
}

using test::readUntil;

// A window the dock opened beside it: a dialog, or a normal window where Qt did not say dialog.
std::optional<xcb_window_t> dialogOf(XSession& session, const ChildProcess& dock)
{
    if (auto dialog = session.waitForClient(dock.pid(), 15, "_NET_WM_WINDOW_TYPE_DIALOG"))
        return dialog;
    return session.waitForClient(dock.pid(), 5, "_NET_WM_WINDOW_TYPE_NORMAL");
}

// The dock's window once it rests on the bottom edge of a screen `bottom` pixels high.
std::optional<xcb_window_t> restingDock(XSession& session, const ChildProcess& dock, int bottom = 800)
{
    auto window = session.waitForClient(dock.pid(), 20, "_NET_WM_WINDOW_TYPE_DOCK");
    if (!window || !test::eventually([&] { return session.geometry(*window).y + session.geometry(*window).height == bottom; }))
        return std::nullopt;
    return window;
}

// The dock's row at rest, with the settings of a first start, for slots of these kinds.
DockRowLayout restingRow(const std::vector<DockSlotKind>& kinds)
{
    DockRowLayout layout;
    layout.setPreferences(DockPreferences {});
    std::vector<DockRowSlot> slots;
    for (DockSlotKind kind : kinds)
        slots.push_back({ kind });
    layout.setSlots(slots);
    return layout;
}

// Where a slot's middle rests on the bottom edge of the 1280-px screen, in a row of these slots.
int restingX(const std::vector<DockSlotKind>& kinds, size_t slot)
{
    DockRowLayout layout = restingRow(kinds);
    return static_cast<int>(std::lround((1280 - layout.restingLength()) / 2 + layout.frames()[slot].restingCenter));
}

// DockHome's row: its three kept apps, a divider and the trash.
const std::vector<DockSlotKind> homeRow { DockSlotKind::app, DockSlotKind::app, DockSlotKind::app, DockSlotKind::divider,
                                          DockSlotKind::trash };

// Another program's plain window (the click target) of this WM_CLASS class, up on the screen.
std::pair<std::unique_ptr<ChildProcess>, std::optional<xcb_window_t>> anotherWindow(XSession& session, int x, const std::string& className)
{
    ChildProcessOptions options;
    options.executable = KESTRUNE_CLICK_TARGET;
    options.arguments = { std::to_string(x), "100", "300", "200", className };
    options.environment = session.environment();
    options.output = ChildStream::nullDevice;
    auto program = test::spawn(options);
    auto window = session.waitForClass(className);
    return { std::move(program), window };
}

class DockDesktop : public ::testing::TestWithParam<XSession::WindowManager> {};

TEST(DockDesktopWindow, IsADockOnEveryDesktopReservingOnlyItsRestingBar)
{
    XSession session(XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    DockHome home;
    auto dock = startDock(home.environment(session));
    ASSERT_TRUE(dock);
    auto window = session.waitForClient(dock->pid());
    ASSERT_TRUE(window) << "the dock's window never appeared";

    EXPECT_EQ(session.atoms(*window, "_NET_WM_WINDOW_TYPE"), std::vector<std::string> { "_NET_WM_WINDOW_TYPE_DOCK" });
    auto states = session.atoms(*window, "_NET_WM_STATE");
    for (const char* state : { "_NET_WM_STATE_ABOVE", "_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER" })
        EXPECT_NE(std::find(states.begin(), states.end(), state), states.end()) << state;
    EXPECT_EQ(session.cardinals(*window, "_NET_WM_DESKTOP"), std::vector<uint32_t> { 0xFFFFFFFF });

    // Centred on the bottom edge, and the strut reserves that bar's stretch and height only.
    ASSERT_TRUE(test::eventually([&] { return session.geometry(*window).y + session.geometry(*window).height == 800; }));
    test::XRect bar = session.geometry(*window);
    EXPECT_NEAR(bar.x + bar.width / 2.0, 640, 1);
    EXPECT_LT(bar.height, 100) << "at rest the window is the bar, not the magnified row";
    auto strut = session.cardinals(*window, "_NET_WM_STRUT_PARTIAL");
    ASSERT_EQ(strut.size(), 12u);
    EXPECT_EQ(strut[3], static_cast<uint32_t>(bar.height));
    EXPECT_EQ(strut[10], static_cast<uint32_t>(bar.x));
    EXPECT_EQ(strut[11], static_cast<uint32_t>(bar.x + bar.width - 1));
    EXPECT_EQ(strut[0] + strut[1] + strut[2], 0u);
    // The window manager takes the strut off the work area.
    auto workarea = session.cardinals(session.root(), "_NET_WORKAREA");
    ASSERT_GE(workarea.size(), 4u);
    EXPECT_EQ(workarea[3], static_cast<uint32_t>(800 - bar.height));
    session.screenshot("desktop-dock-openbox-1x");

    // Hovered, it rises and spreads; the pointer away, it is the bar again.
    session.move(640, 800 - bar.height / 2);
    ASSERT_TRUE(test::eventually([&] { return session.geometry(*window).height > bar.height; }));
    session.screenshot("desktop-dock-hovered-openbox-1x");
    session.move(100, 100);
    EXPECT_TRUE(test::eventually([&] { return session.geometry(*window).height == bar.height; }));
}

TEST(DockDesktopWindow, ReservesDevicePixelsAtTwiceTheScale)
{
    XSession session(XSession::WindowManager::openbox, 2560, 1600);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    DockHome home;
    auto dock = startDock(home.environment(session, { { "QT_SCALE_FACTOR", "2" } }));
    ASSERT_TRUE(dock);
    auto window = session.waitForClient(dock->pid());
    ASSERT_TRUE(window);
    ASSERT_TRUE(test::eventually([&] { return session.geometry(*window).y + session.geometry(*window).height == 1600; }));
    test::XRect bar = session.geometry(*window);
    EXPECT_EQ(bar.height, 2 * 66) << "a 52-point tile with its padding, in device pixels";
    auto strut = session.cardinals(*window, "_NET_WM_STRUT_PARTIAL");
    ASSERT_EQ(strut.size(), 12u);
    EXPECT_EQ(strut[3], static_cast<uint32_t>(bar.height));
    session.move(1280, 1600 - 66);
    ASSERT_TRUE(test::eventually([&] { return session.geometry(*window).height > bar.height; }));
    session.screenshot("desktop-dock-hovered-openbox-2x");
}

TEST(DockDesktopWindow, FollowsAResolutionChangeAndAWindowManagerRestart)
{
    XSession session(XSession::WindowManager::openbox, 1280, 800, XSession::Screen::resizable);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    DockHome home;
    auto dock = startDock(home.environment(session));
    ASSERT_TRUE(dock);
    auto window = restingDock(session, *dock);
    ASSERT_TRUE(window) << "the dock never came to rest on the bottom edge";
    test::XRect bar = session.geometry(*window);

    // A smaller screen: the dock is on its new bottom edge, centred, reserving the same bar.
    ASSERT_TRUE(session.resize(1024, 768)) << "the nested server did not change its size";
    EXPECT_TRUE(test::eventually([&] {
        test::XRect now = session.geometry(*window);
        return now.y + now.height == 768 && std::abs(now.x + now.width / 2.0 - 512) <= 1;
    })) << "the dock did not follow the screen";
    auto strut = session.cardinals(*window, "_NET_WM_STRUT_PARTIAL");
    ASSERT_EQ(strut.size(), 12u);
    EXPECT_EQ(strut[3], static_cast<uint32_t>(bar.height));
    EXPECT_EQ(strut[10], static_cast<uint32_t>(session.geometry(*window).x));
    session.screenshot("desktop-dock-after-resize-openbox");

    // The window manager restarts: the new one finds a dock that still reserves its bar, and
    // that still rises under the pointer.
    session.restartWindowManager();
    ASSERT_TRUE(session.available()) << session.problem();
    EXPECT_TRUE(test::eventually([&] {
        auto list = session.clients();
        return std::find(list.begin(), list.end(), *window) != list.end();
    })) << "the new window manager does not manage the dock";
    EXPECT_EQ(session.atoms(*window, "_NET_WM_WINDOW_TYPE"), std::vector<std::string> { "_NET_WM_WINDOW_TYPE_DOCK" });
    EXPECT_TRUE(test::eventually([&] {
        auto workarea = session.cardinals(session.root(), "_NET_WORKAREA");
        return workarea.size() >= 4 && workarea[3] == static_cast<uint32_t>(768 - bar.height);
    })) << "the strut is not taken off the work area";
    test::XRect rested = session.geometry(*window);
    EXPECT_EQ(rested.y + rested.height, 768);
    session.move(512, 768 - bar.height / 2);
    EXPECT_TRUE(test::eventually([&] { return session.geometry(*window).height > bar.height; })) << "no magnification";
    session.screenshot("desktop-dock-after-wm-restart-openbox");
    EXPECT_FALSE(dock->hasExited());
}

TEST(DockDesktopWindow, IsTranslucentWithRoundedEndsWhileACompositorRunsAndOpaqueOtherwise)
{
    XSession session(XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    if (!isExecutableFile("/usr/bin/xcompmgr"))
        GTEST_SKIP() << "xcompmgr is not installed (scripts/setup installs it)";
    DockHome home;
    // A blue window where the dock will be, to show through it.
    ChildProcessOptions below;
    below.executable = KESTRUNE_CLICK_TARGET;
    below.arguments = { "200", "500", "880", "300" };
    below.environment = session.environment();
    auto target = test::spawn(below);
    ASSERT_TRUE(target);
    std::string said;
    ASSERT_TRUE(readUntil(target->outputFd(), said, "mapped"));

    auto dock = startDock(home.environment(session));
    ASSERT_TRUE(dock);
    auto window = restingDock(session, *dock);
    ASSERT_TRUE(window) << "the dock never came to rest on the bottom edge";
    test::XRect bar = session.geometry(*window);
    // The bar's padding under the first tile, and its very corner.
    int x = bar.x + 20, y = 797, cornerX = bar.x + 1, cornerY = 799;
    auto blue = [](uint32_t pixel) { return static_cast<int>(pixel & 0xFF) - static_cast<int>((pixel >> 16) & 0xFF); };
    auto opaque = [&] { return blue(session.pixel(x, y)) < 15 && blue(session.pixel(cornerX, cornerY)) < 15; };
    EXPECT_TRUE(test::eventually(opaque)) << "without a compositor the bar is opaque to its corners";

    // A compositor comes: the window below shows through the bar, and past its rounded ends.
    ChildProcessOptions compositor;
    compositor.executable = "/usr/bin/xcompmgr";
    compositor.environment = session.environment();
    compositor.error = ChildStream::nullDevice;
    auto manager = test::spawn(compositor);
    ASSERT_TRUE(manager);
    EXPECT_TRUE(test::eventually([&] { return blue(session.pixel(x, y)) > 15; }))
        << "the bar hides what is below it: " << std::hex << session.pixel(x, y);
    EXPECT_TRUE(test::eventually([&] { return session.pixel(cornerX, cornerY) == 0x3a6ea5; }))
        << "the bar's corner is square: " << std::hex << session.pixel(cornerX, cornerY);
    session.screenshot("desktop-dock-translucent-openbox");

    // It goes: opaque again.
    manager->signal(SIGTERM);
    manager->wait();
    EXPECT_TRUE(test::eventually(opaque)) << "the bar stayed translucent without a compositor";
}

TEST(DockDesktopWindow, HidesWhenThePointerLeavesAndComesBackToAPushOnTheEdgeNotToAPass)
{
    XSession session(XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    DockHome home;
    auto preferences = nlohmann::json::parse(home.preferencesText());
    preferences["autohide"] = true;
    home.folder.write("config/kestrune-dock/app.quillane.dock.json", preferences.dump(2));
    session.move(100, 100);
    auto dock = startDock(home.environment(session));
    ASSERT_TRUE(dock);
    auto window = session.waitForClient(dock->pid(), 20, "_NET_WM_WINDOW_TYPE_DOCK");
    ASSERT_TRUE(window);
    auto listed = [&] {
        auto list = session.clients();
        return std::find(list.begin(), list.end(), *window) != list.end();
    };
    EXPECT_EQ(session.cardinals(*window, "_NET_WM_STRUT_PARTIAL"), std::vector<uint32_t>(12, 0)) << "a hiding dock reserves nothing";
    ASSERT_TRUE(test::eventually([&] { return !listed(); }, 10)) << "the dock did not hide with the pointer away";
    session.screenshot("desktop-dock-hidden-openbox");

    // Along the edge on the way somewhere else: it stays hidden.
    for (int x = 420; x <= 860; x += 40) {
        session.move(x, 799);
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
    }
    session.move(900, 600);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_FALSE(listed()) << "a pointer passing along the edge called the dock";

    // Pushed against the edge under the dock: it comes back, and goes again when the pointer leaves.
    session.move(640, 799);
    ASSERT_TRUE(test::eventually([&] { return listed(); }, 10)) << "a push on the edge did not call the dock";
    EXPECT_TRUE(test::eventually([&] { return session.geometry(*window).y + session.geometry(*window).height == 800; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    session.screenshot("desktop-dock-revealed-openbox");
    session.move(640, 300);
    EXPECT_TRUE(test::eventually([&] { return !listed(); }, 10)) << "it stayed after the pointer left";
}

TEST(DockDesktopWindow, StepsAsideWhileTheScreenSaverHasTheScreen)
{
    XSession session(XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    DockHome home;
    auto dock = startDock(home.environment(session));
    ASSERT_TRUE(dock);
    auto window = restingDock(session, *dock);
    ASSERT_TRUE(window);
    auto listed = [&] {
        auto list = session.clients();
        return std::find(list.begin(), list.end(), *window) != list.end();
    };
    auto saver = [&](const char* what) {
        ChildProcessOptions options;
        options.executable = "/usr/bin/xset";
        options.arguments = { "s", what };
        options.environment = session.environment();
        EXPECT_TRUE(test::spawn(options)->wait().succeeded());
    };
    // No pointer moves from here on: any input ends the saver.
    saver("activate");
    EXPECT_TRUE(test::eventually([&] { return !listed(); }, 10)) << "the dock stayed over the screen saver";
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_FALSE(listed()) << "the dock came back while the saver ran";
    saver("reset");
    EXPECT_TRUE(test::eventually([&] { return listed(); }, 10)) << "the dock did not come back after the saver";
}

TEST(DockDesktopWindow, LivesOnThePrimaryScreenOrFollowsAPushOnAnotherScreensEdge)
{
    XSession session(XSession::WindowManager::openbox, 2560, 800);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    ASSERT_TRUE(session.splitScreen({ { 0, 0, 1280, 800 }, { 1280, 0, 1280, 800 } }));
    DockHome home;
    session.move(1900, 300);
    auto dock = startDock(home.environment(session));
    ASSERT_TRUE(dock);
    auto window = restingDock(session, *dock);
    ASSERT_TRUE(window);
    auto middle = [&] { return session.geometry(*window).x + session.geometry(*window).width / 2; };
    auto pushAt = [&](int x) {
        session.move(x, 799);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        session.move(x + 2, 799);
    };
    EXPECT_EQ(middle(), 640) << "not in the middle of the primary screen";

    // By default a push on the other screen's edge leaves it where it is.
    pushAt(1900);
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    EXPECT_EQ(middle(), 640);

    // Told to follow the pointer it goes to the pointer's screen at once, and then to whichever
    // screen's edge the pointer pushes against; a pass across the bottom calls nothing.
    session.move(1900, 300);
    JSONFilePreferences elsewhere(home.folder.file("config/kestrune-dock/app.quillane.dock.json"));
    elsewhere.set("dockScreen", std::string("pointer"));
    ASSERT_TRUE(elsewhere.synchronize());
    EXPECT_TRUE(test::eventually([&] { return middle() == 1280 + 640; })) << "it did not come to the pointer's screen";
    for (int x = 100; x <= 1100; x += 100) {
        session.move(x, 799);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    session.move(600, 300);
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    EXPECT_EQ(middle(), 1280 + 640) << "a pointer passing along the edge moved it";
    pushAt(300);
    EXPECT_TRUE(test::eventually([&] { return middle() == 640; })) << "a push on the other screen's edge did not call it";
    std::vector<uint32_t> strut = session.cardinals(*window, "_NET_WM_STRUT_PARTIAL");
    ASSERT_EQ(strut.size(), 12U);
    EXPECT_LT(strut[11], 1280U) << "the reserved stretch is not on the screen it moved to";
    session.move(640, 780);
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    session.screenshot("desktop-dock-second-screen");
}

TEST_P(DockDesktop, ClicksAboveTheRestingBarReachTheWindowBelow)
{
    XSession session(GetParam());
    if (!session.available())
        GTEST_SKIP() << session.problem();
    DockHome home;
    ChildProcessOptions options;
    options.executable = KESTRUNE_CLICK_TARGET;
    options.arguments = { "340", "560", "600", "200" };
    options.environment = session.environment();
    options.error = ChildStream::inherit;
    auto spawned = ChildProcess::spawn(options);
    ASSERT_TRUE(std::holds_alternative<std::unique_ptr<ChildProcess>>(spawned));
    auto& target = *std::get<std::unique_ptr<ChildProcess>>(spawned);
    std::string presses;
    ASSERT_TRUE(readUntil(target.outputFd(), presses, "mapped"));

    auto dock = startDock(home.environment(session));
    ASSERT_TRUE(dock);
    auto window = restingDock(session, *dock);
    ASSERT_TRUE(window) << "the dock never came to rest on the bottom edge";
    test::XRect bar = session.geometry(*window);
    int top = bar.y;

    // The pointer comes from elsewhere and clicks 20 px above the bar.
    session.move(100, 100);
    session.click(640, top - 20);
    EXPECT_TRUE(readUntil(target.outputFd(), presses, "press 640 " + std::to_string(top - 20)))
        << session.managerName() << ": the click went to the dock, not the window below; got: " << presses;

    // From the dock up into the empty space above the magnified tiles: the dock lets go there.
    session.move(640, 800 - bar.height / 2);
    ASSERT_TRUE(test::eventually([&] { return session.geometry(*window).height > bar.height; }));
    session.screenshot(std::string("desktop-click-through-") + (GetParam() == XSession::WindowManager::openbox ? "openbox" : "xfwm4"));
    int x = bar.x + 2;
    int above = session.geometry(*window).y + 4;
    session.move(x, above);
    ASSERT_TRUE(test::eventually([&] { return session.geometry(*window).height == bar.height; }));
    session.click(x, above);
    EXPECT_TRUE(readUntil(target.outputFd(), presses, "press " + std::to_string(x) + " " + std::to_string(above))) << presses;
}

INSTANTIATE_TEST_SUITE_P(WindowManagers, DockDesktop,
    ::testing::Values(XSession::WindowManager::openbox, XSession::WindowManager::xfwm4),
    [](const auto& info) { return info.param == XSession::WindowManager::openbox ? "Openbox" : "Xfwm4"; });

// Brightness of a 0xRRGGBB pixel, 0 to 255.
int brightness(uint32_t pixel) { return static_cast<int>(((pixel >> 16) & 0xFF) + ((pixel >> 8) & 0xFF) + (pixel & 0xFF)) / 3; }

TEST(DockDesktopApps, ALaunchedAppGetsItsIndicatorComesForwardOnAClickAndEntersTheRecentsWhenClosed)
{
    XSession session(XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    DockHome home;
    // The test app, found through its desktop entry's StartupWMClass, shown as a recent app.
    std::string entry = home.folder.file("share/applications/kestrune-test-app.desktop");
    home.folder.write("share/applications/kestrune-test-app.desktop",
        std::string("[Desktop Entry]\nType=Application\nName=Test App\nExec=") + KESTRUNE_CLICK_TARGET
            + " 100 100 300 200\nStartupWMClass=KestruneClickTarget\n");
    auto preferences = nlohmann::json::parse(home.preferencesText());
    preferences["recentApps"] = { entry };
    home.folder.write("config/kestrune-dock/app.quillane.dock.json", preferences.dump(2));

    auto dock = startDock(home.environment(session));
    ASSERT_TRUE(dock);
    auto window = restingDock(session, *dock);
    ASSERT_TRUE(window) << "the dock never came to rest on the bottom edge";
    test::XRect bar = session.geometry(*window);

    using enum DockSlotKind;
    // Three pinned apps, a divider, the test app, a divider, the trash.
    std::vector<DockSlotKind> row { app, app, app, divider, app, divider, trash };
    ASSERT_NEAR(restingX(row, 6), bar.x + bar.width - bar.height / 2, 2) << "the row is not the one this test expects";
    int x = restingX(row, 4);
    DockRowLayout metrics;
    int dotY = 800 - static_cast<int>(metrics.metrics().padding / 2) - 1;
    int tileY = 800 - bar.height / 2;
    EXPECT_LT(brightness(session.pixel(x, dotY)), 100) << "no indicator before it runs";

    session.click(x, tileY);
    auto testApp = session.waitForClass("KestruneClickTarget");
    ASSERT_TRUE(testApp) << "the click did not start the app";
    session.move(100, 100);
    ASSERT_TRUE(test::eventually([&] { return session.geometry(*window).height == bar.height; }));
    EXPECT_TRUE(test::eventually([&] { return brightness(session.pixel(x, dotY)) > 180; })) << "no running indicator";
    session.screenshot("desktop-app-running-openbox");

    // Another program's window, of no desktop entry, comes forward: it has a running tile of its
    // own after the test app's, with the window's own (orange) icon. A copy of the same program
    // elsewhere is another program.
    std::string otherProgram = home.folder.file("other-program");
    std::filesystem::copy_file(KESTRUNE_CLICK_TARGET, otherProgram);
    ChildProcessOptions options;
    options.executable = otherProgram;
    options.arguments = { "700", "100", "300", "200", "SomethingElse" };
    options.environment = session.environment();
    auto other = ChildProcess::spawn(options);
    ASSERT_TRUE(std::holds_alternative<std::unique_ptr<ChildProcess>>(other));
    auto otherWindow = session.waitForClass("SomethingElse");
    ASSERT_TRUE(otherWindow);
    ASSERT_TRUE(test::eventually([&] { return session.activeWindow() == otherWindow; }));
    row = { app, app, app, divider, app, app, divider, trash };
    int otherX = restingX(row, 5);
    EXPECT_TRUE(test::eventually([&] {
        uint32_t pixel = session.pixel(otherX, tileY);
        return ((pixel >> 16) & 0xFF) > 200 && ((pixel >> 8) & 0xFF) > 80 && ((pixel >> 8) & 0xFF) < 150 && (pixel & 0xFF) < 80;
    })) << "no tile with the window's icon; found " << std::hex << session.pixel(otherX, tileY);
    EXPECT_GT(brightness(session.pixel(otherX, dotY)), 180) << "the window's tile is no running tile";
    session.screenshot("desktop-window-of-no-entry-openbox");

    x = restingX(row, 4);
    session.click(x, tileY);
    EXPECT_TRUE(test::eventually([&] { return session.activeWindow() == testApp; })) << "the app's window did not come forward";
    EXPECT_EQ(session.clients().size(), 3u) << "a click on a running app starts no second copy";

    // Closed, its indicator goes and it is a recent app again, after the running ones.
    session.closeWindow(*testApp);
    ASSERT_TRUE(test::eventually([&] {
        auto list = session.clients();
        return std::find(list.begin(), list.end(), *testApp) == list.end();
    })) << "the app did not close";
    session.move(100, 100);
    x = restingX(row, 5);
    EXPECT_TRUE(test::eventually([&] { return brightness(session.pixel(x, dotY)) < 100; })) << "the indicator stayed";
    EXPECT_TRUE(test::eventually([&] {
        auto stored = nlohmann::json::parse(home.preferencesText(), nullptr, false);
        return stored.is_object() && stored["recentApps"] == nlohmann::json::array({ entry });
    })) << home.preferencesText();

    // The other program ends: its tile goes, and it is no recent app.
    session.closeWindow(*otherWindow);
    row = { app, app, app, divider, app, divider, trash };
    EXPECT_TRUE(test::eventually([&] { return std::abs(session.geometry(*window).width - bar.width) <= 1; }))
        << "the window's tile stayed";
    auto stored = nlohmann::json::parse(home.preferencesText(), nullptr, false);
    EXPECT_EQ(stored["recentApps"], nlohmann::json::array({ entry }));
}

TEST(DockDesktopApps, AWindowAskingForAttentionHopsItsTileAndAFullScreenWindowPutsTheDockAside)
{
    XSession session(XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    DockHome home;
    auto dock = startDock(home.environment(session));
    ASSERT_TRUE(dock);
    auto window = restingDock(session, *dock);
    ASSERT_TRUE(window);
    auto [asking, asker] = anotherWindow(session, 300, "AskingApp");
    ASSERT_TRUE(asker);
    session.move(100, 100);
    // Its tile joins the row: the dock rests again, one tile longer.
    ASSERT_TRUE(test::eventually([&] { return session.geometry(*window).width > 0 && session.geometry(*window).height < 100; }));
    test::XRect resting = session.geometry(*window);

    // Another window takes the focus; the first asks for attention and its tile hops, which
    // holds the dock up to its raised height.
    auto [other, otherWindow] = anotherWindow(session, 700, "OtherApp");
    ASSERT_TRUE(otherWindow);
    ASSERT_TRUE(test::eventually([&] { return session.activeWindow() == otherWindow; }));
    session.move(100, 100);
    ASSERT_TRUE(test::eventually([&] { return session.geometry(*window).height == resting.height; }));
    session.setState(*asker, "_NET_WM_STATE_DEMANDS_ATTENTION", true);
    EXPECT_TRUE(test::eventually([&] { return session.geometry(*window).height > resting.height; })) << "the tile did not hop";
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    session.screenshot("desktop-attention-hop");
    // Given the focus, the window stops asking and the dock comes to rest.
    session.setState(*asker, "_NET_WM_STATE_DEMANDS_ATTENTION", false);
    EXPECT_TRUE(test::eventually([&] { return session.geometry(*window).height == resting.height; })) << "the tile kept hopping";

    // Full screen: the dock steps aside, and comes back when the window leaves full screen.
    auto listed = [&] {
        auto clients = session.clients();
        return std::find(clients.begin(), clients.end(), *window) != clients.end();
    };
    session.setState(*otherWindow, "_NET_WM_STATE_FULLSCREEN", true);
    EXPECT_TRUE(test::eventually([&] { return !listed(); })) << "the dock stayed over a full-screen window";
    session.screenshot("desktop-full-screen-window");
    session.setState(*otherWindow, "_NET_WM_STATE_FULLSCREEN", false);
    EXPECT_TRUE(test::eventually(listed)) << "the dock did not come back";
    EXPECT_TRUE(test::eventually([&] { return session.geometry(*window).y + session.geometry(*window).height == 800; }));
}

TEST(DockDesktopApps, AMinimizedWindowGetsATileOfItsOwnThatBringsItBackUnlessItGoesIntoItsApp)
{
    XSession session(XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    DockHome home;
    auto dock = startDock(home.environment(session));
    ASSERT_TRUE(dock);
    auto window = restingDock(session, *dock);
    ASSERT_TRUE(window);
    auto [lonely, target] = anotherWindow(session, 300, "LonelyApp");
    ASSERT_TRUE(target);
    using enum DockSlotKind;
    session.move(100, 100);
    auto running = restingRow({ app, app, app, divider, app, divider, trash });
    ASSERT_TRUE(test::eventually([&] { return std::abs(session.geometry(*window).width - running.restingLength()) <= 1; }));

    auto minimize = [&] {
        ChildProcessOptions xdotool;
        xdotool.executable = "/usr/bin/xdotool";
        xdotool.arguments = { "windowminimize", std::to_string(*target) };
        xdotool.environment = session.environment();
        EXPECT_TRUE(test::spawn(xdotool)->wait().succeeded());
    };
    minimize();
    auto withMinimized = restingRow({ app, app, app, divider, app, divider, app, divider, trash });
    EXPECT_TRUE(test::eventually([&] { return std::abs(session.geometry(*window).width - withMinimized.restingLength()) <= 1; }))
        << "no tile for the minimized window";
    session.screenshot("desktop-minimized-window-tile");

    // Its tile brings it back, and goes.
    test::XRect bar = session.geometry(*window);
    session.click(bar.x + static_cast<int>(withMinimized.frames()[6].restingCenter), 800 - bar.height / 2);
    EXPECT_TRUE(test::eventually([&] { return session.activeWindow() == target; })) << "the window did not come back";
    session.move(100, 100);
    EXPECT_TRUE(test::eventually([&] { return std::abs(session.geometry(*window).width - running.restingLength()) <= 1; }))
        << "the tile stayed";

    // Minimized into its app, it has no tile of its own.
    JSONFilePreferences elsewhere(home.folder.file("config/kestrune-dock/app.quillane.dock.json"));
    elsewhere.set("minimizeIntoApp", true);
    ASSERT_TRUE(elsewhere.synchronize());
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    minimize();
    std::this_thread::sleep_for(std::chrono::milliseconds(800));
    EXPECT_LE(std::abs(session.geometry(*window).width - running.restingLength()), 1);
}

TEST(DockDesktopApps, AnAppsCountFromTheSessionBusShowsAsABadgeOnItsTile)
{
    XSession session(XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    DockHome home;
    // A session bus of the test's own, as the desktop's would be.
    ChildProcessOptions busOptions;
    busOptions.executable = "/usr/bin/dbus-daemon";
    busOptions.arguments = { "--session", "--nofork", "--print-address" };
    busOptions.output = ChildStream::pipe;
    auto bus = test::spawn(busOptions);
    std::string address;
    ASSERT_TRUE(readUntil(bus->outputFd(), address, "\n"));
    address.pop_back();
    Environment environment = home.environment(session, { { "DBUS_SESSION_BUS_ADDRESS", address } });
    auto dock = startDock(environment);
    ASSERT_TRUE(dock);
    auto window = restingDock(session, *dock);
    ASSERT_TRUE(window);
    test::XRect bar = session.geometry(*window);
    DockRowLayout layout = restingRow(homeRow);
    int tileRight = bar.x + static_cast<int>(layout.frames()[0].tile.axisEnd());
    int tileTop = 800 - static_cast<int>(layout.frames()[0].tile.depthEnd());
    auto redInCorner = [&] {
        for (int y = tileTop - 2; y < tileTop + 16; y += 2)
            for (int x = tileRight - 20; x < tileRight + 4; x += 2) {
                uint32_t pixel = session.pixel(x, y);
                if (((pixel >> 16) & 0xFF) > 190 && ((pixel >> 8) & 0xFF) < 110 && (pixel & 0xFF) < 110)
                    return true;
            }
        return false;
    };
    EXPECT_FALSE(redInCorner()) << "a badge before any count";

    // The dock's match rule reaches the bus a moment after it starts: the count is sent until seen.
    ChildProcessOptions send;
    send.executable = "/usr/bin/gdbus";
    send.arguments = { "emit", "--session", "--object-path", "/com/canonical/unity/launcherentry/1", "--signal",
                       "com.canonical.Unity.LauncherEntry.Update", "'application://Alpha.desktop'",
                       "{'count': <int64 7>, 'count-visible': <true>}" };
    send.environment = environment;
    send.output = send.error = ChildStream::nullDevice;
    EXPECT_TRUE(test::eventually([&] {
        test::spawn(send)->wait();
        return test::eventually(redInCorner, 0.5);
    })) << "no badge on Alpha's tile";
    session.screenshot("desktop-badge-count");

    send.arguments.back() = "{'count-visible': <false>}";
    test::spawn(send)->wait();
    EXPECT_TRUE(test::eventually([&] { return !redInCorner(); })) << "the badge stayed";
    dock->signal(SIGTERM);
    dock->wait();
    bus->signal(SIGTERM);
    bus->wait();
}

TEST(DockDesktopMenus, ARightClickOpensTheTilesMenuAndUntickingKeepInDockUnpins)
{
    XSession session(XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    DockHome home;
    auto dock = startDock(home.environment(session));
    ASSERT_TRUE(dock);
    auto window = restingDock(session, *dock);
    ASSERT_TRUE(window) << "the dock never came to rest on the bottom edge";
    test::XRect bar = session.geometry(*window);
    DockRowLayout layout = restingRow(homeRow);
    ASSERT_DOUBLE_EQ(layout.restingLength(), bar.width) << "the row is not the one this test expects";

    // Alpha's menu: its options only, as it does not run.
    session.click(bar.x + static_cast<int>(layout.frames()[0].restingCenter), 800 - bar.height / 2, 3);
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    session.screenshot("desktop-tile-menu-openbox");
    session.key("Down");
    session.key("Right");
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    session.screenshot("desktop-tile-menu-options-openbox");
    session.key("Return");
    auto beta = home.folder.file("share/applications/Beta.desktop"), gamma = home.folder.file("share/applications/Gamma.desktop");
    EXPECT_TRUE(test::eventually([&] {
        auto stored = nlohmann::json::parse(home.preferencesText(), nullptr, false);
        return stored.is_object() && stored["pinnedApps"] == nlohmann::json::array({ beta, gamma });
    })) << home.preferencesText();
    session.move(100, 100);
    EXPECT_TRUE(test::eventually([&] { return session.geometry(*window).width < bar.width; })) << "the tile stayed";
}

// The kept apps as stored, when they are stored as expected.
bool storesKept(const DockHome& home, const std::vector<std::string>& names)
{
    nlohmann::json expected = nlohmann::json::array();
    for (const auto& name : names)
        expected.push_back(home.folder.file("share/applications/" + name + ".desktop"));
    auto stored = nlohmann::json::parse(home.preferencesText(), nullptr, false);
    return stored.is_object() && stored["pinnedApps"] == expected;
}

// The Developer widgets, more than a 1280-px screen holds at this icon size, as the preferences
// keep them (JSON bytes).
void giveDeveloperWidgets(DockHome& home, const std::string& overflow)
{
    nlohmann::json row = nlohmann::json::array();
    for (const char* kind : { "git", "aiUsage", "devServers", "containers", "simulators", "endpoints", "timestamp", "activity", "clipboard" })
        row.push_back({ { "id", Uuid::random().toString() }, { "kind", kind }, { "style", "" }, { "options", nlohmann::json::object() } });
    auto preferences = nlohmann::json::parse(home.preferencesText());
    preferences["widgets"] = { { "$data", QByteArray::fromStdString(row.dump()).toBase64().toStdString() } };
    preferences["widgetOverflow"] = overflow;
    preferences["iconSize"] = 72;
    // Tiles hold still under the pointer, so where one is clicked is where it rests.
    preferences["magnification"] = false;
    home.folder.write("config/kestrune-dock/app.quillane.dock.json", preferences.dump(2));
}

// The bar once its widget tiles have taken their lengths (their monitors answer after the start).
test::XRect settledBar(XSession& session, xcb_window_t window)
{
    test::XRect bar = session.geometry(window);
    (void)test::eventually([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(700));
        test::XRect now = session.geometry(window);
        return std::exchange(bar, now).width == now.width;
    });
    return bar;
}

// Where the pages or stack tile rests: just before the trash, at the bar's end.
int widgetControlX(const test::XRect& bar)
{
    DockPreferences preferences;
    preferences.iconSize = 72;
    DockRowLayout layout;
    layout.setPreferences(preferences);
    layout.setSlots({ { DockSlotKind::widgetPages, 36 }, { DockSlotKind::trash } });
    return static_cast<int>(std::lround(bar.x + bar.width - (layout.restingLength() - layout.frames()[0].restingCenter)));
}

TEST(DockDesktopWidgets, TheSystemMonitorRowRunsOnTheDesktopAndScreenTimeKeepsTheActiveApp)
{
    XSession session(XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    DockHome home;
    nlohmann::json row = nlohmann::json::array();
    for (const char* kind : { "activity", "network", "storage", "battery", "sound", "screenTime", "clock", "spaces" })
        row.push_back({ { "id", Uuid::random().toString() }, { "kind", kind }, { "style", "" },
                        { "options", std::string(kind) == "clock" ? nlohmann::json { { "seconds", "true" } } : nlohmann::json::object() } });
    auto preferences = nlohmann::json::parse(home.preferencesText());
    preferences["widgets"] = { { "$data", QByteArray::fromStdString(row.dump()).toBase64().toStdString() } };
    home.folder.write("config/kestrune-dock/app.quillane.dock.json", preferences.dump(2));
    // The probe's desktop entry gives it the name Screen Time keeps.
    home.folder.write("share/applications/probe.desktop",
                      "[Desktop Entry]\nType=Application\nName=Screen Time Probe\nExec=/bin/true\nStartupWMClass=ScreenTimeProbe\n");
    auto dock = startDock(home.environment(session));
    ASSERT_TRUE(dock);
    auto window = restingDock(session, *dock);
    ASSERT_TRUE(window) << "the dock never came to rest";
    // Another program's window comes up and is the active one for a while.
    auto launched = anotherWindow(session, 300, "ScreenTimeProbe");
    std::unique_ptr<ChildProcess>& program = launched.first;
    std::optional<xcb_window_t> target = launched.second;
    ASSERT_TRUE(target);
    ASSERT_TRUE(test::eventually([&] { return session.activeWindow() == target; }, 10)) << "the window never became active";
    settledBar(session, *window);
    std::this_thread::sleep_for(std::chrono::seconds(2));
    session.screenshot("desktop-system-widgets-1x");
    // Quitting writes the stretch not yet written.
    dock->signal(SIGTERM);
    EXPECT_TRUE(dock->wait().succeeded());
    program->signal(SIGTERM);
    program->wait();
    std::string record = home.folder.file("data/kestrune-dock/screen-time.sqlite");
    ChildProcessOptions query;
    query.executable = "/usr/bin/sqlite3";
    query.arguments = { record, "SELECT app, seconds > 1 FROM usage" };
    query.output = ChildStream::pipe;
    auto sqlite = test::spawn(query);
    ASSERT_TRUE(sqlite);
    std::string said;
    (void)readUntil(sqlite->outputFd(), said, "\n", 10);
    sqlite->wait();
    EXPECT_NE(said.find("Screen Time Probe|1"), std::string::npos) << "the record holds: " << said;
}

TEST(DockDesktopWidgets, ThePagesTileStepsThroughThePagesAndTheStackTileOpensItsList)
{
    XSession session(XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    DockHome home;
    giveDeveloperWidgets(home, "pages");
    auto dock = startDock(home.environment(session));
    ASSERT_TRUE(dock);
    auto window = restingDock(session, *dock);
    ASSERT_TRUE(window) << "the dock never came to rest";
    // A line of the bar's pixels tells the pages apart; the bar is as long as the page's tiles.
    auto rowLine = [&] {
        test::XRect bar = session.geometry(*window);
        std::vector<uint32_t> line { static_cast<uint32_t>(bar.x), static_cast<uint32_t>(bar.width) };
        for (int x = bar.x; x < bar.x + bar.width; x += 3)
            line.push_back(session.pixel(x, bar.y + bar.height / 2 - 6));
        return line;
    };
    // The pages tile moves with the bar's end; the pointer goes to where it is now.
    auto clickPagesTile = [&] {
        test::XRect bar = session.geometry(*window);
        session.click(widgetControlX(bar), bar.y + bar.height / 2);
        // Away again, so that no hover is in what is compared.
        session.move(100, 100);
    };
    // Tiles fill in as their monitors answer; the first page is whatever it shows once settled.
    std::vector<uint32_t> firstPage;
    ASSERT_TRUE(test::eventually([&] {
        auto now = rowLine();
        std::this_thread::sleep_for(std::chrono::milliseconds(600));
        return std::exchange(firstPage, rowLine()) == now;
    }));
    session.screenshot("desktop-widgets-page-1-1x");

    clickPagesTile();
    EXPECT_TRUE(test::eventually([&] { return rowLine() != firstPage; }, 10)) << "a click on the pages tile did not step";
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    session.screenshot("desktop-widgets-page-2-1x");
    // Stepping on comes round to the first page again.
    bool back = false;
    for (int step = 0; step < 6 && !back; ++step) {
        auto before = rowLine();
        clickPagesTile();
        EXPECT_TRUE(test::eventually([&] { return rowLine() != before; }, 10)) << "step " << step << " did not step";
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
        back = rowLine() == firstPage;
    }
    EXPECT_TRUE(back) << "the pages never came round to the first";
    session.move(100, 100);
    dock->signal(SIGTERM);
    dock->wait();

    // With the stack instead, the tile opens the list of the widgets behind it, above the dock.
    giveDeveloperWidgets(home, "stack");
    dock = startDock(home.environment(session));
    window = restingDock(session, *dock);
    ASSERT_TRUE(window);
    test::XRect bar = settledBar(session, *window);
    int controlX = widgetControlX(bar);
    int above = bar.y - 60;
    uint32_t desktop = session.pixel(controlX, above);
    session.click(controlX, bar.y + bar.height / 2);
    EXPECT_TRUE(test::eventually([&] { return session.pixel(controlX, above) != desktop; }, 10)) << "no list above the stack tile";
    session.screenshot("desktop-widgets-stack-list-1x");
    session.key("Escape");
    EXPECT_TRUE(test::eventually([&] { return session.pixel(controlX, above) == desktop; }, 10)) << "Escape left the list open";
}

TEST(DockDesktopDragging, ATileDraggedAlongTheRowMovesAndOneDraggedOffLeaves)
{
    XSession session(XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    DockHome home;
    auto dock = startDock(home.environment(session));
    ASSERT_TRUE(dock);
    auto window = restingDock(session, *dock);
    ASSERT_TRUE(window) << "the dock never came to rest on the bottom edge";
    test::XRect bar = session.geometry(*window);
    DockRowLayout layout = restingRow(homeRow);
    ASSERT_DOUBLE_EQ(layout.restingLength(), bar.width) << "the row is not the one this test expects";
    auto centre = [&](size_t slot) { return bar.x + static_cast<int>(layout.frames()[slot].restingCenter); };
    int row = 800 - bar.height / 2;

    // Alpha over Gamma's far half: the others make room, held, and it lands last when let go.
    session.drag(centre(0), row, centre(2) + 15, row, false);
    session.screenshot("desktop-drag-reorder-held");
    session.releaseButton();
    EXPECT_TRUE(test::eventually([&] { return storesKept(home, { "Beta", "Gamma", "Alpha" }); })) << home.preferencesText();
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    session.screenshot("desktop-drag-reorder-landed");

    // Beta, first now, dragged up off the dock and let go: gone from the dock.
    session.drag(centre(0), row, 640, 300);
    EXPECT_TRUE(test::eventually([&] { return storesKept(home, { "Gamma", "Alpha" }); })) << home.preferencesText();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    session.screenshot("desktop-drag-off-poof");
    session.move(100, 100);
    EXPECT_TRUE(test::eventually([&] { return session.geometry(*window).width < bar.width; })) << "the tile stayed";

    // Dragged off and brought back before letting go: nothing changes.
    bar = session.geometry(*window);
    session.drag(centre(0), row, 640, 300, false);
    session.drag(640, 300, centre(0), row);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_TRUE(storesKept(home, { "Gamma", "Alpha" })) << home.preferencesText();
}

// Drags the files from another program's window onto a point of the dock and lets go there;
// returns the action the drop ended with, as the other program saw it.
std::string dropFromAnotherProgram(XSession& session, const Environment& environment, const std::vector<std::string>& files, int x,
                                   int y, const std::string& screenshot = {}, int patience = 1)
{
    ChildProcessOptions options;
    options.executable = KESTRUNE_DRAG_SOURCE;
    options.arguments = { "40", "40" };
    options.arguments.insert(options.arguments.end(), files.begin(), files.end());
    options.environment = environment;
    options.output = ChildStream::pipe;
    options.error = ChildStream::nullDevice;
    auto source = test::spawn(options);
    std::string said;
    EXPECT_TRUE(readUntil(source->outputFd(), said, "mapped\n"));
    EXPECT_TRUE(session.waitForClient(source->pid(), 10));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    session.drag(100, 100, x, y, screenshot.empty(), patience);
    if (!screenshot.empty()) {
        session.screenshot(screenshot);
        session.releaseButton();
    }
    EXPECT_TRUE(readUntil(source->outputFd(), said, "-drop\n")) << said;
    source->signal(SIGTERM);
    source->wait();
    auto end = said.find("-drop\n");
    auto start = end == std::string::npos ? end : said.rfind('\n', end);
    return end == std::string::npos ? std::string() : said.substr(start + 1, end - start - 1);
}

// A drop the dock should take, with what shows that it did. On a loaded machine a synthetic drop
// between two programs is now and then lost (the release comes before the source has the
// target's answer, or the target never hears of the drop): the drag is then made again, more
// slowly each time, at most four times more.
void dropTaken(XSession& session, const Environment& environment, const std::vector<std::string>& files, int x, int y,
               const std::function<bool()>& landed, const std::string& screenshot = {})
{
    // Each attempt after the first drags more slowly, for a target that answers late.
    for (int attempt = 0; attempt < 5; ++attempt) {
        (void)dropFromAnotherProgram(session, environment, files, x, y, attempt == 0 ? screenshot : std::string(), attempt + 1);
        if (test::eventually(landed, 5))
            return;
    }
    ADD_FAILURE() << "five drops at " << x << "," << y << " and none landed";
}

// The kinds of the widgets in the dock, in their order, as the preferences keep them.
std::vector<std::string> storedWidgetKinds(const DockHome& home)
{
    std::vector<std::string> kinds;
    auto preferences = nlohmann::json::parse(home.preferencesText(), nullptr, false);
    if (!preferences.is_object() || !preferences.contains("widgets"))
        return kinds;
    auto bytes = QByteArray::fromBase64(QByteArray::fromStdString(preferences["widgets"]["$data"].get<std::string>()));
    auto row = nlohmann::json::parse(bytes.toStdString(), nullptr, false);
    for (const auto& widget : row.is_array() ? row : nlohmann::json::array())
        kinds.push_back(widget.value("kind", ""));
    return kinds;
}

TEST(DockDesktopDragging, AWidgetCarriedOutOfTheStackListLandsOnTheRow)
{
    XSession session(XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    DockHome home;
    giveDeveloperWidgets(home, "stack");
    auto dock = startDock(home.environment(session));
    ASSERT_TRUE(dock);
    auto window = restingDock(session, *dock);
    ASSERT_TRUE(window);
    test::XRect bar = settledBar(session, *window);
    int stackX = widgetControlX(bar);
    int row = bar.y + bar.height / 2;
    auto before = storedWidgetKinds(home);
    ASSERT_EQ(before.size(), 9U);

    // The list opens above the stack tile; its first line is the first widget behind the stack.
    auto openList = [&] {
        session.click(stackX, row);
        int listTop = 0;
        bool open = test::eventually([&] {
            // Up from the bar through the list's white to where it starts.
            int y = bar.y - 12;
            if (session.pixel(stackX, y) != 0xFFFFFF)
                return false;
            while (y > 0 && session.pixel(stackX, y - 1) == 0xFFFFFF)
                --y;
            listTop = y;
            return true;
        }, 10);
        return open ? std::optional(listTop) : std::nullopt;
    };
    std::string carried = before[3];
    auto landed = [&] {
        auto kinds = storedWidgetKinds(home);
        return kinds.size() == 9 && kinds[2] == carried;
    };
    // Onto the widget tile just before the stack tile: it takes that place. A sanitized build
    // answers the drag slowly, so a lost drag is made again, slower.
    for (int patience = 1; patience <= 4 && !landed(); ++patience) {
        auto listTop = openList();
        ASSERT_TRUE(listTop) << "no list above the stack tile";
        session.drag(stackX, *listTop + 8, stackX - 120, row, true, patience * 2);
        (void)test::eventually(landed, 5);
        session.key("Escape");
    }
    EXPECT_TRUE(landed()) << home.preferencesText();
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    session.move(100, 100);
    session.screenshot("desktop-widgets-carried-out-of-the-stack-1x");
}

TEST(DockDesktopDragging, EntriesFoldersAndFilesDroppedFromAnotherProgramLandWhereTheyShould)
{
    XSession session(XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    DockHome home;
    home.folder.write("share/applications/Delta.desktop", "[Desktop Entry]\nType=Application\nName=Delta\nExec=/bin/true\n");
    // Gamma opens plain text, and says which file it was given.
    home.folder.write("share/applications/Gamma.desktop",
        "[Desktop Entry]\nType=Application\nName=Gamma\nMimeType=text/plain;\nExec=/bin/sh -c 'echo \"$1\" > " + home.folder.file("opened")
            + "' sh %f\n");
    home.folder.write("Documents/notes.txt", "notes\n");
    home.folder.write("Documents/letter.txt", "letter\n");
    home.folder.write("Projects/plan.txt", "plan\n");
    // The system's data too, for the types of files (shared-mime-info).
    Environment environment = home.environment(session, { { "XDG_DATA_DIRS", home.folder.file("share") + ":/usr/share" } });
    auto dock = startDock(environment);
    ASSERT_TRUE(dock);
    auto window = restingDock(session, *dock);
    ASSERT_TRUE(window) << "the dock never came to rest on the bottom edge";
    int row = 800 - session.geometry(*window).height / 2;
    auto centre = restingX;
    using K = DockSlotKind;

    // An application's entry dropped on Beta's first half: kept before it, Beta and Gamma making room.
    dropTaken(session, environment, { home.folder.file("share/applications/Delta.desktop") },
        centre({ K::app, K::app, K::app, K::divider, K::trash }, 1) - 15, row,
        [&] { return storesKept(home, { "Alpha", "Delta", "Beta", "Gamma" }); }, "desktop-drop-entry-held");
    EXPECT_TRUE(storesKept(home, { "Alpha", "Delta", "Beta", "Gamma" })) << home.preferencesText();

    // A folder: a stack.
    std::vector<K> withFour { K::app, K::app, K::app, K::app, K::divider, K::trash };
    dropTaken(session, environment, { home.folder.file("Projects") }, centre(withFour, 0), row, [&] {
        auto stored = nlohmann::json::parse(home.preferencesText(), nullptr, false);
        return stored.is_object() && stored["stacks"] == nlohmann::json::array({ home.folder.file("Projects") });
    });

    // A click on the stack opens its popup above it; a file made while it is open joins it.
    std::vector<K> withStack { K::app, K::app, K::app, K::app, K::divider, K::stack, K::trash };
    session.click(centre(withStack, 5), row);
    EXPECT_TRUE(test::eventually([&] { return brightness(session.pixel(centre(withStack, 5), row - 150)) > 150; })) << "no popup";
    home.folder.write("Projects/new idea.txt", "idea\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    session.screenshot("desktop-stack-popup");
    session.key("Escape");
    EXPECT_TRUE(test::eventually([&] { return brightness(session.pixel(centre(withStack, 5), row - 150)) < 60; })) << "the popup stayed";

    // Text on Gamma, which opens it; on Alpha, which does not, nothing happens.
    EXPECT_EQ(dropFromAnotherProgram(session, environment, { home.folder.file("Documents/letter.txt") }, centre(withStack, 0), row), "none");
    dropTaken(session, environment, { home.folder.file("Documents/letter.txt") }, centre(withStack, 3), row,
        [&] { return test::readFile(home.folder.file("opened")) == home.folder.file("Documents/letter.txt") + "\n"; },
        "desktop-drop-file-on-app");

    // A file on the trash: in the user's trash, with where it came from.
    dropTaken(session, environment, { home.folder.file("Documents/notes.txt") }, centre(withStack, 6), row,
        [&] { return std::filesystem::exists(home.folder.file("data/Trash/files/notes.txt")); }, "desktop-drop-file-on-trash");
    EXPECT_FALSE(std::filesystem::exists(home.folder.file("Documents/notes.txt")));
    EXPECT_NE(test::readFile(home.folder.file("data/Trash/info/notes.txt.trashinfo")).find("Path="), std::string::npos);
}

TEST(DockDesktopMenus, EmptyTrashAsksFirstThenEmptiesTheUsersTrash)
{
    XSession session(XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    DockHome home;
    home.folder.write("data/Trash/files/old.txt", "old");
    home.folder.write("data/Trash/info/old.txt.trashinfo", "[Trash Info]\nPath=/tmp/old.txt\nDeletionDate=2026-11-20T10:00:00\n");
    home.folder.write("data/Trash/files/older.txt", "older");
    home.folder.write("data/Trash/info/older.txt.trashinfo", "[Trash Info]\nPath=/tmp/older.txt\nDeletionDate=2026-11-20T10:00:00\n");
    auto dock = startDock(home.environment(session));
    ASSERT_TRUE(dock);
    auto window = restingDock(session, *dock);
    ASSERT_TRUE(window) << "the dock never came to rest on the bottom edge";
    test::XRect bar = session.geometry(*window);

    // The trash is the last tile; its menu's last entry empties it, after a question.
    session.click(bar.x + bar.width - bar.height / 2, 800 - bar.height / 2, 3);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    session.key("Up");
    session.key("Return");
    auto question = dialogOf(session, *dock);
    ASSERT_TRUE(question) << "no question before emptying";
    ASSERT_TRUE(test::eventually([&] { return session.activeWindow() == question; }));
    session.screenshot("desktop-empty-trash-question-openbox");
    EXPECT_TRUE(std::filesystem::exists(home.folder.file("data/Trash/files/old.txt"))) << "emptied before the answer";
    // Cancel is the default; the confirming button is the one before it.
    session.key("shift+Tab");
    session.key("space");
    EXPECT_TRUE(test::eventually([&] { return std::filesystem::is_empty(home.folder.file("data/Trash/files")); })) << "the trash is not empty";
    EXPECT_TRUE(std::filesystem::is_empty(home.folder.file("data/Trash/info")));
    EXPECT_FALSE(dock->hasExited());
}

TEST(DockDesktopLifecycle, OffersToJoinTheApplicationsMenuBesideTheDockAndAddsItsEntry)
{
    XSession session(XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    DockHome home;
    auto preferences = nlohmann::json::parse(home.preferencesText());
    preferences.erase("kestrune.launch.applicationsMenuDeclined");
    home.folder.write("config/kestrune-dock/app.quillane.dock.json", preferences.dump(2));

    auto dock = startDock(home.environment(session));
    ASSERT_TRUE(dock);
    EXPECT_TRUE(session.waitForClient(dock->pid(), 20, "_NET_WM_WINDOW_TYPE_DOCK")) << "the offer held the dock up";
    auto offer = dialogOf(session, *dock);
    ASSERT_TRUE(offer) << "no offer";
    ASSERT_TRUE(test::eventually([&] { return session.activeWindow() == offer; }));
    session.screenshot("desktop-applications-menu-offer-openbox");

    // Its default answer adds the entry, which starts this very dock.
    session.key("Return");
    std::string entry = home.folder.file("data/applications/app.quillane.dock.desktop");
    ASSERT_TRUE(test::eventually([&] { return std::filesystem::exists(entry); })) << "no entry written";
    std::string text = test::readFile(entry);
    EXPECT_NE(text.find(std::string("\nExec=") + KESTRUNE_DOCK + "\n"), std::string::npos) << text;
    EXPECT_NE(text.find("Icon=" + home.folder.file("data/icons/hicolor/scalable/apps/app.quillane.dock.svg")), std::string::npos) << text;
    EXPECT_TRUE(std::filesystem::file_size(home.folder.file("data/icons/hicolor/scalable/apps/app.quillane.dock.svg")) > 100);

    // Once it is there, the next start asks nothing.
    dock->signal(SIGTERM);
    EXPECT_TRUE(dock->wait().succeeded());
    auto again = startDock(home.environment(session));
    ASSERT_TRUE(again);
    ASSERT_TRUE(session.waitForClient(again->pid(), 20, "_NET_WM_WINDOW_TYPE_DOCK"));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    size_t windows = 0;
    for (xcb_window_t window : session.clients())
        windows += session.cardinals(window, "_NET_WM_PID") == std::vector<uint32_t> { static_cast<uint32_t>(again->pid()) };
    EXPECT_EQ(windows, 1u) << "asked again with the entry in place";
}

TEST(DockDesktopLifecycle, TheWelcomeHoldsTheDockUntilGetStarted)
{
    XSession session(XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    DockHome home;
    auto preferences = nlohmann::json::parse(home.preferencesText());
    preferences.erase("welcomeFinished");
    home.folder.write("config/kestrune-dock/app.quillane.dock.json", preferences.dump(2));
    auto dock = startDock(home.environment(session));
    ASSERT_TRUE(dock);
    auto welcome = session.waitForClient(dock->pid(), 20, "_NET_WM_WINDOW_TYPE_NORMAL");
    ASSERT_TRUE(welcome) << "no welcome";
    std::this_thread::sleep_for(std::chrono::milliseconds(800));
    session.screenshot("desktop-welcome");
    for (xcb_window_t window : session.clients())
        EXPECT_NE(session.atoms(window, "_NET_WM_WINDOW_TYPE"), std::vector<std::string> { "_NET_WM_WINDOW_TYPE_DOCK" })
            << "the dock shows behind the welcome";

    // "Get Started" has the focus.
    session.key("Return");
    EXPECT_TRUE(restingDock(session, *dock)) << "the dock did not rise after the welcome";
    EXPECT_TRUE(test::eventually([&] { return nlohmann::json::parse(home.preferencesText(), nullptr, false).value("welcomeFinished", false); }));
    session.screenshot("desktop-welcome-finished");

    // Once answered, it is never asked again.
    dock->signal(SIGTERM);
    dock->wait();
    auto again = startDock(home.environment(session));
    ASSERT_TRUE(again);
    EXPECT_TRUE(restingDock(session, *again));
    EXPECT_FALSE(session.waitForClient(again->pid(), 2, "_NET_WM_WINDOW_TYPE_NORMAL"));
}

TEST(DockDesktopLifecycle, TheSettingsWindowChangesTheIconSizeAndTheDockFollows)
{
    XSession session(XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    DockHome home;
    auto dock = startDock(home.environment(session));
    ASSERT_TRUE(dock);
    auto window = restingDock(session, *dock);
    ASSERT_TRUE(window);
    test::XRect before = session.geometry(*window);

    // A second launch with --settings opens the running dock's settings, on the Dock page.
    ChildProcessOptions options;
    options.executable = KESTRUNE_DOCK;
    options.arguments = { "--settings" };
    options.environment = home.environment(session);
    options.output = options.error = ChildStream::nullDevice;
    EXPECT_TRUE(test::spawn(options)->wait().succeeded());
    auto settings = session.waitForClient(dock->pid(), 20, "_NET_WM_WINDOW_TYPE_NORMAL");
    ASSERT_TRUE(settings) << "no settings window";
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    session.screenshot("desktop-settings-dock");

    // From the page list to the size slider, then ten points larger.
    session.key("Tab");
    session.key("Page_Up");
    EXPECT_TRUE(test::eventually([&] {
        auto stored = nlohmann::json::parse(home.preferencesText(), nullptr, false);
        return stored.is_object() && stored.value("iconSize", 0.0) == 62.0;
    })) << home.preferencesText();
    EXPECT_TRUE(test::eventually([&] { return session.geometry(*window).height > before.height; })) << "the dock kept its size";
    session.screenshot("desktop-settings-bigger");

    // A change made elsewhere, as `kestrune` makes it (under the domain's lock, written whole):
    // the window shows it and the dock follows.
    JSONFilePreferences elsewhere(home.folder.file("config/kestrune-dock/app.quillane.dock.json"));
    elsewhere.set("iconSize", 40.0);
    ASSERT_TRUE(elsewhere.synchronize());
    EXPECT_TRUE(test::eventually([&] { return session.geometry(*window).height < before.height; }));
}

TEST(DockDesktopLifecycle, ASecondLaunchLeavesOneDockAndTheFirstReopens)
{
    XSession session(XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    DockHome home;
    auto first = startDock(home.environment(session));
    ASSERT_TRUE(first);
    ASSERT_TRUE(session.waitForClient(first->pid()));

    auto second = startDock(home.environment(session));
    ASSERT_TRUE(second);
    ExitStatus status = second->wait();
    EXPECT_TRUE(status.succeeded()) << status.exitCode();
    std::string said;
    EXPECT_TRUE(readUntil(first->errorFd(), said, "reopen")) << said;
    EXPECT_FALSE(first->hasExited());

    // Two started at the same moment (the first one gone) leave exactly one.
    first->signal(SIGTERM);
    first->wait();
    auto a = startDock(home.environment(session));
    auto b = startDock(home.environment(session));
    ASSERT_TRUE(a && b);
    ASSERT_TRUE(test::eventually([&] { return a->hasExited() || b->hasExited(); }));
    ChildProcess& left = a->hasExited() ? *a : *b;
    ChildProcess& stayed = a->hasExited() ? *b : *a;
    EXPECT_TRUE(left.wait().succeeded());
    EXPECT_TRUE(session.waitForClient(stayed.pid()));
    size_t docks = 0;
    for (xcb_window_t window : session.clients())
        docks += session.atoms(window, "_NET_WM_WINDOW_TYPE") == std::vector<std::string> { "_NET_WM_WINDOW_TYPE_DOCK" };
    EXPECT_EQ(docks, 1u);

    // A killed instance holds nothing back: the next start is the instance.
    stayed.signal(SIGKILL);
    stayed.wait();
    auto next = startDock(home.environment(session));
    ASSERT_TRUE(next);
    EXPECT_TRUE(session.waitForClient(next->pid()));
}

TEST(DockDesktopLifecycle, EndsOnTermIntAndHupWithStatusZeroAndThePreferencesIntact)
{
    XSession session(XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    DockHome home;
    std::string before = home.preferencesText();
    for (int signal : { SIGTERM, SIGINT, SIGHUP }) {
        auto dock = startDock(home.environment(session));
        ASSERT_TRUE(dock);
        ASSERT_TRUE(session.waitForClient(dock->pid()));
        dock->signal(signal);
        ExitStatus status = dock->wait();
        EXPECT_TRUE(status.succeeded()) << "signal " << signal << ": " << status.exitCode();
        auto preferences = nlohmann::json::parse(home.preferencesText());
        EXPECT_EQ(preferences["pinnedApps"], nlohmann::json::parse(before)["pinnedApps"]) << signal;
    }
}

} // namespace
} // namespace kestrune
