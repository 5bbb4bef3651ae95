#pragma once

// A saved shell command and the result of its last run, stored with the widget's record as JSON
// with keys equal to the field names, as the platform's default encoder writes them: UUIDs as
// upper-case strings, dates as seconds since 2001-01-01T00:00:00Z, an absent optional as no key.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "KestruneKit/Core/Runtime.h"
#include "KestruneKit/Core/Uuid.h"

namespace kestrune {

struct ShellCommand {
    Uuid id = Uuid::random();
    std::string name;
    std::string symbol;
    std::string command;
    std::string folder;
    bool runsInTerminal = false;
    bool asksFirst = false;
    std::optional<double> timeLimit;

    [[nodiscard]] std::string toJSON() const;
    // Strict: a missing or mistyped field gives std::nullopt (only `timeLimit` may be absent).
    [[nodiscard]] static std::optional<ShellCommand> fromJSON(std::string_view json);
    bool operator==(const ShellCommand&) const = default;
};

struct ShellCommandResult {
    enum class Outcome { succeeded, failed, stopped, timedOut, couldNotStart, openedInTerminal };

    Outcome outcome = Outcome::succeeded;
    // Meaningless for couldNotStart (-1) and openedInTerminal (0).
    std::int32_t exitCode = 0;
    Date started;
    Date ended;
    std::string output;
    bool outputTrimmed = false;
    std::string lastLine;

    [[nodiscard]] std::string toJSON() const;
    [[nodiscard]] static std::optional<ShellCommandResult> fromJSON(std::string_view json);
    bool operator==(const ShellCommandResult&) const = default;
};

[[nodiscard]] std::string_view toString(ShellCommandResult::Outcome outcome);
[[nodiscard]] std::optional<ShellCommandResult::Outcome> outcomeFromString(std::string_view raw);

// Seconds since 2001-01-01T00:00:00Z, the platform's reference date, and back.
[[nodiscard]] double referenceSeconds(Date date);
[[nodiscard]] Date dateFromReferenceSeconds(double seconds);

} // namespace kestrune
