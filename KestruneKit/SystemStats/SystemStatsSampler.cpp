#include "KestruneKit/SystemStats/SystemStatsSampler.h"

#include <algorithm>
#include <utility>

namespace kestrune {

SystemStatsSampler::SystemStatsSampler(Runtime& runtime, std::unique_ptr<SystemStatsProbe> probe, size_t historyCapacity)
    : runtime_(runtime), probe_(std::move(probe)), history_(historyCapacity), self_(std::make_shared<SystemStatsSampler*>(this))
{
}

SystemStatsSampler::~SystemStatsSampler() { self_.reset(); }

SystemStatsDemandToken SystemStatsSampler::demand(SystemStatsParts parts, Seconds interval)
{
    uint64_t id = nextDemand_++;
    bool starting = demands_.empty();
    demands_[id] = { parts, interval };
    if (starting) {
        ++generation_;
        firstSample_ = runtime_.schedule(firstSampleDelay, TimerRepeat::once, Seconds(0), [this] {
            sample();
            restart();
        });
    } else if (!firstSample_.isArmed()) {
        restart();
    }
    return SystemStatsDemandToken(self_, id);
}

void SystemStatsSampler::release(uint64_t id)
{
    demands_.erase(id);
    if (!demands_.empty()) {
        if (!firstSample_.isArmed())
            restart();
        return;
    }
    timer_.cancel();
    firstSample_.cancel();
    timerInterval_ = Seconds(0);
    ++generation_;
}

SystemStatsParts SystemStatsSampler::parts() const
{
    SystemStatsParts parts;
    for (const auto& [id, demand] : demands_)
        parts = parts | demand.parts;
    return parts;
}

Seconds SystemStatsSampler::interval() const
{
    Seconds shortest = longestInterval;
    for (const auto& [id, demand] : demands_)
        shortest = std::min(shortest, demand.interval);
    return std::clamp(shortest, shortestInterval, longestInterval);
}

void SystemStatsSampler::restart()
{
    Seconds wanted = interval();
    if (timer_.isArmed() && wanted == timerInterval_)
        return;
    timerInterval_ = wanted;
    timer_ = runtime_.schedule(wanted, TimerRepeat::repeating, Runtime::defaultTolerance(wanted), [this] { sample(); });
}

void SystemStatsSampler::sample()
{
    if (demands_.empty())
        return;
    Date now = runtime_.now();
    auto wanted = parts();
    bool readDisk = wanted.contains(SystemStatsParts::disk()) && (!lastDiskTime_ || secondsBetween(*lastDiskTime_, now) >= diskInterval);
    if (readDisk)
        lastDiskTime_ = now;
    probe_->sample(wanted, now, readDisk, reading_);
    ++samples_;
    if (!lastHistoryTime_ || secondsBetween(*lastHistoryTime_, now) >= lastHistoryInterval_) {
        history_.append(reading_);
        lastHistoryTime_ = now;
        lastHistoryInterval_ = std::max(Seconds(1.0), interval());
    }
    snapshot_.reading = reading_;
    snapshot_.at = now;
    if (onChange)
        onChange();
}

} // namespace kestrune
