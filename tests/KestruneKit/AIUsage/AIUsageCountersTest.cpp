#include <fstream>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sqlite3.h>

#include "KestruneKit/AIUsage/AIUsageClaudeCounter.h"
#include "KestruneKit/AIUsage/AIUsageCodexLog.h"
#include "KestruneKit/AIUsage/AIUsageDatabase.h"
#include "KestruneKit/AIUsage/AIUsageGeminiCounter.h"
#include "KestruneKit/Core/AtomicFile.h"
#include "tests/KestruneKit/AIUsage/AIUsageTestSupport.h"

namespace kestrune {
namespace {

using test::fixtureWindows;

std::string claudeLine(const std::string& id, const std::string& time, int input, int output)
{
    return R"({"type":"assistant","message":{"id":")" + id + R"(","usage":{"input_tokens":)" + std::to_string(input)
        + R"(,"output_tokens":)" + std::to_string(output) + R"(}},"requestId":"r-)" + id + R"(","timestamp":")" + time + "\"}\n";
}

void append(const std::string& path, const std::string& text)
{
    std::ofstream(path, std::ios::app | std::ios::binary) << text;
}

class AIUsageCountersTest : public ::testing::Test {
protected:
    void SetUp() override { test::copyFixtureHome(home); }
    test::TemporaryFolder home;
    AIUsageWindows windows = fixtureWindows();
};

TEST_F(AIUsageCountersTest, ClaudeCountsEachReplyOnceAtItsFinalFigure)
{
    AIUsageClaudeCounter counter(home.path());
    auto use = counter.count(windows);
    // Three copies of one reply (1,200), a streamed reply's final line (100), a subagent's own line
    // (400) and yesterday's reply (1,000). Not counted: a user line quoting usage, a progress line
    // embedding the subagent's reply, an error reply, last month's reply and the tool results.
    EXPECT_EQ(use.week, 2700);
    EXPECT_EQ(use.window, 1700);
    EXPECT_EQ(use.windowStart, dateFromMillis(*parseISODate("2026-08-19T10:00:00Z")));
    EXPECT_EQ(use.days, (std::vector<int64_t> { 0, 0, 1000, 1700, 0, 0, 0 }));
    EXPECT_EQ(use.lastUsed, dateFromMillis(*parseISODate("2026-08-19T11:00:00Z")));
    EXPECT_EQ(counter.filesOpened(), 2u) << "tool-results are never read";

    // Nothing changed: nothing is opened, and nothing counts twice.
    EXPECT_EQ(counter.count(windows).week, 2700);
    EXPECT_EQ(counter.filesOpened(), 0u);
    counter.reset();
    EXPECT_EQ(counter.count(windows).week, 2700);
}

TEST_F(AIUsageCountersTest, ClaudeReadsOnlyCompleteLinesAndRereadsARewrittenFile)
{
    std::string path = home.path() + "/.claude/projects/-Users-a-p/session-2.jsonl";
    std::string line = claudeLine("m1", "2026-08-19T11:30:00.000Z", 40, 2);
    append(path, line.substr(0, 50));
    AIUsageClaudeCounter counter(home.path());
    EXPECT_EQ(counter.count(windows).week, 2700) << "a half-written line waits";
    append(path, line.substr(50));
    EXPECT_EQ(counter.count(windows).week, 2742);
    append(path, claudeLine("m2", "2026-08-19T11:31:00.000Z", 8, 0));
    EXPECT_EQ(counter.count(windows).week, 2750);

    // Truncated and rewritten with a new reply: read again from the start, old replies kept once.
    std::ofstream(path, std::ios::trunc) << claudeLine("m3", "2026-08-19T11:32:00.000Z", 1, 1);
    EXPECT_EQ(counter.count(windows).week, 2752);

    // A file last written before the week began is not opened at all.
    timespec old[2] = { { 1700000000, 0 }, { 1700000000, 0 } };
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), old, 0), 0);
    counter.reset();
    EXPECT_EQ(counter.count(windows).week, 2700);
    EXPECT_EQ(counter.filesOpened(), 2u);
}

