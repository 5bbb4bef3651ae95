#pragma once
// OVERVIEW
// The low-level reader behind the sampler. The formulas (busy fractions from tick counters with
// wrap-safe differences and the eight-second baseline rule, network rates, memory used, pressure
// levels) are portable and tested with recorded counters; each platform file supplies only the
// thin calls that fetch the counters (SystemStatsProbeLinux.cpp, SystemStatsProbeMac.cpp).
//
// Not thread safe: the sampler calls it on the main thread. Once warmed up a sample reuses its
// buffers and allocates nothing of its own.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KestruneKit/Core/Runtime.h"
#include "KestruneKit/SystemStats/SystemStatsReading.h"

namespace kestrune {

// One core's tick counters since boot; iowait counts as idle, irq, softirq and steal as system.
struct SystemStatsTicks {
    uint64_t user = 0;
    uint64_t nice = 0;
    uint64_t system = 0;
    uint64_t idle = 0;
    bool operator==(const SystemStatsTicks&) const = default;
};

class SystemStatsProbe {
public:
    struct NetworkCount {
        uint64_t received = 0;
        uint64_t sent = 0;
        uint64_t packets = 0;
    };
    struct Memory {
        uint64_t used = 0;
        uint64_t total = 0;
        SystemStatsPressure pressure = SystemStatsPressure::unknown;
        uint64_t swap = 0;
    };
    struct CPU {
        double total = 0;
        double user = 0;
        double system = 0;
        std::vector<SystemStatsCore> cores;
    };

    // A previous sample this old or older is not a baseline: it would average over the gap.
    static constexpr Seconds baselineLimit { 8.0 };

    // The platform's own probe; `home` is where disk space is measured.
    explicit SystemStatsProbe(std::string home);
    ~SystemStatsProbe();
    SystemStatsProbe(const SystemStatsProbe&) = delete;
    SystemStatsProbe& operator=(const SystemStatsProbe&) = delete;

    // Reads the parts asked for into the reading; figures not asked for are left as they were.
    void sample(SystemStatsParts parts, Date now, bool readDisk, SystemStatsReading& reading);

    // Portable steps, public for the tests.
    // Busy fraction between two readings of one core's counters, each difference taken modulo
    // 2^bits (the counters of some systems are 32 bits wide and wrap).
    [[nodiscard]] static double busy(const SystemStatsTicks& before, const SystemStatsTicks& after, unsigned bits);
    // Turns new counters into figures against the previous ones, then keeps them as the next
    // baseline. No previous counters, a different number of cores, or a baseline eight seconds
    // old or older give no figure (false, `cpu` zeroed with no cores).
    bool cpuFigures(const std::vector<SystemStatsTicks>& ticks, Date now, CPU& cpu);
    // Bytes per second since the previous count; zero at the first or when a counter went back.
    void networkRates(const NetworkCount& count, Date now, double& down, double& up);
    // The macOS formula over the VM statistics' page counts.
    [[nodiscard]] static uint64_t pagesUsed(uint64_t internal, uint64_t purgeable, uint64_t wired, uint64_t compressed, uint64_t pageSize,
                                            uint64_t physical);
    // The macOS kernel's memory-status level.
    [[nodiscard]] static SystemStatsPressure pressureFromLevel(int level);
    void setCoreKinds(std::vector<SystemStatsCoreKind> kinds) { kinds_ = std::move(kinds); }

private:
    // Per platform.
    [[nodiscard]] bool readTicks(std::vector<SystemStatsTicks>& ticks);
    [[nodiscard]] Memory readMemory();
    [[nodiscard]] std::optional<NetworkCount> readNetwork();
    [[nodiscard]] std::optional<double> readGPU();
    void readDisk(uint64_t& free, uint64_t& total);
    [[nodiscard]] std::vector<SystemStatsCoreKind> readCoreKinds(size_t cores);

    struct Platform;
    std::unique_ptr<Platform> platform_;
    std::string home_;
    unsigned tickBits_ = 64;
    std::vector<SystemStatsTicks> ticks_;
    std::vector<SystemStatsTicks> previousTicks_;
    std::optional<Date> previousTicksTime_;
    std::optional<NetworkCount> previousNetwork_;
    std::optional<Date> previousNetworkTime_;
    std::vector<SystemStatsCoreKind> kinds_;
    CPU cpu_;
};

} // namespace kestrune
