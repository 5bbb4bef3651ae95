// The Spaces widget on a real X server and window manager: Openbox's desktops, the current one
// followed when it changes elsewhere, a click switching, the card listing a desktop's window.

#include <cstdlib>

#include <QListWidget>
#include <gtest/gtest.h>

#include "KestruneDock/App/QtRuntime.h"
#include "KestruneDock/Desktop/X11Desktops.h"
#include "KestruneDock/DesktopWidgets/SpacesWidget.h"
#include "KestruneDock/WidgetViews/WidgetMonitors.h"
#include "tests/helpers/QtSpin.h"
#include "tests/helpers/Spawn.h"
#include "tests/helpers/WidgetImages.h"
#include "tests/helpers/XSession.h"

namespace kestrune {
namespace {

TEST(Spaces, ShowsTheWindowManagersDesktopsFollowsThemAndSwitchesOnAClick)
{
    test::XSession session(test::XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    auto xdotool = [&](std::vector<std::string> arguments) {
        ChildProcessOptions options;
        options.executable = "/usr/bin/xdotool";
        options.arguments = std::move(arguments);
        options.environment = session.environment();
        options.output = ChildStream::nullDevice;
        options.error = ChildStream::nullDevice;
        auto run = test::spawn(options);
        return run && run->wait().succeeded();
    };
    ASSERT_TRUE(xdotool({ "set_num_desktops", "4" }));
    auto current = [&] { return session.cardinals(session.root(), "_NET_CURRENT_DESKTOP"); };
    ASSERT_TRUE(test::spinUntil([&] { return session.cardinals(session.root(), "_NET_NUMBER_OF_DESKTOPS") == std::vector<uint32_t> { 4 }; }));

    // The widget talks to the session's display, as the dock does to its own.
    setenv("DISPLAY", session.display().c_str(), 1);
    QtRuntime runtime;
    WidgetMonitors monitors(runtime);
    SpacesWidget tile(WidgetInstance::make(WidgetKind::spaces), monitors);
    tile.setShown(true);
    ASSERT_TRUE(monitors.desktops().isAvailable());
    EXPECT_EQ(monitors.desktops().count(), 4);
    EXPECT_EQ(tile.accessibleText().rfind("Spaces, ", 0), 0u);
    EXPECT_NE(tile.accessibleText().find(" of 4"), std::string::npos) << tile.accessibleText();

    // Changed elsewhere (a keyboard shortcut, another pager): followed through the root's events.
    ASSERT_TRUE(xdotool({ "set_desktop", "2" }));
    EXPECT_TRUE(test::spinUntil([&] { return monitors.desktops().current() == 2; })) << "the switch went unseen";

    // A click on the second square switches there.
    EXPECT_TRUE(tile.pressed(QPointF(0.3, 0.5)));
    EXPECT_TRUE(test::spinUntil([&] { return current() == std::vector<uint32_t> { 1 }; })) << "the window manager did not switch";
    EXPECT_TRUE(test::spinUntil([&] { return monitors.desktops().current() == 1; }));
    test::saveTileImages(tile, "spaces");

    // A window on the second desktop shows in the card under it.
    ChildProcessOptions window;
    window.executable = KESTRUNE_CLICK_TARGET;
    window.arguments = { "100", "100", "300", "200", "SpacesProbe" };
    window.environment = session.environment();
    window.output = ChildStream::nullDevice;
    auto program = test::spawn(window);
    ASSERT_TRUE(program && session.waitForClient(program->pid()));
    std::unique_ptr<QWidget> card(tile.makeCard());
    auto* list = card->findChild<QListWidget*>();
    ASSERT_TRUE(list);
    QStringList shown;
    for (int row = 0; row < list->count(); ++row)
        shown << list->item(row)->text().trimmed();
    ASSERT_EQ(shown.size(), 5) << "four desktops and the one window: " << shown.join(QStringLiteral(" | ")).toStdString();
    // The window manager's own names, and the window under the second desktop, the current one.
    std::vector<std::string> names = monitors.desktops().names();
    ASSERT_EQ(names.size(), 4u);
    EXPECT_EQ(shown[0].toStdString(), names[0]);
    EXPECT_EQ(shown[1].toStdString(), names[1] + " (current)");
    EXPECT_EQ(shown[2], QStringLiteral("click target")) << "the window is not under its desktop";
    EXPECT_EQ(shown[3].toStdString(), names[2]);
    program->signal(SIGTERM);
    program->wait();
    tile.setShown(false);
    unsetenv("DISPLAY");
}

} // namespace
} // namespace kestrune
