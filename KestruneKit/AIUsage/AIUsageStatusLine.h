#pragma once
// OVERVIEW
// Claude Code tells its plan's percentages only to its status-line command. AIUsageStatusLine
// knows the files of that connection (the script we install, what it saves, what it replaced)
// and reads them; ClaudeBridge edits Claude Code's settings to connect and disconnect it, and
// never loses a setting of the user's doing so: a byte copy is kept beside the settings before
// the first change, every write is atomic, settings that are not plain JSON are left alone, and
// every other key keeps its value and its place.
//
// TYPICAL USAGE
//   ClaudeBridge bridge(ClaudeBridge::Place::standard(processEnvironment(), homeFolder(), kestrunePath));
//   if (auto failure = bridge.connect()) show(ClaudeBridge::text(*failure));

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KestruneKit/AIUsage/AIUsageModel.h"
#include "KestruneKit/Core/Environment.h"

namespace kestrune {

struct AIUsageStatusLine {
    std::string folder;

    [[nodiscard]] std::string script() const { return folder + "/claude-statusline.sh"; }
    [[nodiscard]] std::string limitsFile() const { return folder + "/claude-limits.json"; }
    [[nodiscard]] std::string seenMarker() const { return folder + "/claude-statusline-seen"; }
    [[nodiscard]] std::string previousCommand() const { return folder + "/claude-statusline-previous"; }
    [[nodiscard]] std::string previousValue() const { return folder + "/claude-statusline-previous.json"; }

    struct Limits {
        std::vector<AIUsageLimit> limits;
        // When the script saved them.
        Date asOf {};
    };
    // The five-hour and weekly limits the script last saved; none when it has saved none.
    [[nodiscard]] std::optional<Limits> readLimits() const;
    // When the script last ran.
    [[nodiscard]] std::optional<Date> lastSeen() const;
    [[nodiscard]] AIUsageStatusLineState state(const std::string& settingsPath) const;
};

// The "rate_limits" object of the status line's input, as the script saves it.
[[nodiscard]] std::vector<AIUsageLimit> decodeStatusLineLimits(std::string_view json);

// What Claude Code says about the plan in ~/.claude.json.
struct AIUsageClaudeConfig {
    struct Result {
        std::optional<std::string> plan;
        // Its own last-known limits, and when it fetched them.
        std::vector<AIUsageLimit> limits;
        std::optional<Date> fetchedAt;
        bool operator==(const Result&) const = default;
    };
    [[nodiscard]] static Result decode(std::string_view json);
    [[nodiscard]] static std::optional<Result> read(const std::string& path);
};

class ClaudeBridge {
public:
    enum class Failure { settingsNotPlainJSON, settingsNotWritten, scriptNotWritten };
    [[nodiscard]] static std::string_view text(Failure failure);

    struct Place {
        std::string home;
        // The application-support folder the script and its files live in.
        std::string folder;
        // On Linux the script asks this program (the kestrune command) to pick values out of
        // the status line's JSON; macOS has plutil for it.
        std::string extractor;
        [[nodiscard]] std::string settings() const { return home + "/.claude/settings.json"; }
        [[nodiscard]] static Place standard(const Environment& environment, const std::string& home, std::string extractor);
    };

    explicit ClaudeBridge(Place place) : place_(std::move(place)) {}

    [[nodiscard]] std::optional<Failure> connect();
    [[nodiscard]] bool isConnected() const;
    // Connected, and the script is missing, not executable or out of date.
    [[nodiscard]] bool needsRepair() const;
    [[nodiscard]] std::optional<Failure> repair();
    [[nodiscard]] std::optional<Failure> disconnect();

    [[nodiscard]] std::string scriptText() const;
    [[nodiscard]] AIUsageStatusLine statusLine() const { return { place_.folder }; }
    [[nodiscard]] const Place& place() const { return place_; }

private:
    [[nodiscard]] std::optional<Failure> writeScript() const;
    Place place_;
};

namespace ClaudeBridgeWords {
inline constexpr std::string_view dialogTitle = "Connect Claude Code?";
inline constexpr std::string_view dialogMessage =
    "Kestrune Dock adds a status line command to ~/.claude/settings.json, after backing it up. It keeps only your plan’s limits, "
    "and any status line you have keeps showing. You can disconnect it from this widget’s menu.";
inline constexpr std::string_view connectItem = "Connect Claude Code…";
inline constexpr std::string_view disconnectItem = "Disconnect Claude Code";
inline constexpr std::string_view repairing = "Claude Code’s status line command went missing. Kestrune Dock is putting it back.";
inline constexpr std::string_view terminalNote =
    "In Terminal, Claude Code’s status line can also share your plan’s 5-hour and weekly percentages.";
inline constexpr std::string_view cachedNote = "Your plan’s limits above are from Claude Code’s last check. Connect it to keep them up to "
                                               "date as you use it in Terminal.";
inline constexpr std::string_view desktopNote = "Your plan’s 5-hour and weekly percentages show here once you use Claude Code in "
                                                "Terminal: the desktop app doesn’t share them, so only its tokens show.";
// "Its status line ran " + when + " without your plan’s percentages: ..."
[[nodiscard]] std::string ranWithoutLimits(std::string_view when);
} // namespace ClaudeBridgeWords

} // namespace kestrune
