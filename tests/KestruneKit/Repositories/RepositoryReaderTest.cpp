#include <filesystem>

#include <gtest/gtest.h>

#include "KestruneKit/Core/ManualRuntime.h"
#include "KestruneKit/Repositories/RepositoriesMonitor.h"
#include "KestruneKit/Repositories/RepositoryReader.h"
#include "KestruneKit/Repositories/RepositoryStanding.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

using Kind = RepositoryChangeKind;
using test::shell;

// Git as the dock finds it, with the test's folder as home so that no user configuration leaks in.
class RepositoryReaderTest : public ::testing::Test {
protected:
    RepositoryReader reader(Environment extra = {}) const
    {
        Environment base = processEnvironment();
        base["HOME"] = folder.path();
        base["GIT_CONFIG_NOSYSTEM"] = "1";
        for (auto& [name, value] : extra)
            base[name] = value;
        return RepositoryReader(DevToolBox(base), RepositoryReader::locateGit());
    }

    RepositoryStatus status(const std::string& repository, Environment extra = {}) const
    {
        auto state = reader(std::move(extra)).read(repository, Date {});
        EXPECT_NE(state.status(), nullptr) << (state.failure() ? state.failure()->text : "");
        return state.status() ? *state.status() : RepositoryStatus {};
    }

    std::string standing(const std::string& repository) const { return RepositoryStanding::of(status(repository)).text(); }

    // A repository with one commit on main, pushed to a bare remote that tracks it.
    std::string published(const std::string& name)
    {
        shell(folder.path(), "git init -q --bare -b main " + name + ".git && git clone -q " + name + ".git " + name + " 2>/dev/null"
              " && cd " + name + " && git checkout -q -b main && echo one > file && git add file && git commit -qm one && git push -q -u origin main");
        return folder.file(name);
    }

    test::TemporaryFolder folder;
};

TEST_F(RepositoryReaderTest, NewRepositoryHasABranchNoHeadAndOnlyUntrackedFiles)
{
    shell(folder.path(), "git init -q -b trunk fresh && touch fresh/a fresh/b");
    auto fresh = status(folder.file("fresh"));
    EXPECT_EQ(fresh.branch, "trunk");
    EXPECT_EQ(fresh.head, "");
    EXPECT_EQ(fresh.upstream, std::nullopt);
    ASSERT_EQ(fresh.changes.size(), 2u);
    for (const auto& change : fresh.changes)
        EXPECT_EQ(change.kind, Kind::untracked);
    shell(folder.path(), "rm fresh/a fresh/b");
    EXPECT_EQ(standing(folder.file("fresh")), "No commits yet");
}

TEST_F(RepositoryReaderTest, BranchesAgainstTheirUpstream)
{
    auto repository = published("work");
    EXPECT_EQ(standing(repository), "Up to date");
    auto upToDate = status(repository);
    EXPECT_EQ(upToDate.upstream, "origin/main");
    EXPECT_EQ(upToDate.head->size(), 40u);

    // Two commits of our own, three on the remote from another clone.
    shell(folder.path(), "git clone -q work.git other && cd other && for n in 1 2 3; do echo $n > f$n; git add f$n; git commit -qm $n; done && git push -q");
    shell(repository, "git fetch -q");
    EXPECT_EQ(standing(repository), "3 commits to pull");
    shell(repository, "for n in a b; do echo $n > g$n; git add g$n; git commit -qm $n; done");
    auto diverged = status(repository);
    EXPECT_EQ(diverged.ahead, 2);
    EXPECT_EQ(diverged.behind, 3);
    EXPECT_EQ(standing(repository), "2 to push, 3 to pull");

    shell(repository, "git checkout -q --detach HEAD");
    auto detached = status(repository);
    EXPECT_EQ(detached.branch, "");
    EXPECT_EQ(standing(repository), "Not on a branch");

    shell(repository, "git checkout -q main && git reset -q --hard origin/main && git checkout -q -b topic && git push -q -u origin topic"
                      " && git push -q origin --delete topic");
    EXPECT_EQ(standing(repository), "Gone from origin/topic");
    shell(repository, "git checkout -q -b unpushed");
    EXPECT_EQ(standing(repository), "Not pushed yet");
    shell(repository, "git remote remove origin");
    EXPECT_EQ(standing(repository), "All committed");
}

