#pragma once
// Asks Codex itself for its plan's limits, with its own sign-in: starts `codex app-server` and
// speaks its newline-delimited JSON-RPC (initialize, initialized, account/rateLimits/read). The
// whole exchange has a deadline, after which the child is ended and nothing is said.

#include <optional>
#include <string>

#include "KestruneKit/AIUsage/AIUsageCodexLog.h"
#include "KestruneKit/Core/Environment.h"

namespace kestrune {

struct AIUsageCodexClient {
    std::string name = "kestrune-dock";
    std::string title = "Kestrune Dock";
    std::string version = "0.1";
};

// The codex program at the first of its usual install places, or none.
[[nodiscard]] std::optional<std::string> locateCodex(const std::string& home);

// The environment the app server runs in: ours, with PATH also holding the folders Node-based
// installs put their programs in.
[[nodiscard]] Environment codexEnvironment(const Environment& base, const std::string& home);

// Blocks for up to `deadline`; never on the main thread. None when Codex could not be started,
// did not answer in time, or answered without "rateLimits".
[[nodiscard]] std::optional<AIUsageCodexLimits> askCodex(const std::string& codex, const std::string& home, const AIUsageCodexClient& client,
                                                         Seconds deadline);

} // namespace kestrune
