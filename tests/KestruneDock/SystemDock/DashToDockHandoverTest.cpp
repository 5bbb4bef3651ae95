// Dash to Dock handed over for real: the extension's own schema compiled into a private folder,
// GSettings' keyfile backend on a private configuration folder, and the real `gsettings`.

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include <gtest/gtest.h>

#include "KestruneDock/SystemDock/DashToDockHandover.h"
#include "tests/helpers/Spawn.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

const std::string schemaFile = "/var/cache/kestrune-dock/dash-to-dock/usr/share/glib-2.0/schemas/"
                               "org.gnome.shell.extensions.dash-to-dock.gschema.xml";

class DashToDockHandoverTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(std::filesystem::exists(schemaFile)) << "scripts/setup unpacks Dash to Dock's schema there";
        std::filesystem::create_directories(folder.file("schemas"));
        std::filesystem::copy_file(schemaFile, folder.file("schemas/dash-to-dock.gschema.xml"));
        test::shell(folder.path(), "glib-compile-schemas schemas");
        for (const auto& [name, value] : environment())
            ::setenv(name.c_str(), value.c_str(), 1);
        // The user's own dock: some keys set, the rest at their defaults.
        gsettings("set", "dash-max-icon-size 36");
        gsettings("set", "dock-position LEFT");
        gsettings("set", "autohide false");
        gsettings("set", "intellihide true");
    }
    Environment environment() const
    {
        return { { "GSETTINGS_SCHEMA_DIR", folder.file("schemas") },
                 { "GSETTINGS_BACKEND", "keyfile" },
                 { "XDG_CONFIG_HOME", folder.file("config") },
                 { "XDG_DATA_DIRS", folder.file("nothing") } };
    }
    std::string gsettings(const std::string& verb, const std::string& rest)
    {
        auto output = test::shell(folder.path(), "gsettings " + verb + " " + DashToDockHandover::schema + " " + rest, environment());
        return output.empty() || output.back() != '\n' ? output : output.substr(0, output.size() - 1);
    }
    // The keys the user has set, as the keyfile backend stores them.
    std::string usersKeys() { return test::readFile(folder.file("config/glib-2.0/settings/keyfile")); }

    std::unique_ptr<ChildProcess> hidingDock(const char* mode)
    {
        ChildProcessOptions options;
        options.executable = KESTRUNE_HANDOVER_CHILD;
        options.arguments = { mode, "dash", record, "/usr/bin/gsettings" };
        options.output = ChildStream::pipe;
        options.error = ChildStream::nullDevice;
        auto child = test::spawn(options);
        std::string said;
        EXPECT_TRUE(test::readUntil(child->outputFd(), said, "hidden\n"));
        return child;
    }
    bool isHidden() { return gsettings("get", "show-delay") == "1000.0"; }
    void expectPutBack()
    {
        EXPECT_EQ(gsettings("get", "dash-max-icon-size"), "36");
        EXPECT_EQ(gsettings("get", "dock-position"), "'LEFT'");
        EXPECT_EQ(gsettings("get", "autohide"), "false");
        EXPECT_EQ(gsettings("get", "intellihide"), "true");
        auto keys = usersKeys();
        for (const char* never : { "manualhide", "dock-fixed", "require-pressure-to-show", "pressure-threshold", "show-delay" })
            EXPECT_EQ(keys.find(never), std::string::npos) << never << " was never the user's and stays unset\n" << keys;
        EXPECT_FALSE(std::filesystem::exists(record));
    }

    test::TemporaryFolder folder;
    std::string record = folder.file("prefs/app.quillane.dock.dash-to-dock");
};

