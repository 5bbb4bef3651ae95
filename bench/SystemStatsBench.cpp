// One steady-state sample of CPU, memory and network, beside the floor: merely reading the same
// kernel files and interface list. `allocations` counts C++ heap allocations per sample once
// warmed up (getifaddrs's own malloc inside glibc is not counted, and is part of the floor).

#include <atomic>
#include <cstdlib>
#include <new>

#include <ifaddrs.h>

#include <benchmark/benchmark.h>

#include "KestruneKit/SystemStats/SystemStatsLinuxFiles.h"
#include "KestruneKit/SystemStats/SystemStatsProbe.h"

// The counting operator new below pairs with free, as it allocates with malloc.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

namespace {

std::atomic<uint64_t> allocations { 0 };

} // namespace

void* operator new(size_t size)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* memory = std::malloc(size ? size : 1))
        return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t) noexcept { std::free(memory); }

namespace {

using namespace kestrune;

void BM_SampleCPUMemoryNetwork(benchmark::State& state)
{
    SystemStatsProbe probe("/");
    SystemStatsReading reading;
    auto parts = SystemStatsParts::cpu() | SystemStatsParts::memory() | SystemStatsParts::network();
    Date now = std::chrono::system_clock::now();
    for (int warm = 0; warm < 3; ++warm) {
        now = dateAfter(now, Seconds(1));
        probe.sample(parts, now, false, reading);
    }
    uint64_t before = allocations.load();
    for (auto _ : state) {
        now = dateAfter(now, Seconds(1));
        probe.sample(parts, now, false, reading);
        benchmark::DoNotOptimize(reading);
    }
    state.counters["allocations"] = static_cast<double>(allocations.load() - before) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_SampleCPUMemoryNetwork)->Unit(benchmark::kMicrosecond);

void BM_ReadTheSameKernelFiles(benchmark::State& state)
{
    std::string buffer;
    for (auto _ : state) {
        for (const char* path : { "/proc/stat", "/proc/meminfo", "/proc/pressure/memory" })
            benchmark::DoNotOptimize(readInto(path, buffer));
        ifaddrs* list = nullptr;
        if (::getifaddrs(&list) == 0)
            ::freeifaddrs(list);
        benchmark::DoNotOptimize(list);
    }
}
BENCHMARK(BM_ReadTheSameKernelFiles)->Unit(benchmark::kMicrosecond);

} // namespace