TEST_F(AIUsageCountersTest, LogsItMayNotReadAreSkippedUntilItCanAsAnOrdinaryUser)
{
    if (!test::ordinaryUser())
        GTEST_SKIP() << "root reads anything";
    AIUsageClaudeCounter counter(home.path());
    auto before = counter.count(windows).week;
    std::string path = home.path() + "/.claude/projects/-Users-a-p/closed.jsonl";
    append(path, claudeLine("c1", "2026-08-19T11:50:00.000Z", 70, 0));
    ::chmod(path.c_str(), 0);
    EXPECT_EQ(counter.count(windows).week, before);
    ::chmod(path.c_str(), 0644);
    EXPECT_EQ(counter.count(windows).week, before + 70);

    std::string projects = home.path() + "/.claude/projects";
    ::chmod(projects.c_str(), 0);
    AIUsageClaudeCounter closed(home.path());
    EXPECT_EQ(closed.count(windows).week, 0);
    ::chmod(projects.c_str(), 0755);
    EXPECT_EQ(closed.count(windows).week, before + 70);
}

TEST_F(AIUsageCountersTest, ClaudeStreamsAHugeFileInBoundedMemory)
{
    // 2 GiB, mostly a hole: one reply, a 2 GiB line of nothing, another reply.
    std::string path = home.path() + "/.claude/projects/-Users-a-p/huge.jsonl";
    append(path, claudeLine("h1", "2026-08-19T11:40:00.000Z", 5, 5) + "{\"type\":\"user\",\"text\":\"");
    ASSERT_EQ(::truncate(path.c_str(), int64_t(2) << 30), 0);
    append(path, "\"}\n" + claudeLine("h2", "2026-08-19T11:41:00.000Z", 20, 0));

    rusage before {};
    ::getrusage(RUSAGE_SELF, &before);
    AIUsageClaudeCounter counter(home.path());
    EXPECT_EQ(counter.count(windows).week, 2730);
    rusage after {};
    ::getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 64 * 1024) << "peak resident growth in KiB";
}

TEST_F(AIUsageCountersTest, CodexCountsEachTurnOnceAndKeepsTheNewestLimits)
{
    AIUsageCodexLog log(home.path());
    auto use = log.count(windows);
    // 1,000 then 500; the repeated event and the subagent's replay of it add nothing.
    EXPECT_EQ(use.week, 1500);
    ASSERT_TRUE(log.latestLimits());
    const auto& limits = *log.latestLimits();
    EXPECT_EQ(limits.plan, "Plus");
    ASSERT_EQ(limits.limits.size(), 2u);
    EXPECT_EQ(limits.limits[0], (AIUsageLimit { 12.5, 300, dateFromMillis(1787154000000), std::nullopt }));
    // Older logs say the reset relative to the line's own time.
    EXPECT_EQ(limits.limits[1].resetsAt, dateFromMillis(*parseISODate("2026-08-20T11:00:00Z")));
    EXPECT_EQ(limits.limits[1].label(), "This week");
    ASSERT_TRUE(limits.credits);
    EXPECT_EQ(limits.credits->text(), "12.50");
}

TEST(AIUsageCodexLimits, DecodesTheAppServerSpellingAndPlanNames)
{
    auto answer = nlohmann::json::parse(
        R"({"primary":{"usedPercent":25,"windowDurationMins":300,"resetsAt":1730947200},"secondary":null,"planType":"prolite",
            "credits":{"hasCredits":true,"unlimited":true,"balance":null}})");
    auto limits = decodeCodexRateLimits(answer, test::fixtureNow());
    ASSERT_TRUE(limits);
    ASSERT_EQ(limits->limits.size(), 1u);
    EXPECT_EQ(limits->limits[0].used, 25);
    EXPECT_EQ(limits->limits[0].windowMinutes, 300);
    EXPECT_EQ(limits->plan, "Pro Lite");
    EXPECT_EQ(limits->credits->text(), "Unlimited");
    EXPECT_FALSE(decodeCodexRateLimits(nlohmann::json::parse(R"({"primary":null})"), test::fixtureNow()));
    EXPECT_EQ(codexPlanName("unknown"), std::nullopt);
    EXPECT_EQ(codexPlanName("self_serve_business_usage_based"), "Business");
    EXPECT_EQ(codexPlanName("edu_plus"), "Edu Plus");
}

