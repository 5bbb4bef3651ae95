#include <chrono>
#include <csignal>
#include <sstream>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "KestruneKit/Process/ChildOutput.h"
#include "KestruneKit/Process/ChildProcess.h"
#include "tests/helpers/Spawn.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

using test::eventually;
using test::processIsAlive;
using test::readFile;

std::unique_ptr<ChildProcess> start(const ChildProcessOptions& options) { return test::spawn(options); }

ChildProcessOptions shell(const std::string& script)
{
    ChildProcessOptions options;
    options.executable = "/bin/sh";
    options.arguments = { "-c", script };
    return options;
}

struct Captured {
    std::string output;
    std::string error;
    ExitStatus status;
};

Captured runToEnd(ChildProcessOptions options)
{
    Captured captured;
    auto child = start(std::move(options));
    if (!child)
        return captured;
    (void)readOutput(*child,
                     { { child->outputFd(), [&](std::string_view chunk) { captured.output += chunk; } },
                       { child->errorFd(), [&](std::string_view chunk) { captured.error += chunk; } } },
                     std::nullopt);
    captured.status = child->wait();
    return captured;
}

// The fields of /proc/PID/stat after the command name: state, ppid, pgrp, session.
std::vector<std::string> statFields(pid_t pid)
{
    std::string stat = readFile("/proc/" + std::to_string(pid) + "/stat");
    std::istringstream rest(stat.substr(stat.rfind(')') + 1));
    std::vector<std::string> fields(4);
    for (auto& field : fields)
        rest >> field;
    return fields;
}

TEST(ChildProcess, ReportsExitStatusAndDeathBySignalAsAShellDoes)
{
    EXPECT_EQ(runToEnd(shell("exit 3")).status, (ExitStatus { ExitStatus::Kind::exited, 3 }));
    EXPECT_EQ(runToEnd(shell("exit 3")).status.exitCode(), 3);
    auto killed = runToEnd(shell("kill -KILL $$"));
    EXPECT_EQ(killed.status.kind, ExitStatus::Kind::signalled);
    EXPECT_EQ(killed.status.exitCode(), 137);
    EXPECT_TRUE(runToEnd(shell("true")).status.succeeded());
}

TEST(ChildProcess, GivesTheChildItsArgumentsEnvironmentFolderAndStreams)
{
    test::TemporaryFolder folder;
    auto options = shell("printf '%s|' \"$0\" \"$1\" \"$GREETING\" \"$(pwd)\"; echo oops >&2; cat");
    options.arguments.push_back("kestrune-child");
    options.arguments.push_back("two words");
    options.environment = Environment { { "GREETING", "hello" }, { "PATH", "/usr/bin:/bin" } };
    options.workingFolder = folder.path();
    auto captured = runToEnd(options);
    // `cat` reads the null device: end of file at once, not a hang on our terminal.
    EXPECT_EQ(captured.output, "kestrune-child|two words|hello|" + folder.path() + "|");
    EXPECT_EQ(captured.error, "oops\n");

    options.error = ChildStream::mergedWithOutput;
    EXPECT_EQ(runToEnd(options).output, "kestrune-child|two words|hello|" + folder.path() + "|oops\n");
}

TEST(ChildProcess, LeaksNoDescriptorAndResetsSignalsInTheChild)
{
    // A descriptor without close-on-exec, as a careless library would leave one.
    int leaky = ::open("/dev/null", O_RDONLY);
    int high = ::fcntl(leaky, F_DUPFD, 100);
    ASSERT_GE(high, 100);
    auto previous = std::signal(SIGPIPE, SIG_IGN);

    auto listing = runToEnd(shell("ls /proc/$$/fd; kill -PIPE $$; echo survived"));
    std::signal(SIGPIPE, previous);
    ::close(leaky);
    ::close(high);

    EXPECT_EQ(listing.output, "0\n1\n2\n");
    // An ignored SIGPIPE must not pass to the child: it dies of it, as it would from a shell.
    EXPECT_EQ(listing.status.exitCode(), 128 + SIGPIPE);
}

