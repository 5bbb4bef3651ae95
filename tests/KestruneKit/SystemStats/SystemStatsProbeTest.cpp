#include <thread>

#include <unistd.h>

#include <gtest/gtest.h>

#include "KestruneKit/Core/AtomicFile.h"
#include "KestruneKit/Core/ManualRuntime.h"
#include "KestruneKit/SystemStats/SystemStatsLinuxFiles.h"
#include "KestruneKit/SystemStats/SystemStatsSampler.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

std::string data(const std::string& machine) { return std::string(KESTRUNE_TEST_SOURCES) + "/data/" + machine; }

using Kind = SystemStatsCoreKind;

TEST(SystemStatsLinuxFiles, ParseRecordedMachines)
{
    struct Machine {
        std::string name;
        size_t cores;
        Kind first;
        Kind last;
        SystemStatsPressure pressure;
        uint64_t swap;
    };
    for (const auto& machine : { Machine { "hybrid-intel", 16, Kind::performance, Kind::efficiency, SystemStatsPressure::warning, 388604 * 1024ull },
                                 Machine { "arm", 8, Kind::efficiency, Kind::performance, SystemStatsPressure::critical, 0 },
                                 Machine { "no-pressure", 4, Kind::unknown, Kind::unknown, SystemStatsPressure::normal, 0 } }) {
        SCOPED_TRACE(machine.name);
        std::vector<SystemStatsTicks> ticks;
        std::vector<int> ids;
        ASSERT_TRUE(parseProcStat(test::readFile(data(machine.name) + "/proc/stat"), ticks, ids));
        ASSERT_EQ(ticks.size(), machine.cores) << "the aggregate cpu line is not a core";
        EXPECT_EQ(ids.back(), static_cast<int>(machine.cores) - 1);
        auto kinds = readCoreKinds(data(machine.name) + "/sys", ids);
        EXPECT_EQ(kinds.front(), machine.first);
        EXPECT_EQ(kinds.back(), machine.last);

        auto memory = parseMeminfo(test::readFile(data(machine.name) + "/proc/meminfo"));
        EXPECT_EQ(memory.swap, machine.swap);
        EXPECT_LE(memory.used, memory.total);
        std::string stall;
        auto pressure = readInto(data(machine.name) + "/proc/pressure/memory", stall);
        EXPECT_EQ(parsePressureStall(pressure), machine.pressure);
    }
    std::vector<SystemStatsTicks> ticks;
    std::vector<int> ids;
    // user nice system idle iowait irq softirq steal: iowait is idle, the rest of the tail system.
    ASSERT_TRUE(parseProcStat("cpu  1 2 3 4\ncpu3 10 20 30 40 5 6 7 8 0 0\n", ticks, ids));
    EXPECT_EQ(ticks[0], (SystemStatsTicks { 10, 20, 51, 45 }));
    EXPECT_EQ(ids, std::vector<int> { 3 });
    EXPECT_EQ(parseCPUList("0-2,5,7-8\n"), (std::vector<int> { 0, 1, 2, 5, 7, 8 }));
    EXPECT_EQ(parseMeminfo("MemTotal: 100 kB\n").total, 0u) << "without MemAvailable there is no figure";
}

TEST(SystemStatsProbe, BusyFractionsWrapAndNeedARecentBaseline)
{
    // 32-bit counters that wrapped between the samples still give the right difference.
    SystemStatsTicks before { 0xFFFFFFF0u, 0, 100, 1000 }, after { 0x10u, 0, 132, 1032 };
    EXPECT_DOUBLE_EQ(SystemStatsProbe::busy(before, after, 32), 64.0 / 96.0);
    EXPECT_EQ(SystemStatsProbe::busy(before, before, 64), 0) << "no ticks at all is idle, not a division by zero";

    SystemStatsProbe probe("/");
    probe.setCoreKinds({ Kind::performance, Kind::efficiency });
    Date start = Date(std::chrono::seconds(1787130000));
    SystemStatsProbe::CPU cpu;
    std::vector<SystemStatsTicks> first { { 100, 0, 100, 800 }, { 0, 0, 0, 1000 } };
    EXPECT_FALSE(probe.cpuFigures(first, start, cpu)) << "the first sample is a baseline";
    EXPECT_TRUE(cpu.cores.empty());
    std::vector<SystemStatsTicks> second { { 150, 0, 150, 800 }, { 25, 0, 0, 1075 } };
    ASSERT_TRUE(probe.cpuFigures(second, dateAfter(start, Seconds(1)), cpu));
    ASSERT_EQ(cpu.cores.size(), 2u);
    EXPECT_DOUBLE_EQ(cpu.cores[0].busy, 1.0);
    EXPECT_EQ(cpu.cores[1].kind, Kind::efficiency);
    EXPECT_DOUBLE_EQ(cpu.cores[1].busy, 0.25);
    EXPECT_DOUBLE_EQ(cpu.total, 125.0 / 200.0);
    EXPECT_DOUBLE_EQ(cpu.user, 75.0 / 200.0);
    EXPECT_DOUBLE_EQ(cpu.system, 50.0 / 200.0);

    // Nine seconds later: a new baseline, no figure; one second after that, a figure again.
    EXPECT_FALSE(probe.cpuFigures(first, dateAfter(start, Seconds(10)), cpu));
    EXPECT_TRUE(probe.cpuFigures(second, dateAfter(start, Seconds(11)), cpu));
    EXPECT_FALSE(probe.cpuFigures({ second[0] }, dateAfter(start, Seconds(12)), cpu)) << "the number of cores changed";

    EXPECT_EQ(SystemStatsProbe::pressureFromLevel(1), SystemStatsPressure::normal);
    EXPECT_EQ(SystemStatsProbe::pressureFromLevel(2), SystemStatsPressure::warning);
    EXPECT_EQ(SystemStatsProbe::pressureFromLevel(4), SystemStatsPressure::critical);
    EXPECT_EQ(SystemStatsProbe::pagesUsed(1000, 200, 100, 50, 4096, 1 << 30), 950u * 4096);
    EXPECT_EQ(SystemStatsProbe::pagesUsed(1000000, 0, 0, 0, 16384, 1 << 30), 1u << 30) << "never more than physical memory";

    double down = 0, up = 0;
    probe.networkRates({ 1000, 500, 0 }, start, down, up);
    probe.networkRates({ 3000, 1500, 0 }, dateAfter(start, Seconds(2)), down, up);
    EXPECT_EQ(down, 1000);
    EXPECT_EQ(up, 500);
    probe.networkRates({ 10, 10, 0 }, dateAfter(start, Seconds(3)), down, up);
    EXPECT_EQ(down, 0) << "a counter that went back (an interface gone) is a new baseline";
}