TEST_F(RepositoryReaderTest, RenamesConflictsAndManyChanges)
{
    auto repository = published("changes");
    shell(repository, "git mv file renamed && echo new > added && git add added && echo edit >> renamed");
    auto renamed = status(repository);
    ASSERT_EQ(renamed.changes.size(), 2u);
    EXPECT_EQ(renamed.changes[0].path, "added");
    EXPECT_EQ(renamed.changes[0].kind, Kind::added);
    EXPECT_EQ(renamed.changes[1], (RepositoryChange { "renamed", Kind::renamed, RepositoryChange::Staging::partly, "file" }));

    shell(repository, "git reset -q --hard && git checkout -q -b side && echo side > file && git commit -qam side"
                      " && git checkout -q main && echo main > file && git commit -qam main && ! git merge -q side >/dev/null 2>&1");
    auto merging = status(repository);
    EXPECT_EQ(merging.operation, RepositoryOperation::merging);
    ASSERT_EQ(merging.changes.size(), 1u);
    EXPECT_EQ(merging.changes[0].kind, Kind::conflict);
    EXPECT_EQ(standing(repository), "1 conflict to fix");

    shell(repository, "git merge --abort && for n in $(seq 1 250); do echo $n > many$n; done");
    EXPECT_EQ(status(repository).changes.size(), 200u);
    EXPECT_EQ(standing(repository), "200 changes to commit");
}

TEST_F(RepositoryReaderTest, PatchesBeingAppliedOrRebasedReadAsTheirOperation)
{
    auto repository = published("ops");
    shell(repository, "git checkout -q -b side && echo side > file && git commit -qam side && git format-patch -q -1 -o ../patches"
                      " && git checkout -q main && echo main > file && git commit -qam main");
    shell(repository, "! git am -q ../patches/*.patch >/dev/null 2>&1");
    EXPECT_TRUE(std::filesystem::exists(repository + "/.git/rebase-apply/applying"));
    EXPECT_EQ(status(repository).operation, RepositoryOperation::applying);
    EXPECT_EQ(standing(repository), "Applying patches");

    shell(repository, "git am --abort && git checkout -q side && ! git rebase -q --apply main >/dev/null 2>&1");
    EXPECT_FALSE(std::filesystem::exists(repository + "/.git/rebase-apply/applying"));
    EXPECT_EQ(status(repository).operation, RepositoryOperation::rebasing);
}

TEST_F(RepositoryReaderTest, FoldersThatCannotBeRead)
{
    auto read = [&](const std::string& path) { return reader().read(path, Date {}); };
    EXPECT_EQ(read(folder.file("nothing here")).failure()->problem, RepositoryProblem::missing);
    folder.write("plain", "");
    EXPECT_EQ(read(folder.file("plain")).failure()->problem, RepositoryProblem::missing);
    std::filesystem::create_directory(folder.file("empty"));
    EXPECT_EQ(read(folder.file("empty")).failure()->problem, RepositoryProblem::notRepository);
    shell(folder.path(), "git init -q --bare bare.git");
    EXPECT_EQ(read(folder.file("bare.git")).failure()->text, "It’s a bare repository, with no files to show");

    RepositoryReader noGit(DevToolBox(), DevTool { "git", { folder.file("no-git") } });
    EXPECT_FALSE(noGit.hasGit());
    EXPECT_EQ(noGit.read(folder.path(), Date {}).failure()->problem, RepositoryProblem::noGit);
}

TEST_F(RepositoryReaderTest, FoldersItMayNotReadAreNoAccessAsAnOrdinaryUser)
{
    if (!test::ordinaryUser())
        GTEST_SKIP() << "root reads anything";
    auto repository = published("closed");
    auto problem = [&](const std::string& path) {
        auto state = reader().read(path, Date {});
        return state.failure() ? state.failure()->text : "read";
    };
    ::chmod(repository.c_str(), 0);
    EXPECT_EQ(problem(repository), "No access");
    ::chmod(folder.path().c_str(), 0);
    EXPECT_EQ(problem(repository), "No access") << "inside a folder it may not enter";
    ::chmod(folder.path().c_str(), 0700);
    ::chmod(repository.c_str(), 0755);
    ::chmod((repository + "/.git").c_str(), 0);
    EXPECT_EQ(problem(repository), "No access") << "its git folder closed";
    ::chmod((repository + "/.git").c_str(), 0755);
    EXPECT_EQ(problem(repository), "read");
}

TEST_F(RepositoryReaderTest, AFolderOwnedByAnotherUserIsNotTrusted)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "making a folder another user owns needs root";
    shell(folder.path(), "git init -q theirs && chown -R 65534 theirs");
    auto state = reader().read(folder.file("theirs"), Date {});
    ASSERT_NE(state.failure(), nullptr);
    EXPECT_EQ(state.failure()->text, "Git doesn’t trust this folder, as another user owns it. Add it with git config --global --add safe.directory");
}

