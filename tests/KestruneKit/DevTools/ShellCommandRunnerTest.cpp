#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "KestruneKit/Core/ManualRuntime.h"
#include "KestruneKit/DevTools/ShellCommandRunner.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

using Outcome = ShellCommandResult::Outcome;
using test::eventually;
using test::processIsAlive;

class ShellCommandRunnerTest : public ::testing::Test {
protected:
    ShellCommandRunnerTest()
    {
        runner.onFinish = [this](const Uuid& id, const ShellCommandResult& result) { results[id] = result; };
        environment = processEnvironment();
        environment["HOME"] = home.path();
        runner.setEnvironment(environment);
    }

    ShellCommand command(std::string text, std::string folder = "")
    {
        ShellCommand command;
        command.command = std::move(text);
        command.folder = std::move(folder);
        return command;
    }

    // Runs the command and waits, in real time, for its result.
    std::optional<ShellCommandResult> runToEnd(const ShellCommand& command)
    {
        runner.run(command);
        if (!runtime.runUntil([&] { return results.contains(command.id); }, Seconds(60)))
            return std::nullopt;
        return results[command.id];
    }

    std::optional<ShellCommandResult> waitFor(const Uuid& id)
    {
        if (!runtime.runUntil([&] { return results.contains(id); }, Seconds(30)))
            return std::nullopt;
        return results[id];
    }

    test::TemporaryFolder home;
    Environment environment;
    ManualRuntime runtime;
    ShellCommandRunner runner { runtime };
    std::map<Uuid, ShellCommandResult> results;
};

TEST_F(ShellCommandRunnerTest, ReportsOutcomeExitCodeOutputAndLastLine)
{
    auto succeeded = runToEnd(command("  printf 'one\\ntwo\\n'; echo three >&2 \n"));
    ASSERT_TRUE(succeeded);
    EXPECT_EQ(succeeded->outcome, Outcome::succeeded);
    EXPECT_EQ(succeeded->exitCode, 0);
    EXPECT_EQ(succeeded->output, "one\ntwo\nthree\n");
    EXPECT_EQ(succeeded->lastLine, "three");
    EXPECT_FALSE(succeeded->outputTrimmed);
    EXPECT_EQ(succeeded->started, runtime.now());

    auto failed = runToEnd(command("echo nope; exit 3"));
    ASSERT_TRUE(failed);
    EXPECT_EQ(failed->outcome, Outcome::failed);
    EXPECT_EQ(failed->exitCode, 3);

    auto killed = runToEnd(command("kill -KILL $$"));
    ASSERT_TRUE(killed);
    EXPECT_EQ(killed->outcome, Outcome::failed);
    EXPECT_EQ(killed->exitCode, 137);

    auto progress = runToEnd(command("printf 'working 10%%\\rworking 100%%\\n\\033[32mdone\\033[0m\\n'"));
    ASSERT_TRUE(progress);
    EXPECT_EQ(progress->output, "working 100%\ndone\n");
}

TEST_F(ShellCommandRunnerTest, BlankCommandsAndMissingFoldersStartNothing)
{
    auto blank = command(" \n\t \n");
    runner.run(blank);
    EXPECT_FALSE(runner.isRunning(blank.id));
    EXPECT_EQ(runner.jobCount(), 0u);
    EXPECT_FALSE(results.contains(blank.id));

    auto nowhere = command("pwd", home.file("missing"));
    runner.run(nowhere);
    ASSERT_TRUE(results.contains(nowhere.id));
    EXPECT_EQ(results[nowhere.id].outcome, Outcome::couldNotStart);
    EXPECT_EQ(results[nowhere.id].output, "No folder at " + home.file("missing"));

    home.write("plain-file", "");
    auto notAFolder = command("pwd", home.file("plain-file"));
    runner.run(notAFolder);
    EXPECT_EQ(results[notAFolder.id].outcome, Outcome::couldNotStart);

    runner.setShell("/nonexistent/zsh");
    auto noShell = command("true");
    runner.run(noShell);
    EXPECT_EQ(results[noShell.id].outcome, Outcome::couldNotStart);
    EXPECT_EQ(results[noShell.id].output, "Couldn’t start /nonexistent/zsh");
}

TEST_F(ShellCommandRunnerTest, RunsInTheResolvedFolderWithTheRunnersEnvironment)
{
    ::mkdir(home.file("project").c_str(), 0755);
    auto tilde = runToEnd(command("pwd; echo $KESTRUNE_MARK", "  ~/project "));
    ASSERT_TRUE(tilde);
    EXPECT_EQ(tilde->output, home.file("project") + "\n\n");

    environment["KESTRUNE_MARK"] = "marked";
    runner.setEnvironment(environment);
    auto inHome = runToEnd(command("pwd; echo $KESTRUNE_MARK"));
    ASSERT_TRUE(inHome);
    EXPECT_EQ(inHome->output, home.path() + "\nmarked\n");

    EXPECT_EQ(ShellCommandRunner::resolveFolder("~", "/home/u"), "/home/u");
    EXPECT_EQ(ShellCommandRunner::resolveFolder("~other", "/home/u"), "~other");
    EXPECT_EQ(ShellCommandRunner::resolveFolder("/srv/x", "/home/u"), "/srv/x");
}

