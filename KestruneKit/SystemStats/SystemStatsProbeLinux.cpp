#include "KestruneKit/SystemStats/SystemStatsProbe.h"

#include <charconv>

#include <dlfcn.h>
#include <glob.h>
#include <ifaddrs.h>
#include <linux/if_link.h>
#include <netpacket/packet.h>
#include <net/if.h>
#include <sys/statvfs.h>

#include "KestruneKit/SystemStats/SystemStatsLinuxFiles.h"

namespace kestrune {

namespace {

// NVIDIA's management library, loaded at run time where it is installed: never linked, so
// that machines without it start as they do.
struct NVML {
    using Init = int (*)();
    using Count = int (*)(unsigned*);
    using Handle = int (*)(unsigned, void**);
    struct Utilization {
        unsigned gpu;
        unsigned memory;
    };
    using Rates = int (*)(void*, Utilization*);

    void* library = nullptr;
    Rates rates = nullptr;
    std::vector<void*> devices;

    NVML()
    {
        library = ::dlopen("libnvidia-ml.so.1", RTLD_NOW | RTLD_LOCAL);
        if (!library)
            return;
        auto init = reinterpret_cast<Init>(::dlsym(library, "nvmlInit_v2"));
        auto count = reinterpret_cast<Count>(::dlsym(library, "nvmlDeviceGetCount_v2"));
        auto handle = reinterpret_cast<Handle>(::dlsym(library, "nvmlDeviceGetHandleByIndex_v2"));
        rates = reinterpret_cast<Rates>(::dlsym(library, "nvmlDeviceGetUtilizationRates"));
        unsigned devicesFound = 0;
        if (!init || !count || !handle || !rates || init() != 0 || count(&devicesFound) != 0)
            return;
        for (unsigned index = 0; index < devicesFound; ++index) {
            void* device = nullptr;
            if (handle(index, &device) == 0)
                devices.push_back(device);
        }
    }
    ~NVML()
    {
        if (library)
            ::dlclose(library);
    }
    std::optional<double> busiest()
    {
        std::optional<double> busiest;
        for (void* device : devices) {
            Utilization utilization {};
            if (rates(device, &utilization) == 0)
                busiest = std::max(busiest.value_or(0), utilization.gpu / 100.0);
        }
        return busiest;
    }
};

} // namespace

struct SystemStatsProbe::Platform {
    std::string buffer;
    std::vector<int> ids;
    std::vector<std::string> gpuFiles;
    std::unique_ptr<NVML> nvml;
};

SystemStatsProbe::SystemStatsProbe(std::string home) : platform_(std::make_unique<Platform>()), home_(std::move(home))
{
    // The kernel counts ticks in 64 bits here.
    tickBits_ = 64;
    glob_t found {};
    if (::glob("/sys/class/drm/card*/device/gpu_busy_percent", 0, nullptr, &found) == 0)
        for (size_t index = 0; index < found.gl_pathc; ++index)
            platform_->gpuFiles.emplace_back(found.gl_pathv[index]);
    ::globfree(&found);
    if (platform_->gpuFiles.empty())
        platform_->nvml = std::make_unique<NVML>();
}

SystemStatsProbe::~SystemStatsProbe() = default;

bool SystemStatsProbe::readTicks(std::vector<SystemStatsTicks>& ticks)
{
    auto text = readInto("/proc/stat", platform_->buffer);
    return text && parseProcStat(*text, ticks, platform_->ids);
}

SystemStatsProbe::Memory SystemStatsProbe::readMemory()
{
    auto text = readInto("/proc/meminfo", platform_->buffer);
    if (!text)
        return {};
    auto memory = parseMeminfo(*text);
    // Built once: a path this long would otherwise cost an allocation per sample.
    static const std::string pressure = "/proc/pressure/memory";
    auto stall = readInto(pressure, platform_->buffer);
    memory.pressure = memory.total ? parsePressureStall(stall) : SystemStatsPressure::unknown;
    return memory;
}

std::optional<SystemStatsProbe::NetworkCount> SystemStatsProbe::readNetwork()
{
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0)
        return std::nullopt;
    NetworkCount count;
    for (ifaddrs* entry = list; entry; entry = entry->ifa_next) {
        if (!entry->ifa_addr || entry->ifa_addr->sa_family != AF_PACKET || !entry->ifa_data || (entry->ifa_flags & IFF_LOOPBACK))
            continue;
        const auto* stats = static_cast<const rtnl_link_stats*>(entry->ifa_data);
        count.received += stats->rx_bytes;
        count.sent += stats->tx_bytes;
        count.packets += stats->rx_packets + stats->tx_packets;
    }
    ::freeifaddrs(list);
    return count;
}

std::optional<double> SystemStatsProbe::readGPU()
{
    std::optional<double> busiest;
    for (const auto& file : platform_->gpuFiles) {
        if (auto text = readInto(file, platform_->buffer)) {
            double percent = 0;
            if (std::from_chars(text->data(), text->data() + text->size(), percent).ec == std::errc())
                busiest = std::max(busiest.value_or(0), percent / 100);
        }
    }
    if (!busiest && platform_->nvml)
        busiest = platform_->nvml->busiest();
    return busiest;
}

void SystemStatsProbe::readDisk(uint64_t& free, uint64_t& total)
{
    struct statvfs info {};
    if (::statvfs(home_.c_str(), &info) != 0) {
        free = total = 0;
        return;
    }
    free = static_cast<uint64_t>(info.f_bavail) * info.f_frsize;
    total = static_cast<uint64_t>(info.f_blocks) * info.f_frsize;
}

std::vector<SystemStatsCoreKind> SystemStatsProbe::readCoreKinds(size_t /*cores*/)
{
    return kestrune::readCoreKinds("/sys", platform_->ids);
}

} // namespace kestrune