TEST_F(RepositoryReaderTest, InheritedSettingsCannotRedirectOrRunAnything)
{
    auto repository = published("mine");
    shell(folder.path(), "git init -q elsewhere && touch elsewhere/one elsewhere/two elsewhere/three");
    auto inherited = status(repository, { { "GIT_DIR", folder.file("elsewhere/.git") }, { "GIT_WORK_TREE", folder.file("elsewhere") } });
    EXPECT_EQ(inherited.branch, "main");
    EXPECT_TRUE(inherited.changes.empty());

    // A hook named by the repository's own configuration, turned on again through the inherited
    // configuration variables too.
    folder.write("hook", "#!/bin/sh\ntouch \"" + folder.file("hook-ran") + "\"\n", 0755);
    shell(repository, "git config core.fsmonitor " + folder.file("hook"));
    shell(repository, "git status --porcelain >/dev/null");
    ASSERT_TRUE(std::filesystem::exists(folder.file("hook-ran"))) << "git itself should run the hook";
    std::filesystem::remove(folder.file("hook-ran"));

    (void)status(repository, { { "GIT_CONFIG_PARAMETERS", "'core.fsmonitor'='" + folder.file("hook") + "'" },
                               { "GIT_CONFIG_COUNT", "2" }, { "GIT_CONFIG_KEY_1", "core.fsmonitor" },
                               { "GIT_CONFIG_VALUE_1", folder.file("hook") } });
    EXPECT_FALSE(std::filesystem::exists(folder.file("hook-ran")));
}

// Each repository's own configuration names a program (PROGRAM below) that leaves a marker file
// when it runs; the last step makes git consider running it. Where plain git status runs it, the
// test shows that first, so each of those fails on a reader without the switch.
TEST_F(RepositoryReaderTest, NoProgramTheRepositoryNamesRunsDuringARead)
{
    struct Vector {
        std::string name;
        std::string setup;
        bool plainStatusRunsIt;
    };
    const std::string touched = " && touch -d 2020-01-01 file";
    const std::vector<Vector> vectors {
        { "clean-filter", "echo '* filter=evil' > .gitattributes && git config filter.evil.clean PROGRAM" + touched, true },
        { "process-filter", "echo '* filter=evil' > .gitattributes && git config filter.evil.process PROGRAM"
                            " && git config filter.evil.required true" + touched, true },
        { "fsmonitor", "git config core.fsmonitor PROGRAM", true },
        { "include", "printf '[filter \"far\"]\\n\\tclean = PROGRAM\\n' > ../far.conf && git config include.path ../../far.conf"
                     " && echo '* filter=far' > .gitattributes" + touched, true },
        { "include-if", "printf '[core]\\n\\tfsmonitor = PROGRAM\\n' > ../if.conf && git config includeIf.onbranch:main.path ../../if.conf", true },
        { "submodule", "git init -q inner && cd inner && echo x > g && git add g && git commit -qm g"
                       " && echo '* filter=evil' > .gitattributes && git config filter.evil.clean PROGRAM && cd .."
                       " && git -c protocol.file.allow=always submodule add -q ./inner inner && git commit -qm inner"
                       " && touch -d 2020-01-01 inner/g", true },
        { "hooks", "mkdir hooks && for hook in post-index-change reference-transaction post-checkout; do cp PROGRAM hooks/$hook; done"
                   " && git config core.hooksPath \"$PWD/hooks\"" + touched, false },
        { "diff-drivers", "echo '* diff=evil' > .gitattributes && git config diff.evil.textconv PROGRAM"
                          " && git config diff.evil.command PROGRAM && git config diff.external PROGRAM && echo two >> file", false },
        { "prompts", "git config credential.helper '!PROGRAM' && git config core.editor PROGRAM && git config core.pager PROGRAM"
                     " && git config core.askPass PROGRAM && git config core.sshCommand PROGRAM && echo two >> file", false },
    };
    for (const Vector& vector : vectors) {
        SCOPED_TRACE(vector.name);
        auto repository = published(vector.name);
        auto marker = folder.file(vector.name + "-ran");
        folder.write(vector.name + "-program", "#!/bin/sh\ntouch '" + marker + "'\ncat\n", 0755);
        std::string setup = vector.setup;
        for (auto at = setup.find("PROGRAM"); at != std::string::npos; at = setup.find("PROGRAM", at))
            setup.replace(at, 7, folder.file(vector.name + "-program"));
        shell(repository, setup);
        if (vector.plainStatusRunsIt) {
            shell(repository, "GIT_OPTIONAL_LOCKS=0 git status --porcelain=v2 >/dev/null 2>&1 || true");
            ASSERT_TRUE(std::filesystem::exists(marker)) << "git itself should run it";
            std::filesystem::remove(marker);
        }
        auto state = reader().read(repository, Date {});
        EXPECT_NE(state.status(), nullptr) << (state.failure() ? state.failure()->text : "");
        EXPECT_FALSE(std::filesystem::exists(marker));
    }
}