TEST(ChildProcess, FailsToSpawnWithAReason)
{
    ChildProcessOptions missing;
    missing.executable = "/nonexistent/tool";
    auto spawned = ChildProcess::spawn(missing);
    ASSERT_TRUE(std::holds_alternative<SpawnFailure>(spawned));
    EXPECT_EQ(std::get<SpawnFailure>(spawned).error, ENOENT);
    EXPECT_EQ(std::get<SpawnFailure>(spawned).description(), "Couldn’t start /nonexistent/tool: No such file or directory");

    auto noFolder = shell("true");
    noFolder.workingFolder = "/nonexistent/folder";
    EXPECT_TRUE(std::holds_alternative<SpawnFailure>(ChildProcess::spawn(noFolder)));
}

TEST(ChildProcess, GroupSignalsReachGrandchildrenEvenAfterTheLeaderIsGone)
{
    auto options = shell("sleep 30 & echo $!");
    options.grouping = ChildGrouping::newProcessGroup;
    auto child = start(options);
    ASSERT_TRUE(child);
    std::string output;
    (void)readOutput(*child, { { child->outputFd(), [&](std::string_view chunk) { output += chunk; } } }, std::nullopt);
    EXPECT_TRUE(child->wait().succeeded());
    pid_t grandchild = std::stoi(output);
    ASSERT_TRUE(processIsAlive(grandchild));
    EXPECT_EQ(statFields(grandchild)[2], std::to_string(child->pid()));

    EXPECT_FALSE(child->signal(SIGKILL)) << "a reaped child is never signalled";
    EXPECT_TRUE(child->signalGroup(SIGKILL));
    EXPECT_TRUE(eventually([&] { return !processIsAlive(grandchild); }));
}

TEST(ChildProcess, StartsANewSessionAndDestroyingAnUnreapedChildKillsIt)
{
    auto options = shell("exec sleep 30");
    options.grouping = ChildGrouping::newSession;
    auto child = start(options);
    ASSERT_TRUE(child);
    pid_t pid = child->pid();
    auto fields = statFields(pid);
    EXPECT_EQ(fields[2], std::to_string(pid));
    EXPECT_EQ(fields[3], std::to_string(pid));
    EXPECT_FALSE(child->hasExited());
    EXPECT_EQ(child->tryWait(), std::nullopt);

    child.reset();
    EXPECT_FALSE(processIsAlive(pid));
    EXPECT_EQ(test::zombieChildCount(), 0);
}

TEST(ChildOutput, EndsAtTheChildsExitNotWhenABackgroundProcessClosesThePipe)
{
    auto options = shell("echo before; sleep 30 & echo $!; echo after");
    options.grouping = ChildGrouping::newProcessGroup;
    auto child = start(options);
    ASSERT_TRUE(child);
    std::string output;
    auto began = std::chrono::steady_clock::now();
    auto end = readOutput(*child, { { child->outputFd(), [&](std::string_view chunk) { output += chunk; } } },
                          std::chrono::steady_clock::now() + std::chrono::seconds(25));
    EXPECT_EQ(end, OutputEnd::childExited);
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(20));
    EXPECT_TRUE(output.starts_with("before\n"));
    EXPECT_TRUE(output.ends_with("after\n"));
    child->wait();
    child->signalGroup(SIGKILL);
}

TEST(ChildOutput, StopsAtTheDeadline)
{
    auto child = start(shell("exec sleep 30"));
    ASSERT_TRUE(child);
    auto end = readOutput(*child, { { child->outputFd(), [](std::string_view) {} } },
                          std::chrono::steady_clock::now() + std::chrono::milliseconds(100));
    EXPECT_EQ(end, OutputEnd::deadlinePassed);
    EXPECT_FALSE(child->hasExited());
}

} // namespace
} // namespace kestrune
