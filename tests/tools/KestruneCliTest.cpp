#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "KestruneKit/DevTools/DevToolBox.h"
#include "KestruneKit/DevTools/ShellCommand.h"
#include "KestruneKit/Widgets/DockWidgetRecord.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

struct CliRun {
    int status;
    std::string output;
    std::string error;
};

CliRun kestrune(std::vector<std::string> arguments, const Environment& overrides = {})
{
    DevToolBox box;
    auto run = box.run(DevTool { "kestrune", { KESTRUNE_CLI } }, arguments, std::nullopt, overrides, Seconds(60));
    EXPECT_EQ(run.failure, std::nullopt);
    return { run.status, run.output, run.errorOutput };
}

TEST(KestruneCli, RunPrintsTheResultAndExitsWithTheCommandsCode)
{
    auto run = kestrune({ "run", "--", "echo", "hello;", "exit", "7" });
    EXPECT_EQ(run.status, 7);
    auto result = ShellCommandResult::fromJSON(run.output);
    ASSERT_TRUE(result) << run.output;
    EXPECT_EQ(result->outcome, ShellCommandResult::Outcome::failed);
    EXPECT_EQ(result->output, "hello\n");

    auto limited = kestrune({ "run", "--time-limit", "0.3", "--", "sleep 30" });
    EXPECT_EQ(limited.status, 128 + 15);
    EXPECT_EQ(ShellCommandResult::fromJSON(limited.output)->outcome, ShellCommandResult::Outcome::timedOut);

    auto missing = kestrune({ "run", "--folder", "/nonexistent", "--", "true" });
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(ShellCommandResult::fromJSON(missing.output)->output, "No folder at /nonexistent");
}

TEST(KestruneCli, BadUsageExitsTwoAndTheOverviewListsTheTools)
{
    EXPECT_EQ(kestrune({ "run" }).status, 2);
    EXPECT_EQ(kestrune({ "--no-such-flag" }).status, 2);
    EXPECT_EQ(kestrune({ "run", "--help" }).status, 0);

    auto overview = kestrune({ "--json" });
    EXPECT_EQ(overview.status, 0);
    auto json = nlohmann::json::parse(overview.output, nullptr, false);
    ASSERT_TRUE(json.is_object()) << overview.output;
    bool sawGit = false;
    for (const auto& tool : json["tools"]) {
        if (tool["tool"] == "git") {
            sawGit = true;
            EXPECT_EQ(tool["path"].is_string(), DevToolBox::locate(tool["candidates"]).has_value());
        }
    }
    EXPECT_TRUE(sawGit);
    EXPECT_NE(kestrune({}).output.find("Command-line tools the developer monitors run:"), std::string::npos);
}

TEST(KestruneCli, GitPrintsEachFoldersStandingOrProblem)
{
    test::TemporaryFolder folder;
    test::shell(folder.path(), "git init -q -b main repo && cd repo && touch a b && git add a && git commit -qm one && git mv a c");
    auto text = kestrune({ "git", folder.file("repo"), folder.file("gone") });
    EXPECT_EQ(text.status, 1);
    EXPECT_EQ(text.output, folder.file("repo") + ": 2 changes to commit\n" + folder.file("gone") + ": Not found\n");

    auto json = kestrune({ "git", "--json", folder.file("repo"), folder.file("gone") });
    auto readings = nlohmann::json::parse(json.output);
    ASSERT_EQ(readings.size(), 2u);
    EXPECT_EQ(readings[0]["standing"], "2 changes to commit");
    EXPECT_EQ(readings[0]["branch"], "main");
    EXPECT_EQ(readings[0]["upstream"], nullptr);
    EXPECT_EQ(readings[0]["changes"][0], nlohmann::json::parse(R"({"path":"c","kind":"renamed","staging":"fully","original":"a"})"));
    EXPECT_EQ(readings[0]["changes"][1]["kind"], "untracked");
    EXPECT_EQ(readings[1]["problem"], "missing");
    EXPECT_EQ(readings[1]["standing"], "Not found");
}

