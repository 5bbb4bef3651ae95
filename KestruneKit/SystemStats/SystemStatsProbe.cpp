#include "KestruneKit/SystemStats/SystemStatsProbe.h"

#include <algorithm>

namespace kestrune {

namespace {

uint64_t difference(uint64_t before, uint64_t after, unsigned bits)
{
    uint64_t mask = bits >= 64 ? ~uint64_t(0) : (uint64_t(1) << bits) - 1;
    return (after - before) & mask;
}

} // namespace

double SystemStatsProbe::busy(const SystemStatsTicks& before, const SystemStatsTicks& after, unsigned bits)
{
    double working = static_cast<double>(difference(before.user, after.user, bits) + difference(before.nice, after.nice, bits)
                                         + difference(before.system, after.system, bits));
    double all = working + static_cast<double>(difference(before.idle, after.idle, bits));
    return all > 0 ? working / all : 0;
}

bool SystemStatsProbe::cpuFigures(const std::vector<SystemStatsTicks>& ticks, Date now, CPU& cpu)
{
    bool usable = previousTicksTime_ && previousTicks_.size() == ticks.size() && !ticks.empty()
        && secondsBetween(*previousTicksTime_, now) < baselineLimit && now >= *previousTicksTime_;
    cpu.total = cpu.user = cpu.system = 0;
    cpu.cores.clear();
    if (usable) {
        double user = 0, system = 0, all = 0;
        for (size_t core = 0; core < ticks.size(); ++core) {
            const auto& was = previousTicks_[core];
            const auto& is = ticks[core];
            auto kind = core < kinds_.size() ? kinds_[core] : SystemStatsCoreKind::unknown;
            cpu.cores.push_back({ busy(was, is, tickBits_), kind });
            double coreUser = static_cast<double>(difference(was.user, is.user, tickBits_) + difference(was.nice, is.nice, tickBits_));
            double coreSystem = static_cast<double>(difference(was.system, is.system, tickBits_));
            user += coreUser;
            system += coreSystem;
            all += coreUser + coreSystem + static_cast<double>(difference(was.idle, is.idle, tickBits_));
        }
        if (all > 0) {
            cpu.user = user / all;
            cpu.system = system / all;
            cpu.total = (user + system) / all;
        }
    }
    previousTicks_.assign(ticks.begin(), ticks.end());
    previousTicksTime_ = now;
    return usable;
}

void SystemStatsProbe::networkRates(const NetworkCount& count, Date now, double& down, double& up)
{
    down = up = 0;
    if (previousNetwork_ && previousNetworkTime_ && count.received >= previousNetwork_->received && count.sent >= previousNetwork_->sent) {
        double seconds = secondsBetween(*previousNetworkTime_, now).count();
        if (seconds > 0) {
            down = static_cast<double>(count.received - previousNetwork_->received) / seconds;
            up = static_cast<double>(count.sent - previousNetwork_->sent) / seconds;
        }
    }
    previousNetwork_ = count;
    previousNetworkTime_ = now;
}

uint64_t SystemStatsProbe::pagesUsed(uint64_t internal, uint64_t purgeable, uint64_t wired, uint64_t compressed, uint64_t pageSize,
                                     uint64_t physical)
{
    uint64_t pages = (internal - std::min(internal, purgeable)) + wired + compressed;
    return std::min(physical, pages * pageSize);
}

SystemStatsPressure SystemStatsProbe::pressureFromLevel(int level)
{
    if (level >= 4)
        return SystemStatsPressure::critical;
    return level >= 2 ? SystemStatsPressure::warning : SystemStatsPressure::normal;
}

void SystemStatsProbe::sample(SystemStatsParts parts, Date now, bool readDisk, SystemStatsReading& reading)
{
    if (parts.contains(SystemStatsParts::cpu())) {
        if (!readTicks(ticks_))
            ticks_.clear();
        if (kinds_.size() != ticks_.size())
            kinds_ = readCoreKinds(ticks_.size());
        cpuFigures(ticks_, now, cpu_);
        reading.cpu = cpu_.total;
        reading.cpuUser = cpu_.user;
        reading.cpuSystem = cpu_.system;
        reading.cores.assign(cpu_.cores.begin(), cpu_.cores.end());
    }
    if (parts.contains(SystemStatsParts::memory())) {
        auto memory = readMemory();
        reading.memoryUsed = memory.used;
        reading.memoryTotal = memory.total;
        reading.pressure = memory.pressure;
        reading.swapUsed = memory.swap;
    }
    if (parts.contains(SystemStatsParts::network())) {
        if (auto count = readNetwork())
            networkRates(*count, now, reading.down, reading.up);
        else
            reading.down = reading.up = 0;
    }
    if (parts.contains(SystemStatsParts::gpu()))
        reading.gpu = readGPU();
    if (parts.contains(SystemStatsParts::disk()) && readDisk)
        this->readDisk(reading.diskFree, reading.diskTotal);
}

} // namespace kestrune
