#pragma once
// OVERVIEW
// One sample of the machine's load, and a ring of recent ones for the cards' graphs.

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace kestrune {

enum class SystemStatsPressure { normal, warning, critical, unknown };
[[nodiscard]] std::string_view toString(SystemStatsPressure pressure);
[[nodiscard]] std::optional<SystemStatsPressure> systemStatsPressureFromString(std::string_view raw);

enum class SystemStatsCoreKind { efficiency, performance, unknown };
[[nodiscard]] std::string_view toString(SystemStatsCoreKind kind);

// Which figures a demand wants.
struct SystemStatsParts {
    uint32_t rawValue = 0;
    static constexpr uint32_t cpuBit = 1, memoryBit = 2, networkBit = 4, gpuBit = 8, diskBit = 16;
    [[nodiscard]] static constexpr SystemStatsParts cpu() { return { cpuBit }; }
    [[nodiscard]] static constexpr SystemStatsParts memory() { return { memoryBit }; }
    [[nodiscard]] static constexpr SystemStatsParts network() { return { networkBit }; }
    [[nodiscard]] static constexpr SystemStatsParts gpu() { return { gpuBit }; }
    [[nodiscard]] static constexpr SystemStatsParts disk() { return { diskBit }; }
    [[nodiscard]] static constexpr SystemStatsParts all() { return { 31 }; }
    [[nodiscard]] constexpr bool contains(SystemStatsParts other) const { return (rawValue & other.rawValue) == other.rawValue; }
    constexpr SystemStatsParts operator|(SystemStatsParts other) const { return { rawValue | other.rawValue }; }
    constexpr bool operator==(const SystemStatsParts&) const = default;
};

struct SystemStatsCore {
    double busy = 0;
    SystemStatsCoreKind kind = SystemStatsCoreKind::unknown;
    bool operator==(const SystemStatsCore&) const = default;
};

struct SystemStatsReading {
    // Busy fractions, 0 to 1. No CPU figure (the first sample, or one after a long gap) leaves
    // them zero and `cores` empty.
    double cpu = 0;
    double cpuUser = 0;
    double cpuSystem = 0;
    std::vector<SystemStatsCore> cores;
    uint64_t memoryUsed = 0;
    uint64_t memoryTotal = 0;
    SystemStatsPressure pressure = SystemStatsPressure::unknown;
    uint64_t swapUsed = 0;
    // Network bytes per second.
    double down = 0;
    double up = 0;
    std::optional<double> gpu;
    uint64_t diskFree = 0;
    uint64_t diskTotal = 0;
    bool operator==(const SystemStatsReading&) const = default;
};

// The most recent readings, oldest first, up to `capacity` (at least 2).
class SystemStatsHistory {
public:
    explicit SystemStatsHistory(size_t capacity = 60);
    void append(const SystemStatsReading& reading);
    [[nodiscard]] size_t capacity() const { return capacity_; }
    [[nodiscard]] size_t size() const { return count_; }
    // 0 is the oldest kept.
    [[nodiscard]] const SystemStatsReading& operator[](size_t index) const;
    [[nodiscard]] const SystemStatsReading* latest() const { return count_ ? &(*this)[count_ - 1] : nullptr; }

private:
    size_t capacity_;
    std::vector<SystemStatsReading> ring_;
    size_t next_ = 0;
    size_t count_ = 0;
};

} // namespace kestrune