TEST_F(ShellCommandRunnerTest, ReadsTheUsersZshrcQuietlyOnlyForLoginRuns)
{
    home.write("zdot/.zshrc", "echo 'welcome banner'\nalias greet='echo hello from zshrc'\nexport FROM_RC=yes\n");
    environment["ZDOTDIR"] = home.file("zdot");
    runner.setEnvironment(environment);

    auto plain = runToEnd(command("echo \"rc=${FROM_RC:-no}\""));
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->output, "rc=no\n");

    runner.setReadsStartupFiles(true);
    auto login = runToEnd(command("greet; echo \"rc=$FROM_RC\"; [[ -o login ]] && echo login"));
    ASSERT_TRUE(login);
    EXPECT_EQ(login->output, "hello from zshrc\nrc=yes\nlogin\n");
}

TEST_F(ShellCommandRunnerTest, FinishesWhenTheShellExitsThoughABackgroundProcessHoldsThePipe)
{
    auto leaves = command("echo started; sleep 60 & echo $!");
    auto began = std::chrono::steady_clock::now();
    auto result = runToEnd(leaves);
    ASSERT_TRUE(result);
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(30));
    EXPECT_EQ(result->outcome, Outcome::succeeded);
    EXPECT_FALSE(runner.isRunning(leaves.id));
    pid_t sleeper = std::stoi(result->lastLine);
    EXPECT_TRUE(processIsAlive(sleeper));
    ::kill(sleeper, SIGKILL);
}

TEST_F(ShellCommandRunnerTest, StopEndsTheWholeGroupAndKillsWhatIgnoresTermTwoSecondsLater)
{
    // The shell and its children all ignore SIGTERM; $! tells the test the background one's pid.
    // (zsh's `wait` returns on an ignored signal, so the shell waits on a foreground sleep.)
    auto stubborn = command("trap '' TERM; sleep 30 & echo $!; touch ready; sleep 30");
    runner.run(stubborn);
    ASSERT_TRUE(runner.isRunning(stubborn.id));
    ASSERT_TRUE(eventually([&] { return std::filesystem::exists(home.file("ready")); }));
    runner.stop(stubborn.id);
    // Nothing is killed before the delay has passed on the runtime's clock.
    runtime.runUntil([] { return false; }, Seconds(0.3));
    EXPECT_TRUE(runner.isRunning(stubborn.id));
    runtime.advance(ShellCommandRunner::killDelay);
    auto result = waitFor(stubborn.id);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->outcome, Outcome::stopped);
    EXPECT_EQ(result->exitCode, 137);
    pid_t grandchild = std::stoi(result->lastLine);
    EXPECT_TRUE(eventually([&] { return !processIsAlive(grandchild); }));
    EXPECT_FALSE(runner.isRunning(stubborn.id));
}

TEST_F(ShellCommandRunnerTest, StoppedOutlivesACleanExitAndTheFirstReasonWins)
{
    auto polite = command("trap 'exit 0' TERM; touch polite; sleep 30 & wait");
    polite.timeLimit = 5;
    runner.run(polite);
    ASSERT_TRUE(eventually([&] { return std::filesystem::exists(home.file("polite")); }));
    runner.stop(polite.id);
    auto result = waitFor(polite.id);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->outcome, Outcome::stopped);
    EXPECT_EQ(result->exitCode, 0);

    // The time limit stops a run by itself; a user's stop after it changes nothing.
    auto slow = command("trap '' TERM; touch slow; sleep 30");
    slow.timeLimit = 5;
    runner.run(slow);
    ASSERT_TRUE(eventually([&] { return std::filesystem::exists(home.file("slow")); }));
    runtime.advance(Seconds(4.9));
    EXPECT_TRUE(runner.isRunning(slow.id));
    runtime.advance(Seconds(0.1));
    runner.stop(slow.id);
    runtime.advance(ShellCommandRunner::killDelay);
    auto timedOut = waitFor(slow.id);
    ASSERT_TRUE(timedOut);
    EXPECT_EQ(timedOut->outcome, Outcome::timedOut);
    EXPECT_EQ(timedOut->exitCode, 137);
}

