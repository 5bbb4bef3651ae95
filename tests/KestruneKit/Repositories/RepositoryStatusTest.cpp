#include <gtest/gtest.h>

#include "KestruneKit/Repositories/RepositoryReader.h"
#include "KestruneKit/Repositories/RepositoryStanding.h"
#include "KestruneKit/Repositories/RepositoryStatus.h"

namespace kestrune {
namespace {

using Kind = RepositoryChangeKind;
using Staging = RepositoryChange::Staging;
using namespace std::string_literals;

std::string ordinary(std::string_view xy, std::string_view path)
{
    return "1 "s + std::string(xy) + " N... 100644 100644 100644 1111111 2222222 " + std::string(path) + '\0';
}

TEST(RepositoryStatusParser, ReadsHeadersAndEveryKindOfRecord)
{
    std::string output = "# branch.oid 0123abcd\0# branch.head main\0# branch.upstream origin/main\0# branch.ab +2 -3\0"s
        + ordinary("M.", "src/file with spaces.cpp")
        + "2 R. N... 100644 100644 100644 1111111 1111111 R100 new name.txt\0old name.txt\0"s
        + "u UU N... 100644 100644 100644 100644 1111111 2222222 3333333 both.txt\0"s
        + "? notes.md\0! build/ignored.o\0? last"s; // the last record has no NUL of its own
    auto status = parseRepositoryStatus(output);
    EXPECT_EQ(status.head, "0123abcd");
    EXPECT_EQ(status.branch, "main");
    EXPECT_EQ(status.upstream, "origin/main");
    EXPECT_EQ(status.ahead, 2);
    EXPECT_EQ(status.behind, 3);
    EXPECT_FALSE(status.upstreamGone);
    std::vector<RepositoryChange> expected {
        { "src/file with spaces.cpp", Kind::modified, Staging::fully, std::nullopt },
        { "new name.txt", Kind::renamed, Staging::fully, "old name.txt" },
        { "both.txt", Kind::conflict, Staging::none, std::nullopt },
        { "notes.md", Kind::untracked, Staging::none, std::nullopt },
        { "last", Kind::untracked, Staging::none, std::nullopt },
    };
    EXPECT_EQ(status.changes, expected);
}

TEST(RepositoryStatusParser, SpecialHeadValuesAndMalformedRecordsDoNotDerail)
{
    auto fresh = parseRepositoryStatus("# branch.oid (initial)\0# branch.head (detached)\0"s);
    EXPECT_EQ(fresh.head, "");
    EXPECT_EQ(fresh.branch, "");

    auto odd = parseRepositoryStatus("#\0# branch.ab\0# branch.ab +x -\0# branch.upstream up\0# unknown.key v\0"s
                                     "1 M.\0" "2 R. short\0u UU\0?\0zebra\0\0\0? kept\0"s);
    EXPECT_EQ(odd.ahead, 0);
    EXPECT_EQ(odd.behind, 0);
    EXPECT_EQ(odd.upstream, "up");
    ASSERT_EQ(odd.changes.size(), 1u);
    EXPECT_EQ(odd.changes[0].path, "kept");

    auto gone = parseRepositoryStatus("# branch.oid abc\0# branch.head main\0# branch.upstream origin/old\0"s);
    EXPECT_TRUE(gone.upstreamGone);
}

TEST(RepositoryStatusParser, TheTwoColumnsGiveKindAndStaging)
{
    struct Row { std::string xy; bool rename; Kind kind; Staging staging; };
    std::vector<Row> rows {
        { ".M", false, Kind::modified, Staging::none },  { "M.", false, Kind::modified, Staging::fully },
        { "MM", false, Kind::modified, Staging::partly }, { ".T", false, Kind::modified, Staging::none },
        { "A.", false, Kind::added, Staging::fully },     { "AM", false, Kind::added, Staging::partly },
        { "AD", false, Kind::added, Staging::partly },    { ".D", false, Kind::deleted, Staging::none },
        { "D.", false, Kind::deleted, Staging::fully },   { "MD", false, Kind::deleted, Staging::partly },
        { "R.", true, Kind::renamed, Staging::fully },    { "RM", true, Kind::renamed, Staging::partly },
        { "C.", true, Kind::added, Staging::fully },
    };
    for (const auto& row : rows) {
        std::string record = row.rename ? "2 " + row.xy + " N... 100644 100644 100644 1 1 R90 to\0from\0"s : ordinary(row.xy, "to");
        auto status = parseRepositoryStatus(record);
        ASSERT_EQ(status.changes.size(), 1u) << row.xy;
        EXPECT_EQ(status.changes[0].kind, row.kind) << row.xy;
        EXPECT_EQ(status.changes[0].staging, row.staging) << row.xy;
    }
}

TEST(RepositoryStatusParser, KeepsTwoHundredChangesAndStepsOverRenamesPastTheCap)
{
    std::string output;
    for (int index = 0; index < 199; ++index)
        output += "? file" + std::to_string(index) + '\0';
    // The 200th change is a rename whose original path looks like an entry of its own.
    output += "2 R. N... 100644 100644 100644 1 1 R100 moved\0? ghost\0"s;
    output += "2 R. N... 100644 100644 100644 1 1 R100 moved again\0? ghost two\0? extra\0"s;
    auto status = parseRepositoryStatus(output);
    ASSERT_EQ(status.changes.size(), RepositoryStatus::changeLimit);
    EXPECT_EQ(status.changes.back().path, "moved");
    EXPECT_EQ(status.changes.back().original, "? ghost");
}

// English-style grouping regardless of what this machine has installed.
struct ThousandsWithCommas : std::numpunct<char> {
    char do_thousands_sep() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
};

TEST(RepositoryStanding, FirstMatchingCaseGivesTheText)
{
    std::locale english(std::locale::classic(), new ThousandsWithCommas);
    auto text = [&](RepositoryStatus status) { return RepositoryStanding::of(status).text(english); };
    RepositoryStatus clean { "main", "abc", "origin/main", 0, 0, {}, std::nullopt, false, { "origin" } };
    RepositoryChange conflict { "a", Kind::conflict, Staging::none, std::nullopt };
    RepositoryChange modified { "b", Kind::modified, Staging::none, std::nullopt };

    auto with = [&](auto change) { auto status = clean; change(status); return text(status); };
    EXPECT_EQ(text(clean), "Up to date");
    EXPECT_EQ(with([&](auto& s) { s.operation = RepositoryOperation::cherryPicking; s.ahead = 4; }), "Cherry-picking");
    EXPECT_EQ(with([&](auto& s) { s.operation = RepositoryOperation::applying; }), "Applying patches");
    EXPECT_EQ(with([&](auto& s) { s.operation = RepositoryOperation::merging; s.changes = { conflict, modified }; }), "1 conflict to fix");
    EXPECT_EQ(with([&](auto& s) { s.changes = { conflict, conflict, modified }; }), "2 conflicts to fix");
    EXPECT_EQ(with([&](auto& s) { s.changes = { modified }; s.ahead = 3; }), "1 change to commit");
    EXPECT_EQ(with([&](auto& s) { s.ahead = 1234; s.behind = 5678; }), "1,234 to push, 5,678 to pull");
    EXPECT_EQ(with([&](auto& s) { s.behind = 1; }), "1 commit to pull");
    EXPECT_EQ(with([&](auto& s) { s.ahead = 12345; }), "12,345 commits to push");
    EXPECT_EQ(with([&](auto& s) { s.branch = ""; s.upstream.reset(); }), "Not on a branch");
    EXPECT_EQ(with([&](auto& s) { s.upstreamGone = true; }), "Gone from origin/main");
    EXPECT_EQ(with([&](auto& s) { s.upstream.reset(); }), "Not pushed yet");
    EXPECT_EQ(with([&](auto& s) { s.upstream.reset(); s.head = ""; }), "No commits yet");
    EXPECT_EQ(with([&](auto& s) { s.upstream.reset(); s.remotes.clear(); }), "All committed");
}

TEST(RepositoryReader, GitsErrorLinesGiveTheProblem)
{
    struct Row { std::string errorOutput; RepositoryProblem problem; std::string text; };
    std::vector<Row> rows {
        { "fatal: not a git repository (or any of the parent directories): .git\n", RepositoryProblem::notRepository, "Not a repository" },
        { "warning: x\nfatal: cannot chdir to 'x': Permission denied\n", RepositoryProblem::noAccess, "No access" },
        { "error: open(\"x\"): Operation not permitted\n", RepositoryProblem::noAccess, "No access" },
        { "fatal: detected dubious ownership in repository at '/srv/x'\n", RepositoryProblem::failed,
          "Git doesn’t trust this folder, as another user owns it. Add it with git config --global --add safe.directory" },
        { "fatal: this operation must be run in a work tree\n", RepositoryProblem::failed, "It’s a bare repository, with no files to show" },
        // Only fatal: and error: lines count.
        { "hint: not a git repository\nfatal: index file corrupt\n", RepositoryProblem::failed, "Git couldn’t read it" },
        { "", RepositoryProblem::failed, "Git couldn’t read it" },
    };
    for (const auto& row : rows) {
        auto failure = RepositoryReader::failureFromErrorOutput(row.errorOutput);
        EXPECT_EQ(failure.problem, row.problem) << row.errorOutput;
        EXPECT_EQ(failure.text, row.text) << row.errorOutput;
    }
}

} // namespace
} // namespace kestrune