TEST(SystemStatsProbe, ReadsThisMachine)
{
    ManualRuntime runtime;
    SystemStatsProbe probe(homeFolder());
    SystemStatsReading reading;
    probe.sample(SystemStatsParts::all(), runtime.now(), true, reading);
    EXPECT_TRUE(reading.cores.empty());
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    probe.sample(SystemStatsParts::all(), dateAfter(runtime.now(), Seconds(0.05)), true, reading);

    std::string buffer;
    auto meminfo = parseMeminfo(*readInto("/proc/meminfo", buffer));
    EXPECT_EQ(reading.memoryTotal, meminfo.total);
    EXPECT_GT(reading.memoryUsed, 0u);
    EXPECT_LE(reading.memoryUsed, reading.memoryTotal);
    EXPECT_NE(reading.pressure, SystemStatsPressure::unknown);
    EXPECT_EQ(reading.cores.size(), parseCPUList(*readInto("/sys/devices/system/cpu/online", buffer)).size());
    for (const auto& core : reading.cores) {
        EXPECT_GE(core.busy, 0);
        EXPECT_LE(core.busy, 1);
    }
    EXPECT_GE(reading.cpu, 0);
    EXPECT_LE(reading.cpu, 1);
    EXPECT_GT(reading.diskTotal, 0u);
    EXPECT_LE(reading.diskFree, reading.diskTotal);
    EXPECT_GE(reading.down, 0);
}

class SystemStatsSamplerTest : public ::testing::Test {
protected:
    ManualRuntime runtime;
    SystemStatsSampler sampler { runtime, std::make_unique<SystemStatsProbe>("/"), 4 };
};

TEST_F(SystemStatsSamplerTest, SamplesFirstAfterAMomentThenAtTheClampedInterval)
{
    EXPECT_FALSE(sampler.isSampling());
    auto token = sampler.demand(SystemStatsParts::cpu(), Seconds(0.1));
    runtime.advance(Seconds(0.11));
    EXPECT_EQ(sampler.samples(), 0u);
    runtime.advance(Seconds(0.01));
    EXPECT_EQ(sampler.samples(), 1u) << "the first sample comes 0.12 s after the demand";
    ASSERT_EQ(runtime.timers().size(), 1u);
    EXPECT_DOUBLE_EQ(runtime.timers()[0].interval.count(), 0.5) << "0.1 s is raised to 0.5 s";
    EXPECT_DOUBLE_EQ(runtime.timers()[0].tolerance.count(), 0.1);
    runtime.advance(Seconds(2));
    EXPECT_EQ(sampler.samples(), 5u);
    EXPECT_EQ(sampler.history().size(), 3u) << "history keeps a reading a second at most";

    // A second, slower demand changes nothing; once only it is left, 120 s is lowered to 60 s.
    auto slow = sampler.demand(SystemStatsParts::disk(), Seconds(120));
    EXPECT_EQ(sampler.parts(), SystemStatsParts::cpu() | SystemStatsParts::disk());
    token.release();
    EXPECT_DOUBLE_EQ(runtime.timers()[0].interval.count(), 60);
    EXPECT_EQ(sampler.parts(), SystemStatsParts::disk());
    auto generation = sampler.generation();
    slow.release();
    EXPECT_TRUE(runtime.timers().empty()) << "no timer once the last token goes";
    EXPECT_EQ(sampler.generation(), generation + 1);
}

TEST_F(SystemStatsSamplerTest, AGapOfNineSecondsGivesNoCPUFigureAndTheNextSampleDoes)
{
    auto token = sampler.demand(SystemStatsParts::cpu(), Seconds(1));
    runtime.advance(Seconds(1.12));
    ASSERT_EQ(sampler.samples(), 2u);
    EXPECT_FALSE(sampler.snapshot().reading.cores.empty());
    token.release();
    runtime.advance(Seconds(9));
    token = sampler.demand(SystemStatsParts::cpu(), Seconds(1));
    runtime.advance(Seconds(0.12));
    EXPECT_TRUE(sampler.snapshot().reading.cores.empty());
    runtime.advance(Seconds(1));
    EXPECT_FALSE(sampler.snapshot().reading.cores.empty());
}

} // namespace
} // namespace kestrune
