#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "KestruneKit/AIUsage/AIUsageStatusLine.h"
#include "KestruneKit/Core/AtomicFile.h"
#include "tests/KestruneKit/AIUsage/AIUsageTestSupport.h"

namespace kestrune {
namespace {

class ClaudeBridgeTest : public ::testing::Test {
protected:
    test::TemporaryFolder home;
    ClaudeBridge bridge { { home.path(), home.path() + "/.local/share/kestrune-dock", KESTRUNE_CLI } };
    std::string settings = home.path() + "/.claude/settings.json";

    // Runs the installed script as Claude Code does: the status line's JSON on standard input.
    std::string runScript(const std::string& input)
    {
        home.write("input.json", input);
        return test::shell(home.path(), "/bin/sh '" + bridge.statusLine().script() + "' < input.json; echo \"exit $?\"");
    }
};

TEST_F(ClaudeBridgeTest, ConnectAndDisconnectKeepEveryOtherSettingInItsPlace)
{
    std::string original = "{\n  \"model\": \"opus\",\n  \"statusLine\": {\"type\": \"command\", \"command\": \"echo mine\", \"padding\": 0},\n"
                           "  \"permissions\": {\"allow\": [\"Bash(ls)\"]},\n  \"env\": {\"A\": \"1\"}\n}\n";
    home.write(".claude/settings.json", original, 0600);
    ASSERT_FALSE(bridge.connect());

    EXPECT_EQ(test::readFile(home.path() + "/.claude/settings.json.kestrune-backup"), original);
    auto connected = nlohmann::ordered_json::parse(test::readFile(settings));
    std::vector<std::string> keys;
    for (const auto& [key, value] : connected.items())
        keys.push_back(key);
    EXPECT_EQ(keys, (std::vector<std::string> { "model", "statusLine", "permissions", "env" }));
    EXPECT_EQ(connected["statusLine"]["command"], bridge.statusLine().script());
    EXPECT_EQ(connected["permissions"]["allow"][0], "Bash(ls)");
    struct stat info {};
    ASSERT_EQ(::stat(settings.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u) << "the settings keep their permissions";
    EXPECT_EQ(test::readFile(bridge.statusLine().previousCommand()), "echo mine");
    EXPECT_TRUE(bridge.isConnected());
    EXPECT_FALSE(bridge.needsRepair());

    // Connecting again must not take our own script for the user's previous command.
    ASSERT_FALSE(bridge.connect());
    EXPECT_EQ(test::readFile(bridge.statusLine().previousCommand()), "echo mine");

    ASSERT_FALSE(bridge.disconnect());
    EXPECT_EQ(nlohmann::ordered_json::parse(test::readFile(settings)), nlohmann::ordered_json::parse(original));
    EXPECT_FALSE(std::filesystem::exists(bridge.statusLine().script()));
    EXPECT_FALSE(std::filesystem::exists(bridge.statusLine().previousValue()));
}

TEST_F(ClaudeBridgeTest, LeavesSettingsThatAreNotPlainJSONUntouched)
{
    for (std::string text : { "{\n  // mine\n  \"model\": \"opus\"\n}\n", "{\"model\": \"opus\",}\n", "[1, 2]\n" }) {
        home.write(".claude/settings.json", text);
        EXPECT_EQ(bridge.connect(), ClaudeBridge::Failure::settingsNotPlainJSON);
        EXPECT_EQ(test::readFile(settings), text);
    }
    EXPECT_EQ(ClaudeBridge::text(ClaudeBridge::Failure::settingsNotPlainJSON),
              "Claude Code’s settings file isn’t plain JSON, so it was left as it is.");
}

TEST_F(ClaudeBridgeTest, EditsASymbolicLinksTargetAndRemovesAKeyThatWasNotThere)
{
    home.write("dotfiles/claude-settings.json", "{\"theme\": \"dark\"}");
    std::filesystem::create_directories(home.path() + "/.claude");
    std::filesystem::create_symlink(home.path() + "/dotfiles/claude-settings.json", settings);
    ASSERT_FALSE(bridge.connect());
    EXPECT_TRUE(std::filesystem::is_symlink(settings));
    EXPECT_EQ(test::readFile(home.path() + "/dotfiles/settings.json.kestrune-backup"), "{\"theme\": \"dark\"}");
    EXPECT_EQ(test::readFile(bridge.statusLine().previousValue()), "null\n");
    ASSERT_FALSE(bridge.disconnect());
    EXPECT_EQ(nlohmann::json::parse(test::readFile(settings)), nlohmann::json::parse("{\"theme\": \"dark\"}"));

    // Escaped slashes, as some JSON writers put them, still name the script.
    std::string escaped = "{\"statusLine\": {\"type\": \"command\", \"command\": \"" + bridge.statusLine().script() + "\"}}";
    for (size_t at = 0; (at = escaped.find('/', at)) != std::string::npos; at += 2)
        escaped.insert(at, "\\");
    home.write("dotfiles/claude-settings.json", escaped);
    EXPECT_TRUE(bridge.isConnected());
    EXPECT_TRUE(bridge.needsRepair()) << "connected, but the script is gone";
    EXPECT_TRUE(bridge.statusLine().state(settings).scriptMissing);
    ASSERT_FALSE(bridge.repair());
    EXPECT_TRUE(bridge.statusLine().state(settings).installed);
}

TEST_F(ClaudeBridgeTest, TheScriptSavesTheLimitsAndShowsAShortLine)
{
    ASSERT_FALSE(bridge.connect());
    EXPECT_EQ(runScript(R"({"model":{"id":"x"},"rate_limits":{"five_hour":{"used_percentage":41.6,"resets_at":1738425600}}})"), "5h 42%\nexit 0\n");
    EXPECT_TRUE(std::filesystem::exists(bridge.statusLine().seenMarker()));
    auto saved = bridge.statusLine().readLimits();
    ASSERT_TRUE(saved);
    ASSERT_EQ(saved->limits.size(), 1u);
    EXPECT_EQ(saved->limits[0], (AIUsageLimit { 41.6, 300, dateFromMillis(1738425600000), std::nullopt }));
    EXPECT_FALSE(std::filesystem::exists(bridge.statusLine().limitsFile() + ".part"));

    EXPECT_EQ(runScript(R"({"rate_limits":{"five_hour":{"used_percentage":5},"seven_day":{"used_percentage":80.5}}})"), "5h 5% · week 80%\nexit 0\n");
    // Without limits, or with no JSON at all, the old limits stay and the script still succeeds.
    EXPECT_EQ(runScript(R"({"model":{"id":"x"}})"), "exit 0\n");
    EXPECT_EQ(runScript("not json"), "exit 0\n");
    EXPECT_EQ(bridge.statusLine().readLimits()->limits[1].used, 80.5);
}

TEST_F(ClaudeBridgeTest, TheScriptFeedsTheSameInputToThePreviousCommand)
{
    home.write(".claude/settings.json", R"({"statusLine": {"type": "command", "command": "cat > ')" + home.path() + R"(/seen-by-previous'; echo previous"}})");
    ASSERT_FALSE(bridge.connect());
    std::string input = R"({"rate_limits":{"seven_day":{"used_percentage":10}},"text":"it's"})";
    EXPECT_EQ(runScript(input), "previous\nexit 0\n");
    EXPECT_EQ(test::readFile(home.path() + "/seen-by-previous"), input);
}

TEST(AIUsageClaudeConfig, ReadsThePlanAndClaudeCodesOwnLastLimits)
{
    auto config = AIUsageClaudeConfig::read(std::string(KESTRUNE_TEST_SOURCES) + "/KestruneKit/AIUsage/home/.claude.json");
    ASSERT_TRUE(config);
    EXPECT_EQ(config->plan, "Max 5×");
    EXPECT_EQ(config->fetchedAt, dateFromMillis(1787130000000));
    ASSERT_EQ(config->limits.size(), 3u);
    EXPECT_EQ(config->limits[0].label(), "5 hours");
    EXPECT_EQ(config->limits[0].used, 46);
    EXPECT_EQ(config->limits[1].label(), "This week");
    EXPECT_EQ(config->limits[2].label(), "Opus this week");
    EXPECT_EQ(AIUsageClaudeConfig::decode(R"({"oauthAccount":{"organizationType":"claude_team","userRateLimitTier":"max_20x"}})").plan, "Team");
    EXPECT_EQ(AIUsageClaudeConfig::decode("{ not json").plan, std::nullopt);
}

} // namespace
} // namespace kestrune
