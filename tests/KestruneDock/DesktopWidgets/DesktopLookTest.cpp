// Light or dark and desktop icons written where each desktop keeps them: GNOME, Cinnamon and MATE
// in GSettings on a keyfile in the test's own folder, checked with the gsettings tool; Xfce in a
// real xfconfd on a bus of the test's own, checked with xfconf-query. Changes made there are
// followed, the desktop portal's answer has the last word, and where the switch cannot be made
// the widget says so.

#include <cstdlib>
#include <filesystem>

#include <gtest/gtest.h>

#include "KestruneDock/App/QtRuntime.h"
#include "KestruneDock/Desktop/DesktopLook.h"
#include "KestruneDock/DesktopWidgets/ControlsWidget.h"
#include "KestruneDock/WidgetViews/WidgetMonitors.h"
#include "tests/helpers/MockBus.h"
#include "tests/helpers/QtSpin.h"
#include "tests/helpers/Spawn.h"
#include "tests/helpers/TestSupport.h"
#include "tests/helpers/WidgetImages.h"

namespace kestrune {
namespace {

// GIO picks its settings backend once, at the first use: this process's is a keyfile in `folder`.
void useKeyfileSettings(const test::TemporaryFolder& folder)
{
    setenv("GSETTINGS_BACKEND", "keyfile", 1);
    setenv("XDG_CONFIG_HOME", folder.path().c_str(), 1);
}

std::string gsettingsSays(const std::string& arguments)
{
    std::string said = test::shell("/", "gsettings " + arguments);
    return said.substr(0, said.find('\n'));
}

TEST(DesktopLook, DarkModeGoesWhereGnomeKeepsItAndChangesMadeThereAreFollowed)
{
    if (!isExecutableFile("/usr/bin/gsettings"))
        GTEST_SKIP() << "gsettings is not installed (scripts/setup installs it)";
    test::TemporaryFolder folder;
    useKeyfileSettings(folder);
    setenv("XDG_CURRENT_DESKTOP", "ubuntu:GNOME", 1);
    EXPECT_EQ(DesktopLook::running(), DesktopLook::Desktop::gnome);

    QtRuntime runtime;
    WidgetMonitors monitors(runtime);
    AppearanceWidget appearance(WidgetInstance::make(WidgetKind::appearance), monitors);
    EXPECT_EQ(appearance.accessibleText(), "Appearance: Light");
    EXPECT_TRUE(appearance.pressed(QPointF(0.5, 0.5)));
    EXPECT_TRUE(test::spinUntil([&] { return appearance.accessibleText() == "Appearance: Dark"; })) << appearance.accessibleText();
    // The desktop's own tool reads what was written, apps' theme included.
    EXPECT_EQ(gsettingsSays("get org.gnome.desktop.interface color-scheme"), "'prefer-dark'");
    EXPECT_EQ(gsettingsSays("get org.gnome.desktop.interface gtk-theme"), "'Adwaita-dark'");
    test::saveTileImages(appearance, "appearance-dark");

    // Switched back in the desktop's settings: followed.
    gsettingsSays("set org.gnome.desktop.interface color-scheme default");
    EXPECT_TRUE(test::spinUntil([&] { return appearance.accessibleText() == "Appearance: Light"; })) << appearance.accessibleText();

    // The Controls tile's first button is the same switch.
    ControlsWidget controls(WidgetInstance::make(WidgetKind::controls), monitors);
    EXPECT_FALSE(controls.isOn(ControlsWidget::Control::dark));
    EXPECT_TRUE(controls.pressed(QPointF(0.05, 0.5)));
    EXPECT_TRUE(test::spinUntil([&] { return controls.isOn(ControlsWidget::Control::dark); }));
    EXPECT_EQ(gsettingsSays("get org.gnome.desktop.interface color-scheme"), "'prefer-dark'");
    test::saveTileImages(controls, "controls");

    // GNOME Shell's settings are not installed here: desktop icons say so and do nothing.
    DesktopIconsWidget icons(WidgetInstance::make(WidgetKind::desktopIcons), monitors);
    EXPECT_EQ(icons.accessibleText(), "Desktop Icons: Desktop icons can’t be switched: GNOME Shell’s settings aren’t installed");
    EXPECT_FALSE(icons.pressed(QPointF(0.5, 0.5)));
    test::saveTileImages(icons, "desktop-icons-problem");
    unsetenv("XDG_CURRENT_DESKTOP");
}

TEST(DesktopLook, GnomesDesktopIconsAreItsExtensionTurnedOnAndOff)
{
    const std::string schema = "/var/cache/kestrune-dock/gnome-shell/usr/share/glib-2.0/schemas/org.gnome.shell.gschema.xml";
    if (!std::filesystem::exists(schema))
        GTEST_SKIP() << "scripts/setup unpacks GNOME Shell's schema there";
    test::TemporaryFolder folder;
    std::filesystem::create_directories(folder.file("schemas"));
    std::filesystem::copy_file(schema, folder.file("schemas/org.gnome.shell.gschema.xml"));
    test::shell(folder.path(), "glib-compile-schemas schemas");
    setenv("GSETTINGS_SCHEMA_DIR", folder.file("schemas").c_str(), 1);
    useKeyfileSettings(folder);
    setenv("HOME", folder.path().c_str(), 1);
    setenv("XDG_CURRENT_DESKTOP", "GNOME", 1);
    QtRuntime runtime;
    // Set before this process first reads its settings, which later follow the file only in time.
    gsettingsSays("set org.gnome.shell enabled-extensions \"['other@example.com']\"");
    gsettingsSays("set org.gnome.shell disabled-extensions \"['ding@rastersoft.com']\"");

    DesktopLook without(DesktopLook::Desktop::gnome, QDBusConnection(QStringLiteral("no bus")));
    EXPECT_EQ(without.iconsProblem(), QStringLiteral("Desktop icons need GNOME’s Desktop Icons NG extension"));

    std::filesystem::create_directories(folder.file(".local/share/gnome-shell/extensions/ding@rastersoft.com"));
    DesktopLook look(DesktopLook::Desktop::gnome, QDBusConnection(QStringLiteral("no bus")));
    EXPECT_EQ(look.iconsProblem(), QString());
    EXPECT_FALSE(look.showsIcons());
    look.setShowsIcons(true);
    EXPECT_TRUE(test::spinUntil([&] { return look.showsIcons(); }));
    EXPECT_EQ(gsettingsSays("get org.gnome.shell enabled-extensions"), "['other@example.com', 'ding@rastersoft.com']");
    EXPECT_EQ(gsettingsSays("get org.gnome.shell disabled-extensions"), "@as []");
    // Off is on the disabled list, which wins over a session that turns it on by itself.
    look.setShowsIcons(false);
    EXPECT_TRUE(test::spinUntil([&] { return !look.showsIcons(); }));
    EXPECT_EQ(gsettingsSays("get org.gnome.shell enabled-extensions"), "['other@example.com']");
    EXPECT_EQ(gsettingsSays("get org.gnome.shell disabled-extensions"), "['ding@rastersoft.com']");

    // Ubuntu's session turns it on without listing it.
    setenv("XDG_CURRENT_DESKTOP", "ubuntu:GNOME", 1);
    gsettingsSays("reset org.gnome.shell disabled-extensions");
    EXPECT_TRUE(test::spinUntil([&] { return look.showsIcons(); }));
    unsetenv("XDG_CURRENT_DESKTOP");
}

TEST(DesktopLook, CinnamonAndMateKeepThemeAndIconsInTheirOwnSettings)
{
    for (const char* schema : { "org.cinnamon.desktop.interface", "org.nemo.desktop", "org.mate.interface", "org.mate.background" })
        if (gsettingsSays(std::string("list-keys ") + schema).empty())
            GTEST_SKIP() << schema << " is not installed (scripts/setup installs it)";
    test::TemporaryFolder folder;
    useKeyfileSettings(folder);
    QtRuntime runtime;

    // Cinnamon: the GTK theme and Nemo's desktop layout.
    DesktopLook cinnamon(DesktopLook::Desktop::cinnamon, QDBusConnection(QStringLiteral("no bus")));
    EXPECT_EQ(cinnamon.darkProblem(), QString());
    EXPECT_FALSE(cinnamon.isDark());
    cinnamon.setDark(true);
    EXPECT_TRUE(test::spinUntil([&] { return cinnamon.isDark(); }));
    EXPECT_EQ(gsettingsSays("get org.cinnamon.desktop.interface gtk-theme"), "'Adwaita-dark'");
    EXPECT_TRUE(cinnamon.showsIcons());
    gsettingsSays("set org.nemo.desktop desktop-layout 'false::false'");
    EXPECT_TRUE(test::spinUntil([&] { return !cinnamon.showsIcons(); }));
    gsettingsSays("set org.nemo.desktop desktop-layout 'false::true'");
    EXPECT_TRUE(test::spinUntil([&] { return cinnamon.showsIcons(); }));
    cinnamon.setShowsIcons(false);
    EXPECT_TRUE(test::spinUntil([&] { return !cinnamon.showsIcons(); }));
    EXPECT_EQ(gsettingsSays("get org.nemo.desktop desktop-layout"), "'false::false'");
    // Shown again on the monitors the user had them on.
    cinnamon.setShowsIcons(true);
    EXPECT_EQ(gsettingsSays("get org.nemo.desktop desktop-layout"), "'false::true'");

    // MATE: its own theme has no dark sibling, which the widget says until the user picks one that has.
    DesktopLook mate(DesktopLook::Desktop::mate, QDBusConnection(QStringLiteral("no bus")));
    EXPECT_EQ(mate.darkProblem(), QStringLiteral("The theme “Menta” has no dark version"));
    mate.setDark(true);
    EXPECT_EQ(gsettingsSays("get org.mate.interface gtk-theme"), "'Menta'");
    gsettingsSays("set org.mate.interface gtk-theme Adwaita-dark");
    EXPECT_TRUE(test::spinUntil([&] { return mate.isDark() && mate.darkProblem().isEmpty(); }));
    mate.setDark(false);
    EXPECT_TRUE(test::spinUntil([&] { return !mate.isDark(); }));
    EXPECT_EQ(gsettingsSays("get org.mate.interface gtk-theme"), "'Adwaita'");
    mate.setShowsIcons(false);
    EXPECT_EQ(gsettingsSays("get org.mate.background show-desktop-icons"), "false");
}

TEST(DesktopLook, XfceKeepsThemAsXfconfPropertiesAndItsToolSeesTheChange)
{
    const std::string xfconfd = "/usr/lib/x86_64-linux-gnu/xfce4/xfconf/xfconfd";
    if (!test::MockBus::available() || !isExecutableFile(xfconfd) || !isExecutableFile("/usr/bin/xfconf-query"))
        GTEST_SKIP() << "xfconf is not installed (scripts/setup installs it)";
    test::TemporaryFolder folder;
    setenv("XDG_CONFIG_HOME", folder.path().c_str(), 1);
    QtRuntime runtime;
    test::MockBus bus;
    ASSERT_TRUE(bus.run(xfconfd, {}, QStringLiteral("org.xfce.Xfconf")));
    auto xfconfQuery = [&](const std::string& arguments) {
        std::string said = test::shell(folder.path(), "xfconf-query " + arguments, { { "DBUS_SESSION_BUS_ADDRESS", bus.address } });
        return said.substr(0, said.find('\n'));
    };

    // Nothing set: GTK's own Adwaita, and xfdesktop's file icons.
    DesktopLook look(DesktopLook::Desktop::xfce, *bus.connection);
    EXPECT_TRUE(test::spinUntil([&] { return look.darkProblem().isEmpty() && look.showsIcons(); }));
    EXPECT_FALSE(look.isDark());
    look.setDark(true);
    EXPECT_TRUE(test::spinUntil([&] { return look.isDark(); }));
    EXPECT_EQ(xfconfQuery("-c xsettings -p /Net/ThemeName"), "Adwaita-dark");
    look.setShowsIcons(false);
    EXPECT_TRUE(test::spinUntil([&] { return !look.showsIcons(); }));
    EXPECT_EQ(xfconfQuery("-c xfce4-desktop -p /desktop-icons/style"), "0");

    // Changed, or reset, in Xfce's own settings: followed.
    xfconfQuery("-c xsettings -p /Net/ThemeName -s Adwaita");
    EXPECT_TRUE(test::spinUntil([&] { return !look.isDark(); }));
    xfconfQuery("-c xfce4-desktop -p /desktop-icons/style -r");
    EXPECT_TRUE(test::spinUntil([&] { return look.showsIcons(); }));

    // A theme with no dark sibling can't be switched, and says so.
    xfconfQuery("-c xsettings -p /Net/ThemeName -s Greybird");
    EXPECT_TRUE(test::spinUntil([&] { return look.darkProblem() == QStringLiteral("The theme “Greybird” has no dark version"); }))
        << look.darkProblem().toStdString();

    // With no settings service to answer, the widget says so.
    DesktopLook unanswered(DesktopLook::Desktop::xfce, QDBusConnection(QStringLiteral("no bus")));
    EXPECT_TRUE(test::spinUntil([&] { return !unanswered.darkProblem().isEmpty(); }));
    EXPECT_EQ(unanswered.iconsProblem(), QStringLiteral("Desktop icons can’t be switched: Xfce’s settings service isn’t running"));
}

TEST(DesktopLook, ThePortalsAnswerIsWhatAppsFollow)
{
    if (!test::MockBus::available() || !isExecutableFile("/usr/bin/gsettings"))
        GTEST_SKIP() << "dbus and python3-dbusmock are not installed (scripts/setup installs them)";
    test::TemporaryFolder folder;
    useKeyfileSettings(folder);
    QtRuntime runtime;
    test::MockBus bus;
    const QString portal = QStringLiteral("org.freedesktop.portal.Desktop");
    const QString path = QStringLiteral("/org/freedesktop/portal/desktop");
    ASSERT_TRUE(bus.serve(KESTRUNE_TEST_SOURCES "/helpers/portal_settings_template.py", portal, R"({"color-scheme": 1})"));

    // GNOME's settings say light; the portal, dark.
    DesktopLook look(DesktopLook::Desktop::gnome, *bus.connection);
    EXPECT_TRUE(test::spinUntil([&] { return look.isDark(); }));
    auto portalSays = [&](uint scheme) {
        bus.mock(portal, path, QStringLiteral("EmitSignal"),
                 { QStringLiteral("org.freedesktop.portal.Settings"), QStringLiteral("SettingChanged"), QStringLiteral("ssv"),
                   QVariantList { QStringLiteral("org.freedesktop.appearance"), QStringLiteral("color-scheme"), scheme } });
    };
    portalSays(2);
    EXPECT_TRUE(test::spinUntil([&] { return !look.isDark(); }));
    portalSays(1);
    EXPECT_TRUE(test::spinUntil([&] { return look.isDark(); }));
    // A change in GNOME's own settings doesn't override the portal's word.
    gsettingsSays("set org.gnome.desktop.interface color-scheme prefer-light");
    (void)test::spinUntil([] { return false; }, 300);
    EXPECT_TRUE(look.isDark());
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
