// Light or dark and desktop icons written where GNOME keeps them, with GSettings on a keyfile in
// the test's own folder, checked with the desktop's own gsettings tool; changes made there are
// followed; desktops where the switch cannot be made say so.

#include <cstdlib>

#include <gtest/gtest.h>

#include "KestruneDock/App/QtRuntime.h"
#include "KestruneDock/Desktop/DesktopLook.h"
#include "KestruneDock/DesktopWidgets/ControlsWidget.h"
#include "KestruneDock/WidgetViews/WidgetMonitors.h"
#include "tests/helpers/QtSpin.h"
#include "tests/helpers/Spawn.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

TEST(DesktopLook, DarkModeGoesWhereGnomeKeepsItAndChangesMadeThereAreFollowed)
{
    if (!isExecutableFile("/usr/bin/gsettings"))
        GTEST_SKIP() << "gsettings is not installed (scripts/setup installs it)";
    test::TemporaryFolder folder;
    // GIO picks its settings backend once, at the first use: this process's is the keyfile.
    setenv("GSETTINGS_BACKEND", "keyfile", 1);
    setenv("XDG_CONFIG_HOME", folder.path().c_str(), 1);
    setenv("XDG_CURRENT_DESKTOP", "ubuntu:GNOME", 1);
    auto gsettings = [&](std::vector<std::string> arguments) {
        ChildProcessOptions options;
        options.executable = "/usr/bin/gsettings";
        options.arguments = std::move(arguments);
        options.output = ChildStream::pipe;
        options.error = ChildStream::nullDevice;
        auto run = test::spawn(options);
        std::string said;
        if (run) {
            if (options.arguments[0] == "get")
                (void)test::readUntil(run->outputFd(), said, "\n", 10);
            run->wait();
        }
        return said.substr(0, said.find('\n'));
    };
    EXPECT_EQ(DesktopLook::running(), DesktopLook::Desktop::gnome);

    QtRuntime runtime;
    WidgetMonitors monitors(runtime);
    AppearanceWidget appearance(WidgetInstance::make(WidgetKind::appearance), monitors);
    EXPECT_EQ(appearance.accessibleText(), "Appearance: Light");
    EXPECT_TRUE(appearance.pressed(QPointF(0.5, 0.5)));
    EXPECT_TRUE(test::spinUntil([&] { return appearance.accessibleText() == "Appearance: Dark"; })) << appearance.accessibleText();
    // The desktop's own tool reads what was written, apps' theme included.
    EXPECT_EQ(gsettings({ "get", "org.gnome.desktop.interface", "color-scheme" }), "'prefer-dark'");
    EXPECT_EQ(gsettings({ "get", "org.gnome.desktop.interface", "gtk-theme" }), "'Adwaita-dark'");

    // Switched back in the desktop's settings: followed.
    gsettings({ "set", "org.gnome.desktop.interface", "color-scheme", "default" });
    EXPECT_TRUE(test::spinUntil([&] { return appearance.accessibleText() == "Appearance: Light"; })) << appearance.accessibleText();

    // The Controls tile's first button is the same switch.
    ControlsWidget controls(WidgetInstance::make(WidgetKind::controls), monitors);
    EXPECT_FALSE(controls.isOn(ControlsWidget::Control::dark));
    EXPECT_TRUE(controls.pressed(QPointF(0.05, 0.5)));
    EXPECT_TRUE(test::spinUntil([&] { return controls.isOn(ControlsWidget::Control::dark); }));
    EXPECT_EQ(gsettings({ "get", "org.gnome.desktop.interface", "color-scheme" }), "'prefer-dark'");

    // GNOME Shell's settings are not installed here: desktop icons say so and do nothing.
    DesktopIconsWidget icons(WidgetInstance::make(WidgetKind::desktopIcons), monitors);
    EXPECT_EQ(icons.accessibleText(), "Desktop Icons: Desktop icons can’t be switched: GNOME Shell’s settings aren’t installed");
    EXPECT_FALSE(icons.pressed(QPointF(0.5, 0.5)));
    unsetenv("XDG_CURRENT_DESKTOP");
}

TEST(DesktopLook, ElsewhereItSaysWhyAndThemesHaveTheirSiblings)
{
    setenv("XDG_CURRENT_DESKTOP", "KDE", 1);
    DesktopLook look(DesktopLook::running(), QDBusConnection(QStringLiteral("no bus")));
    EXPECT_EQ(look.darkProblem(), QStringLiteral("Light and dark mode can’t be switched on KDE"));
    EXPECT_EQ(look.iconsProblem(), QStringLiteral("Desktop icons can’t be switched on KDE"));
    unsetenv("XDG_CURRENT_DESKTOP");

    auto installed = [](const QString& name) { return name == "Mint-Y-Dark" || name == "Mint-Y" || name == "Arc" || name == "Arc-dark"; };
    EXPECT_EQ(DesktopLook::siblingTheme(QStringLiteral("Mint-Y"), true, installed), QStringLiteral("Mint-Y-Dark"));
    EXPECT_EQ(DesktopLook::siblingTheme(QStringLiteral("Mint-Y-Dark"), false, installed), QStringLiteral("Mint-Y"));
    EXPECT_EQ(DesktopLook::siblingTheme(QStringLiteral("Arc"), true, installed), QStringLiteral("Arc-dark"));
    EXPECT_EQ(DesktopLook::siblingTheme(QStringLiteral("Clearlooks"), true, installed), std::nullopt);
    EXPECT_EQ(DesktopLook::siblingTheme(QStringLiteral("Arc-dark"), true, installed), std::nullopt);
}

} // namespace
} // namespace kestrune
