#include "KestruneKit/AIUsage/AIUsageCodexLog.h"

#include <array>
#include <cmath>
#include <cstring>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>
#include "KestruneKit/AIUsage/AIUsageJSONLine.h"
#include "KestruneKit/Core/RawNames.h"

namespace kestrune {

struct AIUsageCodexLog::Parser {
    ondemand::parser parser;
};

namespace {

using Json = nlohmann::json;

constexpr RawNames<std::string_view, 15> planNames { { {
    { "free", "Free" },
    { "go", "Go" },
    { "plus", "Plus" },
    { "pro", "Pro" },
    { "prolite", "Pro Lite" },
    { "promax", "Pro Max" },
    { "team", "Team" },
    { "business", "Business" },
    { "self_serve_business_usage_based", "Business" },
    { "enterprise", "Enterprise" },
    { "enterprise_cbp_usage_based", "Enterprise" },
    { "edu", "Edu" },
    { "edu_plus", "Edu Plus" },
    { "edu_pro", "Edu Pro" },
    { "unknown", "" },
} } };

// The value under either spelling of a key.
const Json* either(const Json& object, const char* snake, const char* camel)
{
    for (const char* key : { snake, camel }) {
        auto found = object.find(key);
        if (found != object.end() && !found->is_null())
            return &*found;
    }
    return nullptr;
}

std::optional<AIUsageLimit> decodeLimit(const Json& object, Date said)
{
    if (!object.is_object())
        return std::nullopt;
    const Json* used = either(object, "used_percent", "usedPercent");
    if (!used || !used->is_number())
        return std::nullopt;
    AIUsageLimit limit;
    limit.used = used->get<double>();
    if (const Json* window = either(object, "window_minutes", "windowDurationMins"); window && window->is_number())
        limit.windowMinutes = static_cast<int64_t>(std::llround(window->get<double>()));
    if (const Json* at = either(object, "resets_at", "resetsAt"); at && at->is_number())
        limit.resetsAt = dateFromSeconds(at->get<double>());
    else if (const Json* in = either(object, "resets_in_seconds", "resetsInSeconds"); in && in->is_number())
        limit.resetsAt = dateFromSeconds(std::chrono::duration<double>(said.time_since_epoch()).count() + in->get<double>());
    return limit;
}

int64_t figure(ondemand::object& object, std::array<int64_t, 5>& figures)
{
    // input, cached input, output, reasoning, total
    for (auto field : object) {
        ondemand::raw_json_string key;
        if (field.key().get(key))
            return -1;
        size_t slot = key == "input_tokens" ? 0 : key == "cached_input_tokens" ? 1 : key == "output_tokens" ? 2
            : key == "reasoning_output_tokens"                                         ? 3
            : key == "total_tokens"                                                    ? 4
                                                                                       : 5;
        if (slot < 5 && field.value().get_int64().get(figures[slot]))
            return -1;
    }
    return figures[4] > 0 ? figures[4] : figures[0] + figures[2];
}

} // namespace

std::optional<std::string> codexPlanName(std::string_view planType)
{
    if (planType.empty())
        return std::nullopt;
    if (auto known = planNames.name(planType); !known.empty() || planType == "unknown")
        return known.empty() ? std::nullopt : std::optional<std::string>(known);
    std::string name(planType);
    name[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(name[0])));
    return name;
}

std::optional<AIUsageCodexLimits> decodeCodexRateLimits(const Json& rateLimits, Date said)
{
    if (!rateLimits.is_object())
        return std::nullopt;
    AIUsageCodexLimits decoded;
    decoded.asOf = said;
    for (const char* key : { "primary", "secondary" })
        if (auto found = rateLimits.find(key); found != rateLimits.end())
            if (auto limit = decodeLimit(*found, said))
                decoded.limits.push_back(*limit);
    if (decoded.limits.empty())
        return std::nullopt;
    if (const Json* plan = either(rateLimits, "plan_type", "planType"); plan && plan->is_string())
        decoded.plan = codexPlanName(plan->get<std::string>());
    if (auto found = rateLimits.find("credits"); found != rateLimits.end() && found->is_object()) {
        AIUsageCredits credits;
        if (const Json* has = either(*found, "has_credits", "hasCredits"); has && has->is_boolean())
            credits.hasCredits = has->get<bool>();
        if (auto unlimited = found->find("unlimited"); unlimited != found->end() && unlimited->is_boolean())
            credits.unlimited = unlimited->get<bool>();
        if (auto balance = found->find("balance"); balance != found->end()) {
            if (balance->is_string())
                credits.balance = balance->get<std::string>();
            else if (balance->is_number())
                credits.balance = fmt::format("{:.2f}", balance->get<double>());
        }
        decoded.credits = credits;
    }
    return decoded;
}

