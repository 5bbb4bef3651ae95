#pragma once
// OVERVIEW
// Samples the machine's load only while something shows it. Views hold SystemStatsDemandTokens
// naming the parts they want; the sampler reads the union of those parts, first 0.12 s after the
// first demand and then at the shortest interval asked for (kept between 0.5 and 60 s, with a
// fifth of it as tolerance), and stops its timer when the last token goes.
//
// TYPICAL USAGE
//   SystemStatsSampler sampler(runtime, std::make_unique<SystemStatsProbe>(homeFolder()));
//   sampler.onChange = [&] { draw(sampler.snapshot().reading); };
//   SystemStatsDemandToken token = sampler.demand(SystemStatsParts::cpu() | SystemStatsParts::memory(), Seconds(2));
//
// Main thread only: a sample reads a few small kernel files and takes tens of microseconds.

#include <functional>
#include <map>
#include <memory>
#include <optional>

#include "KestruneKit/Core/DemandToken.h"
#include "KestruneKit/Core/Runtime.h"
#include "KestruneKit/SystemStats/SystemStatsProbe.h"

namespace kestrune {

class SystemStatsSampler;

// Move-only; releasing it (or destroying it) withdraws its demand.
using SystemStatsDemandToken = DemandToken<SystemStatsSampler>;

class SystemStatsSampler {
public:
    static constexpr Seconds firstSampleDelay { 0.12 };
    static constexpr Seconds shortestInterval { 0.5 };
    static constexpr Seconds longestInterval { 60 };
    // Free disk space changes slowly, and reading it can wake a sleeping disk.
    static constexpr Seconds diskInterval { 60 };

    struct Demand {
        SystemStatsParts parts;
        Seconds interval { 2 };
    };
    struct Snapshot {
        SystemStatsReading reading;
        std::optional<Date> at;
        bool operator==(const Snapshot&) const = default;
    };

    SystemStatsSampler(Runtime& runtime, std::unique_ptr<SystemStatsProbe> probe, size_t historyCapacity = 90);
    ~SystemStatsSampler();
    SystemStatsSampler(const SystemStatsSampler&) = delete;
    SystemStatsSampler& operator=(const SystemStatsSampler&) = delete;

    [[nodiscard]] SystemStatsDemandToken demand(SystemStatsParts parts, Seconds interval = Seconds(2));
    [[nodiscard]] const Snapshot& snapshot() const { return snapshot_; }
    [[nodiscard]] const SystemStatsHistory& history() const { return history_; }
    std::function<void()> onChange;

    [[nodiscard]] SystemStatsParts parts() const;
    // The interval in use: the shortest asked for, clamped.
    [[nodiscard]] Seconds interval() const;
    [[nodiscard]] uint64_t generation() const { return generation_; }
    [[nodiscard]] bool isSampling() const { return timer_.isArmed() || firstSample_.isArmed(); }
    [[nodiscard]] uint64_t samples() const { return samples_; }

private:
    friend class DemandToken<SystemStatsSampler>;
    void release(uint64_t id);
    void restart();
    void sample();

    Runtime& runtime_;
    std::unique_ptr<SystemStatsProbe> probe_;
    TimerHandle timer_;
    TimerHandle firstSample_;
    std::optional<Date> lastHistoryTime_;
    Seconds lastHistoryInterval_ { 1.0 };
    std::optional<Date> lastDiskTime_;
    Seconds timerInterval_ { 0 };
    uint64_t generation_ = 0;
    std::map<uint64_t, Demand> demands_;
    uint64_t nextDemand_ = 1;
    SystemStatsHistory history_;
    Snapshot snapshot_;
    SystemStatsReading reading_;
    uint64_t samples_ = 0;
    std::shared_ptr<SystemStatsSampler*> self_;
};

} // namespace kestrune