// A partial clone fetches what it lacks from its remote, here through the repository's own ssh
// command, when git status looks for renames among staged files.
TEST_F(RepositoryReaderTest, APartialCloneReadsWithoutFetching)
{
    auto marker = folder.file("ssh-ran");
    folder.write("ssh", "#!/bin/sh\ntouch '" + marker + "'\nexit 1\n", 0755);
    shell(folder.path(), "git init -q -b main source && cd source && seq 1 40 > a && git add a && git commit -qm a"
                         " && git config uploadpack.allowfilter true && cd .."
                         " && git clone -q --no-checkout --filter=blob:none \"file://$PWD/source\" partial && cd partial"
                         " && git read-tree HEAD && git rm -q --cached a && seq 1 39 > b && git add b"
                         " && git remote set-url origin ssh://example.invalid/x && git config core.sshCommand " + folder.file("ssh"));
    shell(folder.file("partial"), "GIT_OPTIONAL_LOCKS=0 git status --porcelain=v2 >/dev/null 2>&1 || true");
    ASSERT_TRUE(std::filesystem::exists(marker)) << "git itself should fetch";
    std::filesystem::remove(marker);

    auto partial = status(folder.file("partial"));
    EXPECT_FALSE(std::filesystem::exists(marker));
    ASSERT_EQ(partial.changes.size(), 2u);
    EXPECT_EQ(partial.changes[0].kind, Kind::deleted);
    EXPECT_EQ(partial.changes[1].kind, Kind::added);
}

TEST_F(RepositoryReaderTest, TheRepositorysProgramsAreListedWithoutTheUsersOwn)
{
    using namespace std::string_literals;
    auto programs = RepositoryReader::programsFromListing("global\0filter.lfs.clean\0local\0filter.a.b.clean\0"
                                                          "worktree\0filter.a.b.process\0local\0remote.origin.promisor\0"s);
    EXPECT_TRUE(programs.partialClone);
    EXPECT_FALSE(programs.tooMany);
    std::map<std::string, std::string> settings;
    for (int index = 0; index < std::stoi(programs.overrides.at("GIT_CONFIG_COUNT")); ++index)
        settings[programs.overrides.at("GIT_CONFIG_KEY_" + std::to_string(index))] = programs.overrides.at("GIT_CONFIG_VALUE_" + std::to_string(index));
    EXPECT_EQ(settings.count("filter.lfs.clean"), 0u);
    EXPECT_EQ(settings.at("filter.a.b.clean"), "");
    EXPECT_EQ(settings.at("filter.a.b.process"), "");
    EXPECT_EQ(settings.at("filter.a.b.required"), "false");
    EXPECT_EQ(settings.at("core.fsmonitor"), "false");

    std::string many;
    for (size_t index = 0; index <= RepositoryReader::maximumPrograms; ++index)
        many += "local\0diff.d"s + std::to_string(index) + ".textconv\0"s;
    EXPECT_TRUE(RepositoryReader::programsFromListing(many).tooMany);
}

TEST_F(RepositoryReaderTest, MonitorReadsChosenFoldersWhileWantedAndDropsStaleResults)
{
    auto repository = published("watched");
    ManualRuntime runtime;
    KestruneActivity activity;
    RepositoriesMonitor monitor(runtime, activity, std::make_shared<const RepositoryReader>(reader()));
    std::vector<std::string> changed;
    monitor.onChange = [&](const std::string& folder) { changed.push_back(folder); };
    monitor.setWanted({ repository, folder.file("missing") });
    EXPECT_EQ(monitor.hasGit(), std::nullopt);

    monitor.poller().setWanted("tile", true);
    ASSERT_TRUE(runtime.runUntil([&] { return changed.size() == 2; }, Seconds(60)));
    EXPECT_EQ(monitor.hasGit(), true);
    EXPECT_NE(monitor.states().at(repository).status(), nullptr);
    EXPECT_EQ(monitor.states().at(folder.file("missing")).failure()->problem, RepositoryProblem::missing);
    EXPECT_EQ(monitor.states().at(repository).readAt, runtime.now());

    // Every 30 seconds while wanted.
    runtime.advance(RepositoriesMonitor::interval);
    ASSERT_TRUE(runtime.runUntil([&] { return changed.size() == 4; }, Seconds(60)));

    // A folder dropped while its read is under way never comes back.
    monitor.read(repository);
    monitor.setWanted({ folder.file("missing") });
    monitor.read(folder.file("missing"));
    ASSERT_TRUE(runtime.runUntil([&] { return changed.size() == 5; }, Seconds(60)));
    EXPECT_EQ(changed.back(), folder.file("missing"));
    EXPECT_EQ(monitor.states().count(repository), 0u);
}

} // namespace
} // namespace kestrune