AIUsageCodexLog::AIUsageCodexLog(const std::string& home)
    : AIUsageLogCounter(AIUsageTool::codex, home + "/.codex/sessions", Seconds(2.0)), parser_(std::make_unique<Parser>())
{
}

AIUsageCodexLog::~AIUsageCodexLog() = default;

bool AIUsageCodexLog::concerns(std::string_view path) const { return endsWith(path, ".jsonl"); }

void AIUsageCodexLog::reset()
{
    AIUsageLogCounter::reset();
    latest_.reset();
}

void AIUsageCodexLog::consume(const std::string& /*path*/, std::string_view lines, size_t readable, const AIUsageWindows& windows)
{
    forEachLineHolding(lines, { &tokenSearch_, &limitsSearch_ }, [&](size_t start, size_t length) {
        readLine(lines.data() + start, length, readable - start, windows);
    });
}

void AIUsageCodexLog::readLine(const char* line, size_t length, size_t readable, const AIUsageWindows& windows)
{
    ondemand::document document;
    ondemand::object object;
    if (!openObject(parser_->parser, line, length, readable, document, object))
        return;
    std::string_view timestamp;
    bool isTokenCount = false;
    std::array<int64_t, 5> total {}, last {};
    int64_t tokens = -1;
    std::string_view rateLimits;
    for (auto field : object) {
        ondemand::raw_json_string key;
        if (field.key().get(key))
            return;
        if (key == "timestamp") {
            if (field.value().get_string().get(timestamp))
                return;
        } else if (key == "payload") {
            ondemand::object payload;
            if (field.value().get_object().get(payload))
                return;
            for (auto inner : payload) {
                ondemand::raw_json_string innerKey;
                if (inner.key().get(innerKey))
                    return;
                if (innerKey == "type") {
                    std::string_view type;
                    isTokenCount = inner.value().get_string().get(type) == simdjson::SUCCESS && type == "token_count";
                } else if (innerKey == "info") {
                    ondemand::object info;
                    if (inner.value().get_object().get(info))
                        continue;
                    for (auto usage : info) {
                        ondemand::raw_json_string usageKey;
                        if (usage.key().get(usageKey))
                            return;
                        bool isTotal = usageKey == "total_token_usage";
                        if (!isTotal && !(usageKey == "last_token_usage"))
                            continue;
                        ondemand::object figures;
                        if (usage.value().get_object().get(figures))
                            continue;
                        int64_t sum = figure(figures, isTotal ? total : last);
                        if (!isTotal)
                            tokens = sum;
                    }
                } else if (innerKey == "rate_limits") {
                    ondemand::object limits;
                    if (inner.value().get_object().get(limits) == simdjson::SUCCESS && limits.raw_json().get(rateLimits))
                        rateLimits = {};
                }
            }
        }
    }
    auto time = parseISODate(timestamp);
    if (!isTokenCount || !time)
        return;
    if (tokens > 0 && *time >= windows.earliest) {
        identity_ = fmt::format("{}", fmt::join(total, ","));
        identity_ += fmt::format("/{}", fmt::join(last, ","));
        replies_.note(identity_, *time, tokens);
    }
    if (!rateLimits.empty() && (!latest_ || millisSince1970(latest_->asOf) <= *time)) {
        auto parsed = Json::parse(rateLimits, nullptr, false);
        if (auto limits = decodeCodexRateLimits(parsed, dateFromMillis(*time)))
            latest_ = std::move(limits);
    }
}

} // namespace kestrune
