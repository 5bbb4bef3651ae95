#include <csignal>

#include <poll.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "KestruneDock/SystemDock/SystemDockHandover.h"
#include "KestruneKit/Process/ChildProcess.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

class SystemDockHandoverTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        folder.write("bin/defaults", "#!/bin/sh\nKESTRUNE_DEFAULTS_STORE='" + store + "' exec '" KESTRUNE_DEFAULTS_STANDIN "' \"$@\"\n", 0755);
        folder.write("bin/killall", "#!/bin/sh\necho \"$*\" >> '" + folder.file("killall.log") + "'\n", 0755);
        auto dock = system();
        dock->set("autohide", false);
        dock->set("autohide-delay", 0.5);
        dock->set("tilesize", int64_t(48));
        dock->set("magnification", true);
        dock->set("orientation", std::string("left"));
        dock->set("autohide-time-modifier", 0.25);
        app()->set("edge", std::string("bottom"));
    }
    std::unique_ptr<JSONFilePreferences> system() { return std::make_unique<JSONFilePreferences>(store + "/com.apple.dock.json"); }
    std::unique_ptr<JSONFilePreferences> app() { return std::make_unique<JSONFilePreferences>(store + "/app.quillane.dock.json"); }
    SystemDockTools tools() { return { folder.file("bin/defaults"), folder.file("bin/killall") }; }

    // A dock process that has hidden the system dock.
    std::unique_ptr<ChildProcess> hidingDock(const char* mode)
    {
        ChildProcessOptions options;
        options.executable = KESTRUNE_HANDOVER_CHILD;
        options.arguments = { mode, "apple", store, tools().defaults, tools().killall };
        options.error = ChildStream::nullDevice;
        auto spawned = ChildProcess::spawn(options);
        auto child = std::move(std::get<std::unique_ptr<ChildProcess>>(spawned));
        std::string said;
        char buffer[64];
        pollfd ready { child->outputFd(), POLLIN, 0 };
        while (said.find("hidden\n") == std::string::npos && ::poll(&ready, 1, 20000) > 0) {
            ssize_t got = ::read(child->outputFd(), buffer, sizeof buffer);
            if (got <= 0)
                break;
            said.append(buffer, static_cast<size_t>(got));
        }
        EXPECT_EQ(said, "hidden\n");
        return child;
    }
    bool isHidden() { return system()->doubleValue("autohide-delay") == 1000.0; }
    // The user's Dock exactly as SetUp left it.
    void expectPutBack()
    {
        auto dock = system();
        EXPECT_EQ(dock->boolValue("autohide"), false);
        EXPECT_EQ(dock->doubleValue("autohide-delay"), 0.5);
        EXPECT_EQ(dock->doubleValue("tilesize"), 48);
        EXPECT_EQ(dock->boolValue("magnification"), true);
        EXPECT_EQ(dock->stringValue("orientation"), "left");
        EXPECT_EQ(dock->doubleValue("autohide-time-modifier"), 0.25);
        EXPECT_EQ(app()->value("systemDock.saved"), std::nullopt);
    }

    test::TemporaryFolder folder;
    std::string store = folder.path() + "/store";
};

TEST_F(SystemDockHandoverTest, TheGuardPutsTheDockBackAfterACrash)
{
    auto dock = hidingDock("crash");
    auto hidden = system();
    EXPECT_EQ(hidden->boolValue("autohide"), true);
    EXPECT_EQ(hidden->doubleValue("autohide-delay"), 1000.0);
    EXPECT_EQ(hidden->integerValue("tilesize"), 16);
    EXPECT_EQ(hidden->boolValue("magnification"), false);
    EXPECT_EQ(hidden->stringValue("orientation"), "bottom");
    EXPECT_EQ(app()->integerValue("systemDock.owner"), dock->pid());

    dock->signal(SIGKILL);
    dock->wait();
    ASSERT_TRUE(test::eventually([&] { return !app()->value("systemDock.saved"); }));
    expectPutBack();
    EXPECT_EQ(test::readFile(folder.file("killall.log")), "Dock\n");
}

