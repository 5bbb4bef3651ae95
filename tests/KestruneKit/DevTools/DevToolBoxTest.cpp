#include <chrono>
#include <csignal>

#include <sys/stat.h>

#include <gtest/gtest.h>

#include "KestruneKit/DevTools/DevToolBox.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

using Failure = DevTool::Run::Failure;

DevTool shellTool() { return DevTool { "sh", { "/nonexistent/sh", "/bin/sh" } }; }

TEST(DevToolBox, LocatesTheFirstExecutableCandidateInOrder)
{
    test::TemporaryFolder folder;
    folder.write("not-executable", "#!/bin/sh\n", 0644);
    folder.write("first", "#!/bin/sh\n", 0755);
    folder.write("second", "#!/bin/sh\n", 0755);
    ::mkdir(folder.file("a-folder").c_str(), 0755);
    EXPECT_EQ(DevToolBox::locate({ folder.file("missing"), folder.file("not-executable"), folder.file("a-folder"),
                                   folder.file("first"), folder.file("second") }),
              folder.file("first"));
    EXPECT_EQ(DevToolBox::locate({ folder.file("missing") }), std::nullopt);
}

TEST(DevToolBox, CompletesPathWithHomebrewAndLocalFolders)
{
    DevToolBox box(Environment { { "PATH", "/usr/local/bin:/usr/bin" }, { "LANG", "C" } });
    auto environment = box.environment({ { "GIT_OPTIONAL_LOCKS", "0" } });
    EXPECT_EQ(environment["PATH"], "/usr/local/bin:/usr/bin:/opt/homebrew/bin");
    EXPECT_EQ(environment["GIT_OPTIONAL_LOCKS"], "0");
    EXPECT_EQ(environment["LANG"], "C");

    DevToolBox bare(Environment {});
    EXPECT_EQ(bare.environment({})["PATH"], "/usr/bin:/bin:/usr/sbin:/sbin:/opt/homebrew/bin:/usr/local/bin");
    // Components are compared whole: /usr/local/bin2 is not /usr/local/bin.
    EXPECT_EQ(bare.environment({ { "PATH", "/usr/local/bin2:/opt/homebrew/bin" } })["PATH"],
              "/usr/local/bin2:/opt/homebrew/bin:/usr/local/bin");
}

TEST(DevToolBox, KeepsStandardOutputAndErrorApartWithTheExitStatus)
{
    test::TemporaryFolder folder;
    DevToolBox box;
    auto run = box.run(shellTool(), { "-c", "pwd; echo \"$MARK\"; echo 'fatal: not a git repository' >&2; exit 128" },
                       folder.path(), { { "MARK", "set" } }, Seconds(20));
    EXPECT_EQ(run.failure, std::nullopt);
    EXPECT_EQ(run.status, 128);
    EXPECT_EQ(run.output, folder.path() + "\nset\n");
    EXPECT_EQ(run.errorOutput, "fatal: not a git repository\n");
    EXPECT_FALSE(run.succeeded());

    auto limited = box.run(shellTool(), { "-c", "yes | head -c 100000" }, std::nullopt, {}, Seconds(20), 1000);
    EXPECT_TRUE(limited.succeeded());
    EXPECT_EQ(limited.output.size(), 1000u);
    EXPECT_TRUE(limited.outputTruncated);
}

TEST(DevToolBox, TellsNotFoundFromCouldNotLaunch)
{
    test::TemporaryFolder folder;
    DevToolBox box;
    EXPECT_EQ(box.run(DevTool { "gone", { folder.file("gone") } }, {}, std::nullopt, {}, Seconds(5)).failure,
              Failure::notFound);

    // Executable, but not a program the system can start.
    folder.write("garbage", "\x7f" "ELF not really", 0755);
    auto garbage = box.run(DevTool { "garbage", { folder.file("garbage") } }, {}, std::nullopt, {}, Seconds(5));
    EXPECT_EQ(garbage.failure, Failure::couldNotLaunch);
    EXPECT_NE(garbage.failureDetail.find(folder.file("garbage")), std::string::npos);

    auto noFolder = box.run(shellTool(), { "-c", "true" }, folder.file("missing"), {}, Seconds(5));
    EXPECT_EQ(noFolder.failure, Failure::couldNotLaunch);
}

TEST(DevToolBox, TimeOutHoldsWhenAGrandchildKeepsOutputOpen)
{
    DevToolBox box;
    // The tool itself waits, and its child holds the pipe as well: neither end of file nor an
    // exit comes, so only the time-out can end the run, and it takes the child along.
    auto began = std::chrono::steady_clock::now();
    auto run = box.run(shellTool(), { "-c", "sleep 30 & echo $! >&2; echo partial; wait" }, std::nullopt, {},
                       Seconds(0.5));
    auto took = std::chrono::steady_clock::now() - began;
    EXPECT_EQ(run.failure, Failure::timedOut);
    EXPECT_LT(took, std::chrono::seconds(10));
    int grandchild = std::stoi(run.errorOutput.empty() ? "0" : run.errorOutput);
    ASSERT_GT(grandchild, 0);
    EXPECT_TRUE(test::eventually([&] { return !test::processIsAlive(grandchild); }));

    // A tool that ignores SIGTERM is killed after its grace.
    auto stubborn = box.run(shellTool(), { "-c", "trap '' TERM; sleep 30" }, std::nullopt, {}, Seconds(0.2));
    EXPECT_EQ(stubborn.failure, Failure::timedOut);

    // A tool that exits leaves its background children behind without holding the run.
    auto quick = box.run(shellTool(), { "-c", "sleep 30 & echo $!" }, std::nullopt, {}, Seconds(20));
    EXPECT_TRUE(quick.succeeded());
    ASSERT_FALSE(quick.output.empty());
    EXPECT_TRUE(test::processIsAlive(std::stoi(quick.output)));
    ::kill(std::stoi(quick.output), SIGKILL);
}

TEST(DevToolBox, ThousandsOfRunsLeaveNoZombieAndNoDescriptor)
{
    DevToolBox box;
    DevTool truth { "true", { "/bin/true", "/usr/bin/true" } };
    int before = test::openDescriptorCount();
    for (int i = 0; i < 2000; ++i)
        ASSERT_TRUE(box.run(truth, {}, std::nullopt, {}, Seconds(10)).succeeded());
    EXPECT_EQ(test::openDescriptorCount(), before);
    EXPECT_EQ(test::zombieChildCount(), 0);
}

} // namespace
} // namespace kestrune
