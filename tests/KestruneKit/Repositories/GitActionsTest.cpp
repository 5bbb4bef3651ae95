#include <gtest/gtest.h>

#include "KestruneKit/Core/ManualRuntime.h"
#include "KestruneKit/Repositories/GitActions.h"
#include "KestruneKit/Repositories/RepositoriesMonitor.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

using test::shell;

// Real git on real repositories: two clones of one bare remote, with the test's folder as home.
class GitActionsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        shell(folder.path(), "git init -q --bare -b main remote.git && git clone -q remote.git first 2>/dev/null"
                             " && cd first && git checkout -q -b main && echo one > file && git add file"
                             " && git commit -qm one && git push -q -u origin main && cd .. && git clone -q remote.git second");
    }

    Environment environment() const
    {
        Environment base = processEnvironment();
        base["HOME"] = folder.path();
        base["GIT_CONFIG_NOSYSTEM"] = "1";
        for (const char* who : { "AUTHOR", "COMMITTER" }) {
            base[std::string("GIT_") + who + "_NAME"] = "Test";
            base[std::string("GIT_") + who + "_EMAIL"] = "test@example.com";
        }
        return base;
    }

    GitActions actions() const { return GitActions(DevToolBox(environment()), RepositoryReader::locateGit()); }

    test::TemporaryFolder folder;
};

TEST_F(GitActionsTest, CommitAllPushAndPullCarryWorkBetweenClones)
{
    GitActions git = actions();
    std::string first = folder.file("first"), second = folder.file("second");

    EXPECT_EQ(git.run(GitAction::commitAll, first, " \n").failure, "Write a message for the commit first");
    EXPECT_EQ(git.run(GitAction::commitAll, first, "Nothing yet").failure, "Nothing to commit");

    // Changed, new and deleted files all go in, and the message stands as written.
    shell(first, "echo two >> file && echo new > added && mkdir sub && echo deep > sub/more");
    GitActionResult committed = git.run(GitAction::commitAll, first, "-Add two files\n\nWith a body");
    ASSERT_TRUE(committed.succeeded) << committed.failure << committed.output;
    EXPECT_NE(committed.output.find("3 files changed"), std::string::npos) << committed.output;
    EXPECT_EQ(shell(first, "git status --porcelain"), "");
    EXPECT_EQ(shell(first, "git log -1 --format=%B"), "-Add two files\n\nWith a body\n\n");

    GitActionResult pushed = git.run(GitAction::push, first);
    ASSERT_TRUE(pushed.succeeded) << pushed.failure << pushed.output;

    // The second clone has a commit of its own: its push is refused until it pulls.
    shell(second, "echo other > other && git add other && git commit -qm other");
    EXPECT_EQ(git.run(GitAction::push, second).failure, "The remote has commits you don’t have yet: pull first");
    GitActionResult pulled = git.run(GitAction::pull, second);
    ASSERT_TRUE(pulled.succeeded) << pulled.failure << pulled.output;
    EXPECT_EQ(shell(second, "cat sub/more"), "deep\n");
    ASSERT_TRUE(git.run(GitAction::push, second).succeeded);
    EXPECT_TRUE(shell(folder.file("remote.git"), "git log -1 --format=%s main").starts_with("Merge branch 'main'"));

    // Told to rebase, it rebases.
    shell(folder.file("first"), "git config pull.rebase true && echo mine > mine && git add mine && git commit -qm mine");
    ASSERT_TRUE(git.run(GitAction::pull, first).succeeded);
    EXPECT_EQ(shell(first, "git log -1 --format=%s"), "mine\n");
}

TEST_F(GitActionsTest, FailuresSayWhatToDo)
{
    GitActions git = actions();
    std::string first = folder.file("first");

    shell(first, "git checkout -q -b topic");
    EXPECT_EQ(git.run(GitAction::push, first).failure, "This branch has no upstream yet: push it once with git push -u");
    EXPECT_EQ(git.run(GitAction::pull, first).failure, "This branch has no upstream to pull from");

    // A remote behind a closed port, and one that wants a password: never a prompt.
    shell(first, "git checkout -q main && git remote set-url origin http://127.0.0.1:9/remote.git");
    GitActionResult unreachable = git.run(GitAction::pull, first);
    EXPECT_FALSE(unreachable.succeeded);
    EXPECT_EQ(unreachable.failure, "Couldn’t reach the remote") << unreachable.output;

    EXPECT_EQ(git.run(GitAction::pull, folder.path()).failure, "Not a repository");
    GitActions missing(DevToolBox(environment()), DevTool { "git", { folder.file("no-git") } });
    EXPECT_EQ(missing.run(GitAction::push, first).failure, "Git isn’t installed");

    EXPECT_EQ(GitActions::failureFromOutput(GitAction::push, "fatal: could not read Username for 'https://example.com': terminal prompts disabled\n"),
              "The remote wants you to sign in: sign in once in a terminal or set up a credential helper");
    EXPECT_EQ(GitActions::failureFromOutput(GitAction::pull, "error: something new went wrong\nhint: more\n"), "Git said: something new went wrong");
}

TEST_F(GitActionsTest, MonitorReadsTheFolderAgainAfterAnAction)
{
    std::string first = folder.file("first");
    ManualRuntime runtime;
    KestruneActivity activity;
    RepositoriesMonitor monitor(runtime, activity,
                                std::make_shared<const RepositoryReader>(DevToolBox(environment()), RepositoryReader::locateGit()),
                                std::make_shared<const GitActions>(actions()));
    monitor.setWanted({ first });
    shell(first, "echo two >> file");
    std::optional<GitActionResult> result;
    monitor.perform(GitAction::commitAll, first, "Two", [&](GitActionResult done) { result = std::move(done); });
    ASSERT_TRUE(runtime.runUntil([&] { return result && monitor.states().contains(first); }, Seconds(60)));
    EXPECT_TRUE(result->succeeded) << result->failure;
    ASSERT_NE(monitor.states().at(first).status(), nullptr);
    EXPECT_EQ(monitor.states().at(first).status()->ahead, 1);
    EXPECT_TRUE(monitor.states().at(first).status()->changes.empty());
}

} // namespace
} // namespace kestrune