TEST_F(SystemDockHandoverTest, AfterANormalQuitTheGuardHasNothingToDo)
{
    auto dock = hidingDock("quit");
    EXPECT_TRUE(dock->wait().succeeded());
    expectPutBack();
    // The guard wakes as the quitting dock's pipe closes; give it the time it would need.
    ::usleep(700000);
    EXPECT_EQ(test::readFile(folder.file("killall.log")), "Dock\n");
    expectPutBack();
}

TEST_F(SystemDockHandoverTest, AnOlderInstancesGuardLeavesANewerOnesTakeoverAlone)
{
    auto older = hidingDock("crash");
    auto newer = hidingDock("crash");
    EXPECT_EQ(app()->integerValue("systemDock.owner"), newer->pid());
    older->signal(SIGKILL);
    older->wait();
    ::usleep(700000);
    EXPECT_TRUE(isHidden()) << "the newer instance still owns the dock";
    newer->signal(SIGKILL);
    newer->wait();
    ASSERT_TRUE(test::eventually([&] { return !isHidden(); }));
    ASSERT_TRUE(test::eventually([&] { return !app()->value("systemDock.saved"); }));
    expectPutBack();
}

TEST_F(SystemDockHandoverTest, RecordsOnlyTheUsersOwnValues)
{
    // No delay of the user's: none comes back.
    system()->remove("autohide-delay");
    auto preferences = app();
    AppleDockHandover handover(*preferences, "app.quillane.dock", tools());
    handover.hide();
    EXPECT_EQ(app()->value("systemDock.autohideDelay"), std::nullopt);
    handover.restore();
    EXPECT_EQ(system()->value("autohide-delay"), std::nullopt);
    EXPECT_EQ(system()->stringValue("orientation"), "left");

    // A delay of exactly 1000 is our own, left by a run that died: never recorded as the user's.
    system()->set("autohide-delay", 1000.0);
    system()->set("autohide", true);
    handover.hide();
    EXPECT_EQ(app()->value("systemDock.autohideDelay"), std::nullopt);
    EXPECT_EQ(app()->boolValue("systemDock.autohide"), false);
    handover.restore();
    EXPECT_EQ(system()->boolValue("autohide"), false);
}

TEST_F(SystemDockHandoverTest, ImportsTheSystemDocksLookOnceWithinBounds)
{
    system()->set("tilesize", int64_t(12));
    system()->set("largesize", 200.0);
    system()->set("orientation", std::string("top"));
    app()->remove("edge");
    auto preferences = app();
    AppleDockHandover handover(*preferences, "app.quillane.dock", tools());
    handover.importSystemDockLook();
    EXPECT_EQ(preferences->doubleValue("iconSize"), 16);
    EXPECT_EQ(preferences->doubleValue("magnifiedSize"), 128);
    EXPECT_EQ(preferences->boolValue("magnification"), true);
    EXPECT_EQ(preferences->value("edge"), std::nullopt) << "\"top\" ends the import";
    EXPECT_EQ(preferences->boolValue("importedSystemDock"), true);

    system()->set("tilesize", int64_t(40));
    handover.importSystemDockLook();
    EXPECT_EQ(preferences->doubleValue("iconSize"), 16) << "once per installation";
}

TEST(SystemDockHandover, TheGuardScriptNamesTheStandardTools)
{
    auto script = AppleDockHandover::guardScript({});
    EXPECT_TRUE(script.starts_with("trap '' INT HUP TERM\nread -r line\nd=/usr/bin/defaults\n"));
    EXPECT_TRUE(script.ends_with("/usr/bin/killall Dock\n$d delete \"$2\" systemDock.saved\n"));
    EXPECT_EQ(std::count(script.begin(), script.end(), '\n'), 52);
}

} // namespace
} // namespace kestrune