TEST(KestruneCli, PrsPrintsBothListsThroughTheGivenClient)
{
    test::TemporaryFolder folder;
    DevToolBox box(processEnvironment());
    Environment answer { { "GH_STANDIN_LOG", folder.file("log") },
                         { "GH_STANDIN_ANSWER", KESTRUNE_TEST_SOURCES "/KestruneKit/GitHub/pull-requests.json" } };
    auto run = box.run(DevTool { "kestrune", { KESTRUNE_CLI } }, { "prs", "--gh", KESTRUNE_TEST_HELPERS "/gh" }, std::nullopt, answer, Seconds(60));
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.output.find("Pull requests, checks failing\n\n27 pull requests waiting for your review\n  kestrune/dock#812 Cache the dock's icon atlas\n"),
              std::string::npos) << run.output;
    EXPECT_NE(run.output.find("Your open pull requests: 2 pull requests of yours open\n  kestrune/dock#9 Fix the clock's leap second [checks FAILURE] [APPROVED]"),
              std::string::npos) << run.output;

    auto json = box.run(DevTool { "kestrune", { KESTRUNE_CLI } }, { "prs", "--json", "--gh", KESTRUNE_TEST_HELPERS "/gh" }, std::nullopt, answer, Seconds(60));
    auto parsed = nlohmann::json::parse(json.output);
    EXPECT_EQ(parsed["review"]["issueCount"], 27);
    EXPECT_EQ(parsed["mine"]["items"][0]["checksState"], "FAILURE");

    auto missing = kestrune({ "prs", "--json", "--gh", folder.file("no-gh") });
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(nlohmann::json::parse(missing.output)["failure"], "noClient");
}

TEST(KestruneCli, UsageCountsTheHomeFoldersToolsAndStatusLineConnects)
{
    test::TemporaryFolder home;
    Environment environment { { "HOME", home.path() }, { "XDG_DATA_HOME", "" }, { "TZ", "UTC" } };
    auto none = kestrune({ "usage" }, environment);
    EXPECT_EQ(none.status, 0);
    EXPECT_EQ(none.output, "No AI tools found\nClaude Code’s and Codex’s limits, and Gemini CLI’s, OpenCode’s, Copilot CLI’s and Droid’s "
                           "tokens, show here once one is on this Mac\n");

    auto now = std::chrono::system_clock::now();
    std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&seconds));
    home.write(".claude/projects/-p/s.jsonl",
               std::string(R"({"type":"assistant","message":{"id":"m","usage":{"input_tokens":1200,"output_tokens":34}},"requestId":"r","timestamp":")")
                   + stamp + "\"}\n");
    auto usage = kestrune({ "usage", "--json", "--tool", "claude" }, environment);
    ASSERT_EQ(usage.status, 0) << usage.error;
    auto reports = nlohmann::json::parse(usage.output)["reports"];
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0]["tool"], "claude");
    EXPECT_EQ(reports[0]["tokens"]["week"], 1234);
    EXPECT_EQ(reports[0]["tokens"]["window"], 1234);
    EXPECT_EQ(reports[0]["tokens"]["days"].size(), 7u);
    EXPECT_EQ(kestrune({ "usage", "--tool", "cursor" }, environment).status, 2);

    ASSERT_EQ(kestrune({ "statusline", "connect" }, environment).status, 0);
    auto script = home.path() + "/.local/share/kestrune-dock/claude-statusline.sh";
    EXPECT_EQ(test::shell(home.path(), "echo '{\"rate_limits\":{\"seven_day\":{\"used_percentage\":9.5}}}' | '" + script + "'"),
              "week 10%\n");
    EXPECT_NE(kestrune({ "statusline" }, environment).output.find("connected: yes"), std::string::npos);
    ASSERT_EQ(kestrune({ "statusline", "disconnect" }, environment).status, 0);
    EXPECT_EQ(test::readFile(home.path() + "/.claude/settings.json"), "{}\n");
}

