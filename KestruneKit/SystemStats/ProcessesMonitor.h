#pragma once
// OVERVIEW
// The processes using the most processor and memory now, for the Activity card: read from /proc
// every two seconds while the card is open, and not otherwise. A process's processor share is its
// ticks between two readings over the time between them (1.0 is one core busy, as top shows it);
// the first reading, with nothing to compare, gives memory only.
//
// TYPICAL USAGE
//   ProcessesMonitor monitor(runtime);
//   monitor.onChange = [&] { show(monitor.reading()->byProcessor); };
//   monitor.poller().setWanted("activity card", true);
//
// Main thread only; the reading runs on the monitor's own queue.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KestruneKit/DevTools/PolledMonitor.h"

namespace kestrune {

struct ProcessStat {
    int pid = 0;
    std::string name;
    uint64_t ticks = 0;       // user and system time, in clock ticks
    uint64_t residentPages = 0;
    bool operator==(const ProcessStat&) const = default;
};

// One /proc/<pid>/stat line; none for one that does not parse. The name may hold spaces and
// parentheses of its own: it runs to the last ")".
[[nodiscard]] std::optional<ProcessStat> parseProcessStat(std::string_view line);

struct ProcessUse {
    int pid = 0;
    std::string name;
    double processor = 0;  // cores' worth, 1.0 for one core busy
    uint64_t memory = 0;   // resident bytes
    bool operator==(const ProcessUse&) const = default;
};

struct ProcessTop {
    std::vector<ProcessUse> byProcessor;
    std::vector<ProcessUse> byMemory;
    bool operator==(const ProcessTop&) const = default;
};

class ProcessesMonitor : public PolledMonitor<ProcessTop> {
public:
    static constexpr Seconds interval { 2 };
    static constexpr size_t shown = 5;

    explicit ProcessesMonitor(Runtime& runtime, KestruneActivity& activity = KestruneActivity::shared(), std::string procRoot = "/proc");
};

} // namespace kestrune
