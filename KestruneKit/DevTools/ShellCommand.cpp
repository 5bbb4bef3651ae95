#include "KestruneKit/DevTools/ShellCommand.h"

#include <cmath>
#include <limits>

#include <nlohmann/json.hpp>

#include "KestruneKit/Core/RawNames.h"

namespace kestrune {

namespace {

using Outcome = ShellCommandResult::Outcome;

constexpr RawNames<Outcome, 6> outcomeNames { { {
    { Outcome::succeeded, "succeeded" },
    { Outcome::failed, "failed" },
    { Outcome::stopped, "stopped" },
    { Outcome::timedOut, "timedOut" },
    { Outcome::couldNotStart, "couldNotStart" },
    { Outcome::openedInTerminal, "openedInTerminal" },
} } };

constexpr std::chrono::sys_seconds referenceDate { std::chrono::seconds(978307200) };

// Each member, present and of its type, or the decode fails as a whole.
template<typename T>
bool take(const nlohmann::json& object, const char* key, T& into)
{
    auto found = object.find(key);
    if (found == object.end())
        return false;
    if constexpr (std::is_same_v<T, bool>) {
        if (!found->is_boolean())
            return false;
    } else if constexpr (std::is_same_v<T, std::string>) {
        if (!found->is_string())
            return false;
    } else if constexpr (std::is_integral_v<T>) {
        if (!found->is_number_integer() || found->get<long long>() < std::numeric_limits<T>::min()
            || found->get<long long>() > std::numeric_limits<T>::max())
            return false;
    } else {
        if (!found->is_number())
            return false;
    }
    into = found->get<T>();
    return true;
}

std::string dump(const nlohmann::ordered_json& json)
{
    // Output is whatever a command printed: never let an odd byte make the encoder throw.
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

// The platform's encoder writes a whole number of seconds without a fraction: 0, not 0.0.
nlohmann::ordered_json secondsValue(double seconds)
{
    if (std::isfinite(seconds) && std::floor(seconds) == seconds && std::fabs(seconds) < 9.0e15)
        return static_cast<long long>(seconds);
    return seconds;
}

} // namespace

std::string_view toString(Outcome outcome) { return outcomeNames.name(outcome); }

std::optional<Outcome> outcomeFromString(std::string_view raw) { return outcomeNames.value(raw); }

double referenceSeconds(Date date) { return secondsBetween(Date(referenceDate), date).count(); }

Date dateFromReferenceSeconds(double seconds) { return dateAfter(Date(referenceDate), Seconds(seconds)); }

std::string ShellCommand::toJSON() const
{
    nlohmann::ordered_json json;
    json["id"] = id.toString();
    json["name"] = name;
    json["symbol"] = symbol;
    json["command"] = command;
    json["folder"] = folder;
    json["runsInTerminal"] = runsInTerminal;
    json["asksFirst"] = asksFirst;
    if (timeLimit)
        json["timeLimit"] = secondsValue(*timeLimit);
    return dump(json);
}

std::optional<ShellCommand> ShellCommand::fromJSON(std::string_view text)
{
    auto json = nlohmann::json::parse(text, nullptr, false);
    if (json.is_discarded() || !json.is_object())
        return std::nullopt;
    ShellCommand command;
    std::string id;
    if (!take(json, "id", id) || !take(json, "name", command.name) || !take(json, "symbol", command.symbol)
        || !take(json, "command", command.command) || !take(json, "folder", command.folder)
        || !take(json, "runsInTerminal", command.runsInTerminal) || !take(json, "asksFirst", command.asksFirst))
        return std::nullopt;
    auto uuid = Uuid::fromString(id);
    if (!uuid)
        return std::nullopt;
    command.id = *uuid;
    if (json.contains("timeLimit") && !json["timeLimit"].is_null()) {
        double limit = 0;
        if (!take(json, "timeLimit", limit))
            return std::nullopt;
        command.timeLimit = limit;
    }
    return command;
}

std::string ShellCommandResult::toJSON() const
{
    nlohmann::ordered_json json;
    json["outcome"] = std::string(toString(outcome));
    json["exitCode"] = exitCode;
    json["started"] = secondsValue(referenceSeconds(started));
    json["ended"] = secondsValue(referenceSeconds(ended));
    json["output"] = output;
    json["outputTrimmed"] = outputTrimmed;
    json["lastLine"] = lastLine;
    return dump(json);
}

std::optional<ShellCommandResult> ShellCommandResult::fromJSON(std::string_view text)
{
    auto json = nlohmann::json::parse(text, nullptr, false);
    if (json.is_discarded() || !json.is_object())
        return std::nullopt;
    ShellCommandResult result;
    std::string outcome;
    double started = 0, ended = 0;
    if (!take(json, "outcome", outcome) || !take(json, "exitCode", result.exitCode) || !take(json, "started", started)
        || !take(json, "ended", ended) || !take(json, "output", result.output)
        || !take(json, "outputTrimmed", result.outputTrimmed) || !take(json, "lastLine", result.lastLine))
        return std::nullopt;
    auto decoded = outcomeFromString(outcome);
    if (!decoded)
        return std::nullopt;
    result.outcome = *decoded;
    result.started = dateFromReferenceSeconds(started);
    result.ended = dateFromReferenceSeconds(ended);
    return result;
}

} // namespace kestrune
