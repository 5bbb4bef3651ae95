// The /proc and /sys files the sampler and the dev-server finder read, and the emulator's and
// simctl's lists. The first byte picks the reader.
#include "KestruneKit/DevServers/DevServersMonitor.h"
#include "KestruneKit/Simulators/SimulatorsMonitor.h"
#include "KestruneKit/SystemStats/SystemStatsLinuxFiles.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace kestrune;
    if (size == 0)
        return 0;
    auto input = fuzz::text(data + 1, size - 1);
    switch (data[0] % 7) {
    case 0: {
        std::vector<SystemStatsTicks> ticks;
        std::vector<int> ids;
        (void)parseProcStat(input, ticks, ids);
        if (ticks.size() != ids.size())
            __builtin_trap();
        break;
    }
    case 1:
        (void)parseMeminfo(input);
        break;
    case 2:
        (void)parsePressureStall(input);
        break;
    case 3:
        (void)parseCPUList(input);
        break;
    case 4:
        (void)parseListeningSockets(input);
        break;
    case 5:
        (void)parseSimctlDevices(input);
        break;
    default:
        (void)SimulatorsReader::parseDeviceNames(input);
        (void)SimulatorsReader::parseEmulatorSerials(input);
        break;
    }
    return 0;
}
