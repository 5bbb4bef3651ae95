#include <fstream>
#include <future>

#include <gtest/gtest.h>

#include "KestruneKit/AIUsage/AIUsageEngine.h"
#include "KestruneKit/Core/ManualRuntime.h"
#include "tests/KestruneKit/AIUsage/AIUsageTestSupport.h"

namespace kestrune {
namespace {

using Tokens = AIUsageEngine::Demand::Tokens;

class AIUsageEngineTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        test::fixtureWindows();
        test::copyFixtureHome(home);
    }
    AIUsageEngine::Configuration handDriven()
    {
        AIUsageEngine::Configuration configuration;
        configuration.watches = false;
        configuration.asksCodex = AIUsageAsksCodex::never;
        return configuration;
    }
    bool idle(const AIUsageEngine& engine)
    {
        for (auto tool : allAIUsageTools)
            if (engine.slot(tool).reading)
                return false;
        return !engine.isReadingLimits() && !engine.isAskingCodex();
    }
    void settle(AIUsageEngine& engine)
    {
        ASSERT_TRUE(runtime.runUntil([&] { return idle(engine); }));
    }

    test::TemporaryFolder home;
    ManualRuntime runtime { test::fixtureNow() };
    std::string appFolder = home.path() + "/support";
};

TEST_F(AIUsageEngineTest, IsIdleUntilDemandedThenPublishesEveryToolPresent)
{
    AIUsageEngine engine(runtime, home.path(), appFolder, handDriven());
    int changes = 0;
    engine.onChange = [&] { ++changes; };
    EXPECT_TRUE(engine.description().starts_with("engine idle"));
    runtime.runPosted();
    EXPECT_EQ(changes, 0);

    auto demand = engine.demand(Tokens::cache);
    EXPECT_TRUE(engine.snapshot().counting);
    settle(engine);
    const auto& snapshot = engine.snapshot();
    EXPECT_FALSE(snapshot.counting);
    EXPECT_TRUE(snapshot.counted);
    std::vector<AIUsageTool> tools;
    for (const auto& report : snapshot.reports)
        tools.push_back(report.tool);
    EXPECT_EQ(tools, (std::vector<AIUsageTool> { AIUsageTool::claude, AIUsageTool::codex, AIUsageTool::gemini, AIUsageTool::droid }));
    const auto* claude = snapshot.report(AIUsageTool::claude);
    EXPECT_EQ(claude->tokens.week, 2700);
    EXPECT_EQ(claude->plan, "Max 5×");
    EXPECT_EQ(claude->source, AIUsageLimitSource::cache);
    EXPECT_EQ(snapshot.report(AIUsageTool::codex)->source, AIUsageLimitSource::log);
    EXPECT_TRUE(snapshot.claudeStatusLine.looked);
    EXPECT_GT(changes, 0);
    EXPECT_TRUE(engine.description().starts_with("engine running awake false watching config false counting false tokens cache"));
}

TEST_F(AIUsageEngineTest, SettlesChangesCountsAgainAndDropsLateResults)
{
    AIUsageEngine engine(runtime, home.path(), appFolder, handDriven());
    auto demand = engine.demand(Tokens::live);
    settle(engine);
    const auto& slot = engine.slot(AIUsageTool::claude);
    std::string log = home.path() + "/.claude/projects/-Users-a-p/session-1.jsonl";
    auto reply = [&](const char* id, int tokens) {
        std::ofstream(log, std::ios::app) << R"({"type":"assistant","message":{"id":")" << id << R"(","usage":{"input_tokens":)" << tokens
                                          << R"(}},"requestId":"q","timestamp":"2026-08-19T11:59:00Z"})" << "\n";
    };
    // Work put on the slot's own queue ahead of a count holds the count back until released.
    auto hold = [&] {
        auto gate = std::make_shared<std::promise<void>>();
        slot.queue->async([opened = gate->get_future().share()] { opened.wait(); });
        return gate;
    };

    reply("n1", 300);
    auto first = hold();
    engine.noteChange(AIUsageTool::claude);
    EXPECT_TRUE(slot.changed);
    runtime.advance(Seconds(3.9));
    EXPECT_TRUE(slot.work.isArmed()) << "the settle delay is four seconds";
    EXPECT_FALSE(slot.reading);
    engine.noteChange(AIUsageTool::claude);
    runtime.advance(Seconds(0.2));
    EXPECT_FALSE(slot.changed);
    ASSERT_TRUE(slot.reading);
    engine.noteChange(AIUsageTool::claude);
    EXPECT_TRUE(slot.again) << "a change during the count asks for one more";
    auto second = hold();
    first->set_value();
    ASSERT_TRUE(runtime.runUntil([&] { return !slot.again; }));
    EXPECT_TRUE(slot.reading) << "the count once more follows at once";
    second->set_value();
    settle(engine);
    EXPECT_EQ(engine.snapshot().report(AIUsageTool::claude)->tokens.week, 3000);

    // The last demand goes while a count runs: its result belongs to an older generation.
    reply("n2", 400);
    auto third = hold();
    engine.noteChange(AIUsageTool::claude);
    runtime.advance(Seconds(4.1));
    ASSERT_TRUE(slot.reading);
    auto generation = engine.generation();
    demand.release();
    EXPECT_EQ(engine.generation(), generation + 1);
    EXPECT_FALSE(slot.reading);
    third->set_value();
    EXPECT_FALSE(runtime.runUntil([] { return false; }, Seconds(0.5)));
    EXPECT_EQ(slot.use->week, 3000);
    EXPECT_TRUE(runtime.timers().empty());
    EXPECT_TRUE(engine.description().starts_with("engine idle"));
}

