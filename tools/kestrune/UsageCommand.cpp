#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>

#include <unistd.h>

#include <fmt/core.h>
#include <nlohmann/json.hpp>

#include "KestruneKit/AIUsage/AIUsageReader.h"
#include "KestruneKit/AIUsage/AIUsageStatusLine.h"
#include "KestruneKit/Core/ApplicationSupport.h"
#include "KestruneKit/Core/AtomicFile.h"
#include "KestruneKit/Core/CountText.h"
#include "tools/kestrune/Commands.h"

namespace kestrune::cli {

namespace {

using Json = nlohmann::ordered_json;

std::string utcText(Date date)
{
    std::time_t seconds = std::chrono::system_clock::to_time_t(date);
    std::tm parts {};
    gmtime_r(&seconds, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

std::string localText(Date date, const char* format)
{
    std::time_t seconds = std::chrono::system_clock::to_time_t(date);
    std::tm parts {};
    localtime_r(&seconds, &parts);
    char text[64];
    std::strftime(text, sizeof text, format, &parts);
    return text;
}

Json optionalDate(const std::optional<Date>& date) { return date ? Json(utcText(*date)) : Json(nullptr); }

// The day starts of the report's week, from its first day.
std::vector<Date> dayStarts(const AIUsageTokenUse& tokens)
{
    auto windows = aiUsageWindows(tokens.weekStart + std::chrono::hours(12), localeFirstWeekday());
    std::vector<Date> days;
    for (size_t day = 0; day < tokens.days.size() && day < 7; ++day)
        days.push_back(dateFromMillis(windows.dayStarts[day]));
    return days;
}

Json reportJson(const AIUsageReport& report, Date now)
{
    Json limits = Json::array();
    for (const auto& limit : report.limits)
        limits.push_back({ { "label", limit.label() }, { "used", limit.used },
                           { "windowMinutes", limit.windowMinutes ? Json(*limit.windowMinutes) : Json(nullptr) },
                           { "resetsAt", optionalDate(limit.resetsAt) }, { "name", limit.name ? Json(*limit.name) : Json(nullptr) },
                           { "expired", limit.hasExpired(now) } });
    Json days = Json::array();
    auto starts = dayStarts(report.tokens);
    for (size_t day = 0; day < starts.size(); ++day)
        days.push_back({ { "date", localText(starts[day], "%Y-%m-%d") }, { "tokens", report.tokens.days[day] } });
    const auto& tokens = report.tokens;
    Json credits = nullptr;
    if (report.credits)
        credits = { { "hasCredits", report.credits->hasCredits }, { "unlimited", report.credits->unlimited },
                    { "balance", report.credits->balance ? Json(*report.credits->balance) : Json(nullptr) } };
    return { { "tool", toString(report.tool) },
             { "name", displayName(report.tool) },
             { "plan", report.plan ? Json(*report.plan) : Json(nullptr) },
             { "limits", std::move(limits) },
             { "asOf", optionalDate(report.asOf) },
             { "source", toString(report.source) },
             { "credits", std::move(credits) },
             { "tokens",
               { { "windowStart", optionalDate(tokens.windowStart) },
                 { "window", tokens.window },
                 { "weekStart", utcText(tokens.weekStart) },
                 { "week", tokens.week },
                 { "days", std::move(days) },
                 { "lastUsed", optionalDate(tokens.lastUsed) } } },
             { "lastActive", optionalDate(report.lastActive) } };
}

void printReport(const AIUsageReport& report, Date now)
{
    fmt::print("{}{}\n", displayName(report.tool), report.plan ? fmt::format(" ({})", *report.plan) : "");
    for (const auto& row : summarize(report, now, false).rows)
        fmt::print("  {}: {}{}\n", row.title, row.value, row.detail.empty() ? "" : ", " + row.detail);
    auto starts = dayStarts(report.tokens);
    for (size_t day = 0; day < starts.size(); ++day)
        fmt::print("    {}  {}\n", localText(starts[day], "%a %Y-%m-%d"), groupedNumber(report.tokens.days[day]));
    if (report.tokens.lastUsed)
        fmt::print("  Last used {}\n", localText(*report.tokens.lastUsed, "%Y-%m-%d %H:%M"));
    if (report.credits && !report.credits->text().empty())
        fmt::print("  Credits: {}\n", report.credits->text());
}

int printUsage(bool json, const std::string& toolName)
{
    std::vector<AIUsageTool> tools { allAIUsageTools.begin(), allAIUsageTools.end() };
    if (!toolName.empty()) {
        auto tool = aiUsageToolFromString(toolName);
        if (!tool) {
            fmt::print(stderr, "kestrune usage: unknown tool “{}”; known: claude, codex, gemini, opencode, copilot, droid\n", toolName);
            return exitUsage;
        }
        tools = { *tool };
    }
    std::string home = homeFolder();
    AIUsageReader reader(home, applicationSupportFolder(processEnvironment(), home));
    Date now = std::chrono::system_clock::now();
    auto reports = reader.readOnce(now, tools);
    if (json) {
        Json out = Json::array();
        for (const auto& report : reports)
            out.push_back(reportJson(report, now));
        std::cout << Json { { "reports", std::move(out) } }.dump() << "\n";
        return exitSuccess;
    }
    if (reports.empty()) {
        fmt::print("{}\n{}\n", AIUsageWords::noToolsFound, AIUsageWords::noToolsDetail);
        return exitSuccess;
    }
    for (const auto& report : reports)
        printReport(report, now);
    return exitSuccess;
}

std::string ownPath()
{
    char buffer[PATH_MAX];
    ssize_t length = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    return length > 0 ? std::string(buffer, static_cast<size_t>(length)) : std::string("kestrune");
}

int statusLine(const std::string& action)
{
    std::string home = homeFolder();
    ClaudeBridge bridge(ClaudeBridge::Place::standard(processEnvironment(), home, ownPath()));
    if (action == "connect" || action == "disconnect") {
        auto failure = action == "connect" ? bridge.connect() : bridge.disconnect();
        if (failure) {
            fmt::print(stderr, "{}\n", ClaudeBridge::text(*failure));
            return exitFailure;
        }
        fmt::print("{}\n", action == "connect" ? "Claude Code’s status line is connected." : "Claude Code’s status line is disconnected.");
        return exitSuccess;
    }
    if (bridge.needsRepair()) {
        fmt::print("{}\n", ClaudeBridgeWords::repairing);
        if (auto failure = bridge.repair()) {
            fmt::print(stderr, "{}\n", ClaudeBridge::text(*failure));
            return exitFailure;
        }
    }
    auto status = bridge.statusLine();
    auto state = status.state(bridge.place().settings());
    fmt::print("connected: {}\ninstalled: {}\nscript: {}\n", state.connected ? "yes" : "no", state.installed ? "yes" : "no", status.script());
    if (auto seen = status.lastSeen())
        fmt::print("last ran: {}\n", localText(*seen, "%Y-%m-%d %H:%M"));
    else
        fmt::print("last ran: never\n");
    if (auto limits = status.readLimits())
        for (const auto& limit : limits->limits)
            fmt::print("{}: {}%\n", limit.label(), limit.used);
    return exitSuccess;
}

// Picks one value out of a JSON document by a dotted key path, as the status-line script needs:
// "raw" prints a string, number or boolean as text; "json" writes the value as JSON.
int extract(const std::string& keyPath, const std::string& format, const std::string& output, const std::string& input)
{
    std::string text;
    if (input == "-") {
        text.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    } else if (auto read = readWholeFile(input)) {
        text = *read;
    } else {
        fmt::print(stderr, "kestrune extract: cannot read {}\n", input);
        return exitFailure;
    }
    auto document = Json::parse(text, nullptr, false);
    if (document.is_discarded()) {
        fmt::print(stderr, "kestrune extract: the input is not JSON\n");
        return exitFailure;
    }
    const Json* value = &document;
    size_t start = 0;
    while (start <= keyPath.size()) {
        size_t dot = keyPath.find('.', start);
        std::string key = keyPath.substr(start, dot == std::string::npos ? std::string::npos : dot - start);
        const Json* next = nullptr;
        if (value->is_object() && value->contains(key)) {
            next = &(*value)[key];
        } else if (value->is_array() && !key.empty() && key.find_first_not_of("0123456789") == std::string::npos
                   && std::stoull(key) < value->size()) {
            next = &(*value)[std::stoull(key)];
        }
        if (!next) {
            fmt::print(stderr, "kestrune extract: no value at {}\n", keyPath);
            return exitFailure;
        }
        value = next;
        if (dot == std::string::npos)
            break;
        start = dot + 1;
    }
    std::string out;
    if (format == "json") {
        out = value->dump() + "\n";
    } else if (format == "raw" && value->is_string()) {
        out = value->get<std::string>() + "\n";
    } else if (format == "raw" && (value->is_number() || value->is_boolean())) {
        out = value->dump() + "\n";
    } else {
        fmt::print(stderr, "kestrune extract: the value at {} has no {} form\n", keyPath, format);
        return exitFailure;
    }
    if (output == "-") {
        std::cout << out;
        return std::cout.good() ? exitSuccess : exitFailure;
    }
    if (auto error = writeFileAtomically(output, out)) {
        fmt::print(stderr, "kestrune extract: cannot write {}: {}\n", output, std::strerror(*error));
        return exitFailure;
    }
    return exitSuccess;
}

} // namespace

Action addUsageCommand(CLI::App& app)
{
    auto* command = app.add_subcommand("usage", "AI coding tools' plan limits and tokens, counted from their files in the home folder");
    auto json = std::make_shared<bool>(false);
    auto tool = std::make_shared<std::string>();
    command->add_flag("--json", *json, "Print the reports as JSON");
    command->add_option("--tool", *tool, "Only this tool: claude, codex, gemini, opencode, copilot or droid");
    return [json, tool] { return printUsage(*json, *tool); };
}

Action addStatusLineCommand(CLI::App& app)
{
    auto* command = app.add_subcommand("statusline", "Connect Claude Code's status line to Kestrune Dock, disconnect it, or say how it stands");
    auto action = std::make_shared<std::string>("status");
    command->add_option("ACTION", *action, "connect, disconnect or status")->check(CLI::IsMember({ "connect", "disconnect", "status" }));
    return [action] { return statusLine(*action); };
}

Action addExtractCommand(CLI::App& app)
{
    auto* command = app.add_subcommand("extract", "Print or save one value of a JSON document, picked by a dotted key path");
    auto keyPath = std::make_shared<std::string>();
    auto format = std::make_shared<std::string>();
    auto output = std::make_shared<std::string>("-");
    auto input = std::make_shared<std::string>("-");
    command->add_option("KEYPATH", *keyPath, "Keys and array indices joined by dots")->required();
    command->add_option("FORMAT", *format, "raw or json")->required()->check(CLI::IsMember({ "raw", "json" }));
    command->add_option("INPUT", *input, "The document's file, or - for standard input");
    command->add_option("-o", *output, "Where to write the value, or - for standard output");
    return [keyPath, format, output, input] { return extract(*keyPath, *format, *output, *input); };
}

} // namespace kestrune::cli
