// The applications-menu entry as GIO reads it (the menus' own reader), and the offer's answers.

#include <gio/gdesktopappinfo.h>

#include <filesystem>

#include <QMessageBox>
#include <QPushButton>

#include <gtest/gtest.h>

#include "KestruneDock/App/ApplicationsMenuEntry.h"
#include "KestruneKit/Preferences/Preferences.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

// The command line GIO makes of an entry's Exec, and its icon.
std::pair<std::string, std::string> readBack(const std::string& path)
{
    GDesktopAppInfo* info = g_desktop_app_info_new_from_filename(path.c_str());
    if (!info)
        return {};
    const char* line = g_app_info_get_commandline(G_APP_INFO(info));
    gchar* icon = g_icon_to_string(g_app_info_get_icon(G_APP_INFO(info)));
    std::pair<std::string, std::string> facts { line ? line : "", icon ? icon : "" };
    g_free(icon);
    g_object_unref(info);
    return facts;
}

// The arguments GLib parses out of an Exec value.
std::vector<std::string> arguments(const std::string& commandLine)
{
    int count = 0;
    gchar** argv = nullptr;
    if (!g_shell_parse_argv(commandLine.c_str(), &count, &argv, nullptr))
        return {};
    std::vector<std::string> list(argv, argv + count);
    g_strfreev(argv);
    return list;
}

TEST(ApplicationsMenuEntry, StartsExactlyThisProgramWhateverItsPathHolds)
{
    test::TemporaryFolder home;
    for (std::string folder : { "/plain", "/with space", "/odd \"quote\" $HOME `x` back\\slash", "/it’s" }) {
        std::string executable = home.path() + folder + "/kestrune-dock";
        // GIO only takes an entry whose program is there.
        home.write(folder.substr(1) + "/kestrune-dock", "#!/bin/sh\n");
        std::filesystem::permissions(executable, std::filesystem::perms::owner_all);
        auto entry = ApplicationsMenuEntry::forThisUser({ { "XDG_DATA_HOME", home.file("data") } }, home.path(), executable);
        EXPECT_EQ(entry.entryPath, home.file("data/applications/app.quillane.dock.desktop"));
        ASSERT_EQ(entry.install("<svg/>"), "");
        auto [commandLine, icon] = readBack(entry.entryPath);
        EXPECT_EQ(icon, entry.iconPath);
        EXPECT_EQ(arguments(commandLine), std::vector<std::string> { executable }) << commandLine;
    }
    // A percent sign would be a field code: it is doubled (GIO takes such an entry only at launch).
    EXPECT_EQ(ApplicationsMenuEntry::execValue("/opt/100%/dock"), "/opt/100%%/dock");
}

TEST(ApplicationsMenuEntry, IsInstalledFromTheUsersDataOrAnyDataFolder)
{
    test::TemporaryFolder home;
    Environment environment { { "XDG_DATA_HOME", home.file("data") }, { "XDG_DATA_DIRS", home.file("usr") + ":" + home.file("opt") } };
    EXPECT_FALSE(ApplicationsMenuEntry::isInstalled(environment, home.path()));
    home.write("opt/applications/app.quillane.dock.desktop", "[Desktop Entry]\n");
    EXPECT_TRUE(ApplicationsMenuEntry::isInstalled(environment, home.path())) << "a package put it in a data folder";
    environment.erase("XDG_DATA_HOME");
    environment["XDG_DATA_DIRS"] = "relative/only";
    EXPECT_FALSE(ApplicationsMenuEntry::isInstalled(environment, home.path()));
    home.write(".local/share/applications/app.quillane.dock.desktop", "[Desktop Entry]\n");
    EXPECT_TRUE(ApplicationsMenuEntry::isInstalled(environment, home.path()));
}

TEST(ApplicationsMenuOffer, NotNowAsksAgainNextTimeDontAskAgainNeverAndAddWritesTheEntry)
{
    test::TemporaryFolder home;
    Environment environment { { "XDG_DATA_HOME", home.file("data") }, { "XDG_DATA_DIRS", home.file("none") } };
    JSONFilePreferences preferences { home.file("app.quillane.dock.json") };
    auto answer = [&](const QString& button) {
        int answered = 0;
        ApplicationsMenuOffer offer(preferences, ApplicationsMenuEntry::forThisUser(environment, home.path(), "/opt/kestrune/kestrune-dock"),
            [&] { ++answered; });
        offer.show();
        for (QAbstractButton* candidate : offer.box().buttons())
            if (candidate->text() == button)
                candidate->click();
        EXPECT_EQ(answered, 1) << button.toStdString();
    };

    ASSERT_TRUE(ApplicationsMenuOffer::isWanted(preferences, environment, home.path()));
    answer(QStringLiteral("Not Now"));
    EXPECT_TRUE(ApplicationsMenuOffer::isWanted(preferences, environment, home.path()));
    answer(QStringLiteral("Add to Applications"));
    EXPECT_FALSE(ApplicationsMenuOffer::isWanted(preferences, environment, home.path()));
    EXPECT_NE(test::readFile(home.file("data/icons/hicolor/scalable/apps/app.quillane.dock.svg")).find("<svg"), std::string::npos);

    std::filesystem::remove(home.file("data/applications/app.quillane.dock.desktop"));
    ASSERT_TRUE(ApplicationsMenuOffer::isWanted(preferences, environment, home.path()));
    answer(QStringLiteral("Don’t ask again"));
    EXPECT_FALSE(ApplicationsMenuOffer::isWanted(preferences, environment, home.path()));
    EXPECT_EQ(preferences.boolValue(ApplicationsMenuOffer::declinedKey), true);
}

} // namespace
} // namespace kestrune