TEST_F(ShellCommandRunnerTest, RunsACommandOnceAtATimeAndPublishesRunning)
{
    int changes = 0;
    runner.onRunningChanged = [&] { ++changes; };
    auto slow = command("sleep 30");
    runner.run(slow);
    runner.run(slow);
    EXPECT_EQ(runner.jobCount(), 1u);
    EXPECT_EQ(runner.running(), std::set<Uuid> { slow.id });
    runner.stop(slow.id);
    auto result = waitFor(slow.id);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->outcome, Outcome::stopped);
    EXPECT_EQ(result->exitCode, 128 + SIGTERM);
    EXPECT_TRUE(runner.running().empty());
    EXPECT_EQ(changes, 2);
}

TEST_F(ShellCommandRunnerTest, KeepsTheNewestOutputOfAGibibyteWithinBoundedMemory)
{
    // Peak resident memory from here on; a runner that kept everything would add a gibibyte.
    std::ofstream("/proc/self/clear_refs") << "5";
    auto huge = runToEnd(command("yes 'the quick brown fox jumps over the lazy dog' | head -c 1073741824; echo; echo last"));
    ASSERT_TRUE(huge);
    EXPECT_EQ(huge->outcome, Outcome::succeeded);
    EXPECT_TRUE(huge->outputTrimmed);
    EXPECT_LE(huge->output.size(), 262144u);
    EXPECT_GT(huge->output.size(), 262144u - 4096u);
    EXPECT_TRUE(huge->output.starts_with("the quick brown fox jumps over the lazy dog\n"));
    EXPECT_TRUE(huge->output.ends_with("\nlast\n"));
    EXPECT_EQ(huge->lastLine, "last");

    std::ifstream status("/proc/self/status");
    std::string line;
    long peakKiB = 0;
    while (std::getline(status, line))
        if (line.starts_with("VmHWM:"))
            peakKiB = std::stol(line.substr(6));
    EXPECT_LT(peakKiB, 512 * 1024) << "peak resident memory " << peakKiB << " KiB";
}

TEST_F(ShellCommandRunnerTest, ThousandsOfRunsLeaveNoZombieAndNoDescriptor)
{
    int descriptorsBefore = test::openDescriptorCount();
    for (int i = 0; i < 1000; ++i) {
        auto quick = command(i % 2 ? "true" : "echo $$; exit 1");
        auto result = runToEnd(quick);
        ASSERT_TRUE(result);
    }
    EXPECT_EQ(runner.jobCount(), 0u);
    EXPECT_EQ(test::openDescriptorCount(), descriptorsBefore);
    EXPECT_EQ(test::zombieChildCount(), 0);
}

TEST_F(ShellCommandRunnerTest, HandsTerminalCommandsToTheUsersTerminal)
{
    std::string record = home.file("terminal-record");
    environment["TERMINAL"] = KESTRUNE_TEST_HELPERS "/record-terminal";
    environment["KESTRUNE_TERMINAL_RECORD"] = record;
    environment["TMPDIR"] = home.file("tmp");
    runner.setEnvironment(environment);

    auto inTerminal = command("make test", "~/it's here");
    inTerminal.name = "Run\ntests";
    inTerminal.runsInTerminal = true;
    runner.run(inTerminal);
    ASSERT_TRUE(results.contains(inTerminal.id));
    EXPECT_EQ(results[inTerminal.id].outcome, Outcome::openedInTerminal);
    EXPECT_FALSE(runner.isRunning(inTerminal.id));

    ASSERT_TRUE(eventually([&] { return test::readFile(record).size() > 0; }));
    std::string arguments = test::readFile(record);
    std::string folder = home.file("tmp/Kestrune Commands");
    EXPECT_TRUE(arguments.starts_with("-e\n" + folder + "/")) << arguments;
    EXPECT_TRUE(arguments.ends_with(".command\n")) << arguments;
    EXPECT_EQ(test::readFile(record + ".script"), "#!/bin/zsh -il\n# Run tests, from Kestrune Widgets\ncd -- '" + home.path()
                                                      + "/it'\\''s here' || exit 1\nmake test\n");
    struct stat info {};
    ASSERT_EQ(::stat(folder.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);
    std::string script = arguments.substr(3, arguments.size() - 4);
    ASSERT_EQ(::stat(script.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);

    // No terminal at all: a clear failure, and no script left behind.
    environment.erase("TERMINAL");
    environment["PATH"] = home.file("empty-bin");
    runner.setEnvironment(environment);
    auto nowhere = inTerminal;
    nowhere.id = Uuid::random();
    runner.run(nowhere);
    EXPECT_EQ(results[nowhere.id].outcome, Outcome::couldNotStart);
    EXPECT_EQ(results[nowhere.id].output, "No terminal application found: set TERMINAL or install one (x-terminal-emulator)");
    size_t scripts = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder))
        ++scripts;
    EXPECT_EQ(scripts, 1u);
}

} // namespace
} // namespace kestrune
