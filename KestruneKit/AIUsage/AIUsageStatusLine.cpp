#include "KestruneKit/AIUsage/AIUsageStatusLine.h"

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>

#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "KestruneKit/AIUsage/AIUsageTally.h"
#include "KestruneKit/AIUsage/AIUsageTokenCounter.h"
#include "KestruneKit/Core/ApplicationSupport.h"
#include "KestruneKit/Core/AtomicFile.h"
#include "KestruneKit/Core/JsonFields.h"

namespace kestrune {

namespace {

using Json = nlohmann::json;
using OrderedJson = nlohmann::ordered_json;

constexpr std::string_view scriptName = "claude-statusline.sh";

std::optional<Date> modified(const std::string& path)
{
    auto stamp = fileStamp(path);
    if (!stamp.exists)
        return std::nullopt;
    return dateFromMillis(stamp.modifiedNanos / 1000000);
}

std::optional<double> number(const Json& object, const char* key)
{
    auto found = object.find(key);
    return found != object.end() && found->is_number() ? std::optional(found->get<double>()) : std::nullopt;
}

// Unix seconds, or an ISO 8601 text.
std::optional<Date> moment(const Json& object, const char* key)
{
    auto found = object.find(key);
    if (found == object.end())
        return std::nullopt;
    if (found->is_number())
        return dateFromSeconds(found->get<double>());
    if (found->is_string())
        if (auto millis = parseISODate(found->get<std::string>()))
            return dateFromMillis(*millis);
    return std::nullopt;
}

std::string shellQuoted(std::string_view text)
{
    std::string quoted = "'";
    for (char c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

bool namesScript(const OrderedJson& value) { return value.dump().find(scriptName) != std::string::npos; }

std::string resolved(const std::string& path)
{
    char buffer[PATH_MAX];
    return ::realpath(path.c_str(), buffer) ? std::string(buffer) : path;
}

} // namespace

std::vector<AIUsageLimit> decodeStatusLineLimits(std::string_view json)
{
    auto limits = Json::parse(json, nullptr, false);
    std::vector<AIUsageLimit> decoded;
    if (!limits.is_object())
        return decoded;
    for (auto [key, minutes] : { std::pair { "five_hour", 300 }, std::pair { "seven_day", 10080 } }) {
        auto found = limits.find(key);
        if (found == limits.end() || !found->is_object())
            continue;
        auto used = number(*found, "used_percentage");
        if (!used)
            continue;
        decoded.push_back({ *used, minutes, moment(*found, "resets_at"), std::nullopt });
    }
    return decoded;
}

std::optional<AIUsageStatusLine::Limits> AIUsageStatusLine::readLimits() const
{
    auto text = readWholeFile(limitsFile());
    if (!text)
        return std::nullopt;
    auto limits = decodeStatusLineLimits(*text);
    if (limits.empty())
        return std::nullopt;
    return Limits { std::move(limits), modified(limitsFile()).value_or(Date {}) };
}

std::optional<Date> AIUsageStatusLine::lastSeen() const { return modified(seenMarker()); }

AIUsageStatusLineState AIUsageStatusLine::state(const std::string& settingsPath) const
{
    AIUsageStatusLineState state;
    state.looked = true;
    auto settings = readWholeFile(settingsPath).value_or("");
    std::string plain;
    for (size_t at = 0; at < settings.size(); ++at) {
        if (settings[at] == '\\' && at + 1 < settings.size() && settings[at + 1] == '/')
            continue;
        plain += settings[at];
    }
    state.connected = plain.find(scriptName) != std::string::npos;
    state.installed = isExecutableFile(script());
    state.scriptMissing = state.connected && !fileStamp(script()).exists;
    state.seen = fileStamp(seenMarker()).exists;
    return state;
}

AIUsageClaudeConfig::Result AIUsageClaudeConfig::decode(std::string_view json)
{
    Result result;
    auto config = Json::parse(json, nullptr, false);
    if (!config.is_object())
        return result;
    if (auto account = config.find("oauthAccount"); account != config.end() && account->is_object()) {
        auto organization = jsonText(*account, "organizationType");
        auto tier = jsonText(*account, "userRateLimitTier") + " " + jsonText(*account, "organizationRateLimitTier");
        if (organization == "claude_team")
            result.plan = "Team";
        else if (organization == "claude_enterprise")
            result.plan = "Enterprise";
        else if (tier.find("max_20x") != std::string::npos)
            result.plan = "Max 20×";
        else if (tier.find("max_5x") != std::string::npos)
            result.plan = "Max 5×";
        else if (organization == "claude_max")
            result.plan = "Max";
        else if (organization == "claude_pro")
            result.plan = "Pro";
    }
    auto cached = config.find("cachedUsageUtilization");
    if (cached == config.end() || !cached->is_object())
        return result;
    if (auto fetched = number(*cached, "fetchedAtMs"))
        result.fetchedAt = dateFromMillis(static_cast<int64_t>(*fetched));
    const Json* list = nullptr;
    if (auto found = cached->find("limits"); found != cached->end() && found->is_array())
        list = &*found;
    auto utilization = cached->find("utilization");
    if (!list && utilization != cached->end() && utilization->is_object())
        if (auto found = utilization->find("limits"); found != utilization->end() && found->is_array())
            list = &*found;
    if (list) {
        for (const auto& entry : *list) {
            if (!entry.is_object() || (entry.contains("is_active") && entry["is_active"] == false))
                continue;
            auto used = number(entry, "percent");
            if (!used)
                used = number(entry, "utilization");
            if (!used)
                continue;
            std::string group = jsonText(entry, "group");
            for (const char* key : { "scope", "kind" })
                if (group.empty())
                    group = jsonText(entry, key);
            AIUsageLimit limit { *used, std::nullopt, moment(entry, "resets_at"), std::nullopt };
            if (group == "session")
                limit.windowMinutes = 300;
            else if (group == "weekly" || group == "week" || group == "seven_day")
                limit.windowMinutes = 10080;
            // A limit of one model only (the weekly Opus limit) is told apart by its own name.
            if (!jsonText(entry, "model").empty() && !jsonText(entry, "display_name").empty())
                limit.name = jsonText(entry, "display_name");
            result.limits.push_back(std::move(limit));
        }
    } else if (utilization != cached->end() && utilization->is_object()) {
        for (auto [key, minutes] : { std::pair { "five_hour", 300 }, std::pair { "seven_day", 10080 } }) {
            auto found = utilization->find(key);
            if (found == utilization->end() || !found->is_object())
                continue;
            if (auto used = number(*found, "utilization"))
                result.limits.push_back({ *used, minutes, moment(*found, "resets_at"), std::nullopt });
        }
    }
    return result;
}

std::optional<AIUsageClaudeConfig::Result> AIUsageClaudeConfig::read(const std::string& path)
{
    auto text = readWholeFile(path);
    if (!text)
        return std::nullopt;
    return decode(*text);
}

std::string_view ClaudeBridge::text(Failure failure)
{
    switch (failure) {
    case Failure::settingsNotPlainJSON:
        return "Claude Code’s settings file isn’t plain JSON, so it was left as it is.";
    case Failure::settingsNotWritten:
        return "Claude Code’s settings file couldn’t be changed.";
    case Failure::scriptNotWritten:
        return "Kestrune Dock couldn’t put its status line command back in its folder in Application Support.";
    }
    return {};
}

ClaudeBridge::Place ClaudeBridge::Place::standard(const Environment& environment, const std::string& home, std::string extractor)
{
    return { home, applicationSupportFolder(environment, home), std::move(extractor) };
}

std::string ClaudeBridge::scriptText() const
{
#if defined(__APPLE__)
    std::string folderLine = "folder=\"$HOME/Library/Application Support/Kestrune Dock\"";
    std::string extract = "/usr/bin/plutil -extract";
#else
    // The folder as it was when the script was written: Claude Code may run without the
    // XDG variables our session has.
    std::string folderLine = "folder=" + shellQuoted(place_.folder);
    std::string extract = shellQuoted(place_.extractor) + " extract";
#endif
    return "#!/bin/sh\n"
           "# Kestrune Dock: keeps Claude Code's plan limits for the AI Usage widget, then shows the\n"
           "# status line you had before (with none, a short line of the limits). Disconnect it from the\n"
           "# widget's card in the Dock to put your settings back as they were.\n"
        + folderLine
        + "\n"
          "input=$(cat)\n"
          ": > \"$folder/claude-statusline-seen\"\n"
          "if printf '%s' \"$input\" | "
        + extract
        + " rate_limits json -o \"$folder/claude-limits.json.part\" - >/dev/null 2>&1; then\n"
          "  /bin/mv -f \"$folder/claude-limits.json.part\" \"$folder/claude-limits.json\"\n"
          "fi\n"
          "if [ -s \"$folder/claude-statusline-previous\" ]; then\n"
          "  printf '%s' \"$input\" | /bin/sh -c \"$(cat \"$folder/claude-statusline-previous\")\"\n"
          "else\n"
          "  five=$(printf '%s' \"$input\" | "
        + extract
        + " rate_limits.five_hour.used_percentage raw -o - - 2>/dev/null)\n"
          "  week=$(printf '%s' \"$input\" | "
        + extract
        + " rate_limits.seven_day.used_percentage raw -o - - 2>/dev/null)\n"
          "  line=\"\"\n"
          "  [ -n \"$five\" ] && line=\"5h $(printf '%.0f' \"$five\")%\"\n"
          "  [ -n \"$week\" ] && line=\"${line:+$line · }week $(printf '%.0f' \"$week\")%\"\n"
          "  [ -n \"$line\" ] && printf '%s\\n' \"$line\"\n"
          "fi\n"
          "exit 0\n";
}

std::optional<ClaudeBridge::Failure> ClaudeBridge::writeScript() const
{
    if (!createFolders(place_.folder) || writeFileAtomically(statusLine().script(), scriptText(), 0755))
        return Failure::scriptNotWritten;
    return std::nullopt;
}

std::optional<ClaudeBridge::Failure> ClaudeBridge::connect()
{
    std::string path = place_.settings();
    bool existed = fileStamp(path).exists;
    auto bytes = existed ? readWholeFile(path) : std::optional<std::string>("{}");
    if (!bytes)
        return Failure::settingsNotWritten;
    auto settings = OrderedJson::parse(*bytes, nullptr, false);
    if (!settings.is_object())
        return Failure::settingsNotPlainJSON;
    std::string target = resolved(path);
    if (existed && writeFileAtomically(parentFolder(target) + "/settings.json.kestrune-backup", *bytes))
        return Failure::settingsNotWritten;

    auto status = statusLine();
    auto previous = settings.find("statusLine");
    // Connecting again must not record our own script as the user's: it would then run itself.
    if (previous == settings.end() || !namesScript(*previous)) {
        if (!createFolders(place_.folder))
            return Failure::scriptNotWritten;
        OrderedJson value = previous == settings.end() ? OrderedJson(nullptr) : *previous;
        auto field = [&](const char* key) {
            auto found = value.is_object() ? value.find(key) : value.end();
            return found != value.end() && found->is_string() ? found->get<std::string>() : std::string {};
        };
        std::string command = field("type") == "command" ? field("command") : std::string {};
        if (writeFileAtomically(status.previousValue(), value.dump() + "\n") || writeFileAtomically(status.previousCommand(), command))
            return Failure::scriptNotWritten;
    }
    if (auto failure = writeScript())
        return failure;

    settings["statusLine"] = OrderedJson { { "type", "command" }, { "command", status.script() } };
    if (!existed && !createFolders(parentFolder(target)))
        return Failure::settingsNotWritten;
    if (writeFileAtomically(target, settings.dump(2) + "\n"))
        return Failure::settingsNotWritten;
    return std::nullopt;
}

bool ClaudeBridge::isConnected() const { return statusLine().state(place_.settings()).connected; }

bool ClaudeBridge::needsRepair() const
{
    if (!isConnected())
        return false;
    auto script = statusLine().script();
    return !isExecutableFile(script) || readWholeFile(script) != scriptText();
}

std::optional<ClaudeBridge::Failure> ClaudeBridge::repair() { return needsRepair() ? writeScript() : std::nullopt; }

std::optional<ClaudeBridge::Failure> ClaudeBridge::disconnect()
{
    auto status = statusLine();
    std::string path = place_.settings();
    if (auto bytes = readWholeFile(path)) {
        auto settings = OrderedJson::parse(*bytes, nullptr, false);
        if (!settings.is_object())
            return Failure::settingsNotPlainJSON;
        auto current = settings.find("statusLine");
        if (current != settings.end() && namesScript(*current)) {
            auto previous = OrderedJson::parse(readWholeFile(status.previousValue()).value_or("null"), nullptr, false);
            if (previous.is_null() || previous.is_discarded())
                settings.erase("statusLine");
            else
                *current = previous;
            if (writeFileAtomically(resolved(path), settings.dump(2) + "\n"))
                return Failure::settingsNotWritten;
        }
    }
    for (const auto& file : { status.script(), status.limitsFile(), status.seenMarker(), status.previousCommand(), status.previousValue() })
        ::unlink(file.c_str());
    return std::nullopt;
}

namespace ClaudeBridgeWords {
std::string ranWithoutLimits(std::string_view when)
{
    return fmt::format("Its status line ran {} without your plan’s percentages: Claude Code shares them there on Pro and Max plans.", when);
}
} // namespace ClaudeBridgeWords

} // namespace kestrune
