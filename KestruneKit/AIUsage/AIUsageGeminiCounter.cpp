#include "KestruneKit/AIUsage/AIUsageGeminiCounter.h"

#include <nlohmann/json.hpp>

#include "KestruneKit/Core/JsonFields.h"

namespace kestrune {

namespace {

using Json = nlohmann::json;

int64_t number(const Json& object, const char* key)
{
    auto found = object.find(key);
    return found != object.end() && found->is_number() ? found->get<int64_t>() : 0;
}

// Tokens of a reply, or zero for anything that is not one.
int64_t geminiTokens(const Json& message)
{
    if (jsonText(message, "type") != "gemini")
        return 0;
    auto tokens = message.find("tokens");
    if (tokens == message.end() || !tokens->is_object())
        return 0;
    int64_t total = number(*tokens, "total");
    return total > 0 ? total : number(*tokens, "input") + number(*tokens, "output") + number(*tokens, "thoughts") + number(*tokens, "tool");
}

} // namespace

void AIUsageGeminiCounter::Chat::put(Message message)
{
    auto [found, added] = index.try_emplace(message.id, messages.size());
    if (added)
        messages.push_back(std::move(message));
    else
        messages[found->second] = std::move(message);
}

void AIUsageGeminiCounter::Chat::rewindTo(const std::string& id)
{
    auto found = index.find(id);
    if (found == index.end())
        return;
    size_t from = found->second;
    for (size_t i = from; i < messages.size(); ++i)
        index.erase(messages[i].id);
    messages.resize(from);
}

void AIUsageGeminiCounter::Chat::clear()
{
    messages.clear();
    index.clear();
}

AIUsageGeminiCounter::AIUsageGeminiCounter(const std::string& home) : AIUsageLogCounter(AIUsageTool::gemini, home + "/.gemini", Seconds(4.0)) {}

bool AIUsageGeminiCounter::concerns(std::string_view path) const
{
    return path.find("/chats/") != std::string_view::npos && (endsWith(path, ".json") || endsWith(path, ".jsonl"));
}

void AIUsageGeminiCounter::reset()
{
    AIUsageLogCounter::reset();
    chats_.clear();
}

AIUsageLogCounter::Reading AIUsageGeminiCounter::reading(std::string_view path) const
{
    return endsWith(path, ".json") ? Reading::wholeFile : Reading::lines;
}

void AIUsageGeminiCounter::consume(const std::string& path, std::string_view lines, size_t /*readable*/, const AIUsageWindows& /*windows*/)
{
    auto& chat = chats_[path];
    auto putAll = [&chat](const Json& list) {
        chat.clear();
        for (const auto& message : list)
            if (message.is_object() && !jsonText(message, "id").empty())
                chat.put({ jsonText(message, "id"), parseISODate(jsonText(message, "timestamp")).value_or(0), geminiTokens(message) });
    };
    if (reading(path) == Reading::wholeFile) {
        auto document = Json::parse(lines, nullptr, false);
        if (document.is_object() && document.contains("messages") && document["messages"].is_array())
            putAll(document["messages"]);
        return;
    }
    size_t start = 0;
    while (start < lines.size()) {
        size_t end = lines.find('\n', start);
        auto record = Json::parse(lines.substr(start, end - start), nullptr, false);
        start = end + 1;
        if (!record.is_object())
            continue;
        if (auto set = record.find("$set"); set != record.end() && set->is_object()) {
            if (auto list = set->find("messages"); list != set->end() && list->is_array())
                putAll(*list);
        } else if (auto rewind = record.find("$rewindTo"); rewind != record.end() && rewind->is_string()) {
            chat.rewindTo(rewind->get<std::string>());
        } else if (!jsonText(record, "id").empty() && record.contains("type")) {
            chat.put({ jsonText(record, "id"), parseISODate(jsonText(record, "timestamp")).value_or(0), geminiTokens(record) });
        }
    }
}

AIUsageTokenUse AIUsageGeminiCounter::totals(const AIUsageWindows& windows)
{
    AIUsageTally tally(windows);
    for (const auto& [path, chat] : chats_)
        for (const auto& message : chat.messages)
            if (message.tokens > 0)
                tally.add(message.time, message.tokens);
    return tally.finish();
}

AIUsageDroidCounter::AIUsageDroidCounter(const std::string& home) : AIUsageLogCounter(AIUsageTool::droid, home + "/.factory/sessions", Seconds(2.0))
{
}

bool AIUsageDroidCounter::concerns(std::string_view path) const { return endsWith(path, ".settings.json"); }

void AIUsageDroidCounter::reset()
{
    AIUsageLogCounter::reset();
    sessions_.clear();
}

void AIUsageDroidCounter::consume(const std::string& path, std::string_view lines, size_t /*readable*/, const AIUsageWindows& /*windows*/)
{
    auto settings = Json::parse(lines, nullptr, false);
    if (!settings.is_object())
        return;
    auto usage = settings.find("tokenUsage");
    if (usage == settings.end() || !usage->is_object())
        return;
    int64_t tokens = number(*usage, "inputTokens") + number(*usage, "outputTokens") + number(*usage, "cacheCreationTokens")
        + number(*usage, "cacheReadTokens");
    std::optional<int64_t> time;
    if (auto lock = settings.find("providerLockTimestamp"); lock != settings.end()) {
        if (lock->is_string())
            time = parseISODate(lock->get<std::string>());
        else if (lock->is_number())
            time = lock->get<int64_t>();
    }
    if (!time)
        time = fileStamp(path).modifiedNanos / 1000000;
    sessions_[path] = { *time, tokens };
}

AIUsageTokenUse AIUsageDroidCounter::totals(const AIUsageWindows& windows)
{
    AIUsageTally tally(windows);
    for (const auto& [path, session] : sessions_)
        if (session.second > 0)
            tally.add(session.first, session.second);
    return tally.finish();
}

} // namespace kestrune