TEST(KestruneCli, StatsPrintsSamplesAndSmcDecodes)
{
    auto stats = kestrune({ "stats", "--json", "--count", "2", "--interval", "0.5" });
    ASSERT_EQ(stats.status, 0) << stats.error;
    size_t lines = 0;
    for (size_t start = 0, end; (end = stats.output.find('\n', start)) != std::string::npos; start = end + 1, ++lines) {
        auto reading = nlohmann::json::parse(stats.output.substr(start, end - start));
        EXPECT_GT(reading["memoryTotal"].get<uint64_t>(), 0u);
        EXPECT_FALSE(reading["cores"].empty()) << "the baseline sample is not printed";
        EXPECT_TRUE(reading.contains("diskFree"));
    }
    EXPECT_EQ(lines, 2u);

    auto decoded = kestrune({ "smc", "decode", "sp78", "1a80" });
    EXPECT_EQ(decoded.status, 0);
    EXPECT_EQ(decoded.output, "26.5\n");
    EXPECT_EQ(kestrune({ "smc", "decode", "fp87", "1a80" }).status, 1);
    EXPECT_EQ(kestrune({ "smc", "decode", "sp78", "1a8" }).status, 2);
    auto restore = kestrune({ "dock", "restore" });
    EXPECT_EQ(restore.status, 0);
    EXPECT_NE(restore.output.find("no system dock"), std::string::npos);
}

TEST(KestruneCli, WidgetsListsAndEditsTheRowTheDockReads)
{
    test::TemporaryFolder folder;
    Environment environment { { "XDG_CONFIG_HOME", folder.path() } };
    auto widgets = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "widgets");
        return kestrune(arguments, environment);
    };
    auto rowJson = [&] { return nlohmann::json::parse(widgets({ "--json" }).output); };

    EXPECT_EQ(widgets({}).output, "No widgets in the Dock\n");
    EXPECT_EQ(rowJson(), nlohmann::json::array());

    ASSERT_EQ(widgets({ "apply", "Student" }).status, 0);
    auto row = rowJson();
    ASSERT_EQ(row.size(), 6u);
    EXPECT_EQ(row[0]["kind"], "pomodoro");
    EXPECT_EQ(row[0]["title"], "Pomodoro");
    EXPECT_EQ(row[0]["style"], "");
    std::string first = row[0]["id"], second = row[1]["id"], last = row[5]["id"];

    auto added = widgets({ "add", "clock" });
    ASSERT_EQ(added.status, 0);
    std::string clock = added.output.substr(0, added.output.size() - 1);
    EXPECT_EQ(widgets({ "style", clock, "analog" }).status, 0);
    EXPECT_EQ(widgets({ "option", clock, "city", "Zürich" }).status, 0);
    EXPECT_EQ(widgets({ "move", clock, first }).status, 0);
    EXPECT_EQ(widgets({ "remove", last }).status, 0);
    row = rowJson();
    ASSERT_EQ(row.size(), 6u);
    EXPECT_EQ(row[0]["id"], clock);
    EXPECT_EQ(row[0]["style"], "analog");
    EXPECT_EQ(row[0]["options"], (nlohmann::json { { "city", "Zürich" } }));
    EXPECT_EQ(row[1]["id"], first);
    EXPECT_NE(widgets({}).output.find("Clock"), std::string::npos);

    // What another application of the family reads is the same row.
    JSONFilePreferences dock(folder.path() + "/kestrune-dock/app.quillane.dock.json");
    auto record = DockWidgetRecord::read(dock);
    ASSERT_EQ(record.widgets.size(), 6u);
    EXPECT_EQ(record.widgets[0].kind, "clock");

    // Refusals: a clear message, status 2, and not a byte written.
    auto before = test::readFile(dock.path());
    const std::vector<std::vector<std::string>> refused {
        { "add", "weather" },
        { "add", "screenshot" },
        { "remove", "11111111-1111-4111-8111-111111111111" },
        { "remove", "not-an-id" },
        { "move", second, "11111111-1111-4111-8111-111111111111" },
        { "style", clock, "sundial" },
        { "style", second, "ring" },
        { "option", "11111111-1111-4111-8111-111111111111", "k", "v" },
        { "apply", "Gamer" },
    };
    for (const auto& arguments : refused) {
        auto run = widgets(arguments);
        EXPECT_EQ(run.status, 2) << arguments[0] << ' ' << arguments[1];
        EXPECT_NE(run.error.find("kestrune widgets: "), std::string::npos) << run.error;
    }
    EXPECT_NE(widgets({ "style", clock, "sundial" }).error.find("its styles are digital, analog"), std::string::npos);
    EXPECT_EQ(test::readFile(dock.path()), before);
    EXPECT_EQ(widgets({ "style", clock, "" }).status, 0) << "\"\" puts the default face back";

    auto kinds = nlohmann::json::parse(widgets({ "kinds", "--json" }).output);
    EXPECT_EQ(kinds.size(), 47u);
}

} // namespace
} // namespace kestrune
