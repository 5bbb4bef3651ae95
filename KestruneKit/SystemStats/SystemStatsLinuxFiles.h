#pragma once
// The Linux kernel's statistics files, parsed without allocating once the output vectors have
// grown: portable code, tested with files recorded on several kinds of machine.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KestruneKit/SystemStats/SystemStatsProbe.h"

namespace kestrune {

// The per-core "cpuN" lines of /proc/stat; `ids` gets each line's N. False when there are none.
[[nodiscard]] bool parseProcStat(std::string_view text, std::vector<SystemStatsTicks>& ticks, std::vector<int>& ids);

// /proc/meminfo: used = MemTotal − MemAvailable, swap = SwapTotal − SwapFree. Pressure is not
// set here.
[[nodiscard]] SystemStatsProbe::Memory parseMeminfo(std::string_view text);

// /proc/pressure/memory (pressure-stall information), or none where the kernel has none:
// critical when every task was stalled on memory for 10 % or more of the last ten seconds
// ("full avg10" ≥ 10); warning when some task was stalled for 10 % or more ("some avg10" ≥ 10)
// or every task for 2 % or more; normal otherwise, and when the file is missing.
[[nodiscard]] SystemStatsPressure parsePressureStall(std::optional<std::string_view> text);

// A CPU list as sysfs writes it: "0-7,16,18-19".
[[nodiscard]] std::vector<int> parseCPUList(std::string_view text);

// Core kinds for these CPU ids under a sysfs root ("/sys"): hybrid Intel parts list their cores
// in devices/cpu_core/cpus (performance) and devices/cpu_atom/cpus (efficiency); Arm parts give
// each core's cpu_capacity, the largest being performance and smaller ones efficiency. Cores all
// alike, or no information, are unknown.
[[nodiscard]] std::vector<SystemStatsCoreKind> readCoreKinds(const std::string& sysRoot, const std::vector<int>& ids);

// Reads a small file into the buffer, reusing its storage; none when it cannot be read.
[[nodiscard]] std::optional<std::string_view> readInto(const std::string& path, std::string& buffer);

} // namespace kestrune