TEST_F(AIUsageEngineTest, WatchesTheFilesForReal)
{
    auto configuration = handDriven();
    configuration.watches = true;
    AIUsageEngine engine(runtime, home.path(), appFolder, configuration);
    auto demand = engine.demand(Tokens::live);
    settle(engine);
    // A new project folder is watched as soon as it appears, and a file written into it at once
    // is not missed.
    std::filesystem::create_directories(home.path() + "/.claude/projects/-new");
    std::ofstream(home.path() + "/.claude/projects/-new/s.jsonl")
        << R"({"type":"assistant","message":{"id":"w1","usage":{"output_tokens":5}},"requestId":"q","timestamp":"2026-08-19T11:59:00Z"})"
        << "\n";
    ASSERT_TRUE(runtime.runUntil([&] { return engine.slot(AIUsageTool::claude).changed; }));
    runtime.advance(Seconds(5));
    settle(engine);
    EXPECT_EQ(engine.snapshot().report(AIUsageTool::claude)->tokens.week, 2705);

    // The status-line limits file changing is a limits change.
    std::filesystem::create_directories(appFolder);
    home.write("support/claude-limits.json", R"({"five_hour":{"used_percentage":50,"resets_at":1787150000}})");
    ASSERT_TRUE(runtime.runUntil([&] {
        runtime.advance(Seconds(1));
        return engine.snapshot().report(AIUsageTool::claude)->source == AIUsageLimitSource::statusLine;
    }));
    EXPECT_EQ(engine.snapshot().report(AIUsageTool::claude)->limits[0].used, 50);
}

class AIUsageCodexAskingTest : public AIUsageEngineTest {
protected:
    std::optional<AIUsageCodexLimits> ask(const char* mode, Seconds deadline = Seconds(20))
    {
        ::setenv("CODEX_STANDIN_MODE", mode, 1);
        ::setenv("CODEX_STANDIN_LOG", (home.path() + "/codex.log").c_str(), 1);
        return askCodex(std::string(KESTRUNE_TEST_HELPERS) + "/codex-app-server", home.path(), {}, deadline);
    }
};

TEST_F(AIUsageCodexAskingTest, SpeaksTheAppServersProtocol)
{
    auto limits = ask("answer");
    ASSERT_TRUE(limits);
    EXPECT_EQ(limits->plan, "Team");
    ASSERT_EQ(limits->limits.size(), 1u);
    EXPECT_EQ(limits->limits[0].used, 25);
    EXPECT_EQ(test::readFile(home.path() + "/codex.log"),
              R"({"id":1,"method":"initialize","params":{"clientInfo":{"name":"kestrune-dock","title":"Kestrune Dock","version":"0.1"}}})"
              "\n"
              R"({"method":"initialized"})"
              "\n"
              R"({"id":2,"method":"account/rateLimits/read","params":{"excludeResetCreditDetails":true}})"
              "\n");
    EXPECT_FALSE(ask("no-limits"));
    auto started = std::chrono::steady_clock::now();
    EXPECT_FALSE(ask("silent", Seconds(1)));
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10)) << "the deadline ends the exchange";
    EXPECT_EQ(test::zombieChildCount(), 0);
}

TEST_F(AIUsageCodexAskingTest, TheEngineAsksOnlyWhileTheLimitsAreUnknown)
{
    ::setenv("CODEX_STANDIN_MODE", "answer", 1);
    auto configuration = handDriven();
    configuration.asksCodex = AIUsageAsksCodex::whenLimitsUnknown;
    configuration.codexPath = std::string(KESTRUNE_TEST_HELPERS) + "/codex-app-server";
    {
        AIUsageEngine engine(runtime, home.path(), appFolder, configuration);
        auto demand = engine.demand(Tokens::none);
        settle(engine);
        EXPECT_FALSE(engine.snapshot().codexChecked) << "the log's limits are current";
        EXPECT_EQ(engine.snapshot().report(AIUsageTool::codex)->source, AIUsageLimitSource::log);
    }
    // Past the log's five-hour reset the limits have started over: Codex is asked.
    ManualRuntime later { dateAfter(test::fixtureNow(), Seconds(6 * 3600)) };
    AIUsageEngine engine(later, home.path(), appFolder, configuration);
    auto demand = engine.demand(Tokens::none);
    ASSERT_TRUE(later.runUntil([&] { return engine.snapshot().codexChecked; }));
    const auto* codex = engine.snapshot().report(AIUsageTool::codex);
    EXPECT_EQ(codex->source, AIUsageLimitSource::live);
    EXPECT_EQ(codex->plan, "Team");
    EXPECT_EQ(engine.snapshot().report(AIUsageTool::claude), nullptr) << "no token counting was asked for";
}

} // namespace
} // namespace kestrune
