#include "KestruneKit/AIUsage/AIUsageClaudeCounter.h"

#include <cstring>

#include "KestruneKit/AIUsage/AIUsageJSONLine.h"

namespace kestrune {

struct AIUsageClaudeCounter::Parser {
    ondemand::parser parser;
};

namespace {

// The four figures of a reply's usage; other keys inside it (newer versions add several) are
// stepped over. False when the object is not one.
bool usageTokens(ondemand::value value, int64_t& tokens)
{
    ondemand::object usage;
    if (value.get_object().get(usage))
        return false;
    tokens = 0;
    for (auto field : usage) {
        ondemand::raw_json_string key;
        if (field.key().get(key))
            return false;
        if (key == "input_tokens" || key == "output_tokens" || key == "cache_creation_input_tokens" || key == "cache_read_input_tokens") {
            int64_t figure = 0;
            if (field.value().get_int64().get(figure) == simdjson::SUCCESS && figure > 0)
                tokens += figure;
        }
    }
    return true;
}

} // namespace

AIUsageClaudeCounter::AIUsageClaudeCounter(const std::string& home)
    : AIUsageLogCounter(AIUsageTool::claude, home + "/.claude/projects", Seconds(4.0)), parser_(std::make_unique<Parser>())
{
}

AIUsageClaudeCounter::~AIUsageClaudeCounter() = default;

bool AIUsageClaudeCounter::concerns(std::string_view path) const
{
    return endsWith(path, ".jsonl") && path.find("/tool-results/") == std::string_view::npos;
}

void AIUsageClaudeCounter::consume(const std::string& /*path*/, std::string_view lines, size_t readable, const AIUsageWindows& windows)
{
    // The search finds candidates only: the same bytes sit inside embedded copies and inside
    // text, so each candidate line is parsed and its own top-level type decides.
    forEachLineHolding(lines, { &search_ }, [&](size_t start, size_t length) {
        countLine(lines.data() + start, length, readable - start, windows);
    });
}

void AIUsageClaudeCounter::countLine(const char* line, size_t length, size_t readable, const AIUsageWindows& windows)
{
    ondemand::document document;
    ondemand::object object;
    if (!openObject(parser_->parser, line, length, readable, document, object))
        return;
    std::string_view type, timestamp, requestId, messageId;
    int64_t tokens = -1;
    for (auto field : object) {
        ondemand::raw_json_string key;
        if (field.key().get(key))
            return;
        if (key == "type") {
            if (field.value().get_string().get(type))
                return;
        } else if (key == "timestamp") {
            if (field.value().get_string().get(timestamp))
                return;
        } else if (key == "requestId") {
            if (field.value().get_string().get(requestId))
                return;
        } else if (key == "message") {
            ondemand::object message;
            if (field.value().get_object().get(message))
                return;
            for (auto inner : message) {
                ondemand::raw_json_string innerKey;
                if (inner.key().get(innerKey))
                    return;
                if (innerKey == "id") {
                    if (inner.value().get_string().get(messageId))
                        return;
                } else if (innerKey == "usage") {
                    if (!usageTokens(inner.value(), tokens))
                        return;
                }
            }
        }
    }
    if (type != "assistant" || messageId.empty() || tokens < 0)
        return;
    auto time = parseISODate(timestamp);
    if (!time || *time < windows.earliest)
        return;
    identity_.assign(messageId).append("\n").append(requestId);
    replies_.note(identity_, *time, tokens);
}

} // namespace kestrune