TEST_F(DashToDockHandoverTest, AKilledDocksGuardPutsEveryRecordedKeyBack)
{
    auto dock = hidingDock("crash");
    EXPECT_TRUE(isHidden());
    EXPECT_EQ(gsettings("get", "manualhide"), "true");
    EXPECT_EQ(gsettings("get", "dock-fixed"), "false");
    EXPECT_EQ(gsettings("get", "autohide"), "true");
    EXPECT_EQ(gsettings("get", "intellihide"), "false");
    EXPECT_EQ(gsettings("get", "require-pressure-to-show"), "true");
    EXPECT_EQ(gsettings("get", "pressure-threshold"), "100000.0");
    EXPECT_EQ(gsettings("get", "dash-max-icon-size"), "16");
    EXPECT_EQ(test::readFile(record).substr(0, 6 + std::to_string(dock->pid()).size()), "owner " + std::to_string(dock->pid()));

    dock->signal(SIGKILL);
    dock->wait();
    ASSERT_TRUE(test::eventually([&] { return !std::filesystem::exists(record); }));
    expectPutBack();
}

TEST_F(DashToDockHandoverTest, AQuitRestoresAndAnOlderGuardLeavesANewerTakeoverAlone)
{
    auto quitting = hidingDock("quit");
    EXPECT_TRUE(quitting->wait().succeeded());
    expectPutBack();

    auto older = hidingDock("crash");
    auto newer = hidingDock("crash");
    older->signal(SIGKILL);
    older->wait();
    ::usleep(700000);
    EXPECT_TRUE(isHidden()) << "the newer instance still owns the dock";
    // The newer hide kept the first record: the user's values, not the hidden ones.
    EXPECT_NE(test::readFile(record).find("set dash-max-icon-size 36\n"), std::string::npos);
    newer->signal(SIGKILL);
    newer->wait();
    ASSERT_TRUE(test::eventually([&] { return !std::filesystem::exists(record); }));
    expectPutBack();
}

TEST_F(DashToDockHandoverTest, ImportsSizeAndEdgeOnce)
{
    JSONFilePreferences preferences(folder.file("prefs/app.quillane.dock.json"));
    DashToDockHandover handover(preferences, record);
    handover.importSystemDockLook();
    EXPECT_EQ(preferences.doubleValue("iconSize"), 36);
    EXPECT_EQ(preferences.stringValue("edge"), "left");
    EXPECT_EQ(preferences.boolValue("importedSystemDock"), true);
    preferences.set("iconSize", 20.0);
    handover.importSystemDockLook();
    EXPECT_EQ(preferences.doubleValue("iconSize"), 20) << "once per installation";
}

TEST_F(DashToDockHandoverTest, ImportsNoTopEdgeAndClampsTheSize)
{
    gsettings("set", "dock-position TOP");
    gsettings("set", "dash-max-icon-size 64");
    JSONFilePreferences preferences(folder.file("prefs/app.quillane.dock.json"));
    DashToDockHandover(preferences, record).importSystemDockLook();
    EXPECT_EQ(preferences.value("edge"), std::nullopt) << "the top edge is not one of ours";
    EXPECT_EQ(preferences.doubleValue("iconSize"), 60);
}

TEST_F(DashToDockHandoverTest, ADockLeftHiddenWithoutARecordComesBackAtItsDefaults)
{
    gsettings("set", "show-delay 1000.0");
    gsettings("set", "dash-max-icon-size 16");
    JSONFilePreferences preferences(folder.file("prefs/app.quillane.dock.json"));
    DashToDockHandover handover(preferences, record);
    handover.hide();
    EXPECT_EQ(test::readFile(record).find("\nset "), std::string::npos) << test::readFile(record);
    handover.restore();
    EXPECT_EQ(gsettings("get", "show-delay"), "0.25");
    EXPECT_EQ(gsettings("get", "dash-max-icon-size"), "48");
    EXPECT_FALSE(std::filesystem::exists(record));
}

TEST_F(DashToDockHandoverTest, ADesktopWithoutTheSchemaHasNoDockToHandOver)
{
    // The schema lookup is made once per process, so each answer comes from a child of its own.
    auto probe = [&] {
        ChildProcessOptions options;
        options.executable = KESTRUNE_HANDOVER_CHILD;
        options.arguments = { "probe", folder.file("prefs/probe.json") };
        return test::spawn(options)->wait().exitCode();
    };
    EXPECT_EQ(probe(), 0);
    ::setenv("GSETTINGS_SCHEMA_DIR", folder.file("nothing").c_str(), 1);
    EXPECT_EQ(probe(), 3);
}

} // namespace
} // namespace kestrune