TEST_F(AIUsageCountersTest, GeminiFollowsRewritesSetsAndRewinds)
{
    AIUsageGeminiCounter counter(home.path());
    // The last line of g1 (30), g3 (40) after the rewind dropped g2, the $set list (7) and the
    // older whole-file chat (100); logs outside chats are not read.
    EXPECT_EQ(counter.count(windows).week, 177);
    append(home.path() + "/.gemini/tmp/proj1/chats/session-2026-08-19T10-00-abcdefgh.jsonl", R"({"$rewindTo":"g1"})" "\n");
    EXPECT_EQ(counter.count(windows).week, 107);
}

TEST_F(AIUsageCountersTest, DroidCountsEachSessionsTotal)
{
    AIUsageDroidCounter counter(home.path());
    EXPECT_EQ(counter.count(windows).week, 1180);
}

class AIUsageDatabaseTest : public ::testing::Test {
protected:
    void exec(sqlite3* db, const std::string& sql) { ASSERT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db); }
    sqlite3* create(const std::string& path)
    {
        std::filesystem::create_directories(parentFolder(path));
        sqlite3* db = nullptr;
        EXPECT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
        exec(db, "PRAGMA journal_mode=WAL");
        return db;
    }
    test::TemporaryFolder home;
    AIUsageWindows windows = fixtureWindows();
};

TEST_F(AIUsageDatabaseTest, OpenCodeCountsAssistantMessagesWhileItsOwnerWrites)
{
    sqlite3* db = create(home.path() + "/.local/share/opencode/opencode.db");
    exec(db, "CREATE TABLE session(id TEXT PRIMARY KEY, time_created INTEGER, time_updated INTEGER);"
             "CREATE TABLE message(id TEXT PRIMARY KEY, session_id TEXT, time_created INTEGER, time_updated INTEGER, data TEXT);"
             "INSERT INTO session VALUES('s1', 1787130000000, 1787130000000), ('s0', 1700000000000, 1700000000000);"
             "INSERT INTO message VALUES('m1','s1',1787130000000,0,'{\"role\":\"assistant\",\"tokens\":{\"input\":10,\"output\":5,\"reasoning\":1,\"cache\":{\"read\":100,\"write\":4}}}');"
             "INSERT INTO message VALUES('m2','s1',1787130000000,0,'{\"role\":\"user\",\"tokens\":{\"input\":999}}');"
             "INSERT INTO message VALUES('m3','s0',1700000000000,0,'{\"role\":\"assistant\",\"tokens\":{\"input\":999}}');");
    AIUsageOpenCodeCounter counter(home.path());
    EXPECT_EQ(counter.count(windows).week, 120);

    // The owner keeps a write transaction open: what it has committed still counts.
    exec(db, "INSERT INTO message VALUES('m4','s1',1787131000000,0,'{\"role\":\"assistant\",\"tokens\":{\"output\":30}}')");
    exec(db, "BEGIN IMMEDIATE; INSERT INTO message VALUES('m5','s1',1787131000000,0,'{\"role\":\"assistant\",\"tokens\":{\"output\":5000}}')");
    EXPECT_EQ(counter.count(windows).week, 150);
    exec(db, "COMMIT");
    EXPECT_EQ(counter.count(windows).week, 5150);
    sqlite3_close(db);
}

TEST_F(AIUsageDatabaseTest, CopilotReadsPastTheLastIdInBothDateForms)
{
    AIUsageCopilotCounter counter(home.path());
    std::string path = home.path() + "/.copilot/session-store.db";
    sqlite3* db = create(path);
    EXPECT_EQ(counter.count(windows).week, 0) << "no usage table yet";
    exec(db, "CREATE TABLE assistant_usage_events(id INTEGER PRIMARY KEY AUTOINCREMENT, session_id TEXT, model TEXT, input_tokens INTEGER,"
             " output_tokens INTEGER, cache_read_tokens INTEGER, created_at TEXT);"
             "INSERT INTO assistant_usage_events(input_tokens, output_tokens, created_at) VALUES"
             " (10, 5, '2026-08-19T10:00:00.000Z'), (20, NULL, '2026-08-19 10:05:00'), (999, 1, '2026-07-01 10:00:00');");
    EXPECT_EQ(counter.count(windows).week, 35);
    exec(db, "INSERT INTO assistant_usage_events(input_tokens, output_tokens, created_at) VALUES (1, 1, '2026-08-19 11:00:00')");
    EXPECT_EQ(counter.count(windows).week, 37);
    sqlite3_close(db);
    EXPECT_FALSE(AIUsageDatabase::open(home.path() + "/.copilot/missing.db"));
}

} // namespace
} // namespace kestrune
