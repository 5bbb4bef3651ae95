#include "KestruneKit/SystemStats/SystemStatsProbe.h"

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>
#include <ifaddrs.h>
#include <mach/mach.h>
#include <net/if.h>
#include <net/if_var.h>
#include <sys/mount.h>
#include <sys/sysctl.h>

namespace kestrune {

struct SystemStatsProbe::Platform {
    mach_port_t host = mach_host_self();
    std::vector<io_service_t> accelerators;
    ~Platform()
    {
        for (auto service : accelerators)
            IOObjectRelease(service);
    }
};

SystemStatsProbe::SystemStatsProbe(std::string home) : platform_(std::make_unique<Platform>()), home_(std::move(home))
{
    // Mach's tick counters are 32 bits wide and wrap.
    tickBits_ = 32;
    io_iterator_t iterator = 0;
    if (IOServiceGetMatchingServices(kIOMainPortDefault, IOServiceMatching("IOAccelerator"), &iterator) == KERN_SUCCESS) {
        while (io_service_t service = IOIteratorNext(iterator))
            platform_->accelerators.push_back(service);
        IOObjectRelease(iterator);
    }
}

SystemStatsProbe::~SystemStatsProbe() = default;

bool SystemStatsProbe::readTicks(std::vector<SystemStatsTicks>& ticks)
{
    natural_t count = 0;
    processor_info_array_t info = nullptr;
    mach_msg_type_number_t infoCount = 0;
    if (host_processor_info(platform_->host, PROCESSOR_CPU_LOAD_INFO, &count, &info, &infoCount) != KERN_SUCCESS)
        return false;
    ticks.resize(count);
    for (natural_t core = 0; core < count; ++core) {
        const auto* load = reinterpret_cast<const uint32_t*>(info) + core * CPU_STATE_MAX;
        ticks[core] = { load[CPU_STATE_USER], load[CPU_STATE_NICE], load[CPU_STATE_SYSTEM], load[CPU_STATE_IDLE] };
    }
    vm_deallocate(mach_task_self(), reinterpret_cast<vm_address_t>(info), infoCount * sizeof(integer_t));
    return true;
}

SystemStatsProbe::Memory SystemStatsProbe::readMemory()
{
    Memory memory;
    vm_statistics64_data_t stats {};
    mach_msg_type_number_t count = HOST_VM_INFO64_COUNT;
    if (host_statistics64(platform_->host, HOST_VM_INFO64, reinterpret_cast<host_info64_t>(&stats), &count) != KERN_SUCCESS)
        return memory;
    uint64_t physical = 0;
    size_t size = sizeof physical;
    sysctlbyname("hw.memsize", &physical, &size, nullptr, 0);
    memory.total = physical;
    memory.used = pagesUsed(stats.internal_page_count, stats.purgeable_count, stats.wire_count, stats.compressor_page_count, vm_kernel_page_size,
                            physical);
    int level = 0;
    size = sizeof level;
    memory.pressure = sysctlbyname("kern.memorystatus_vm_pressure_level", &level, &size, nullptr, 0) == 0 ? pressureFromLevel(level)
                                                                                                          : SystemStatsPressure::normal;
    xsw_usage swap {};
    size = sizeof swap;
    memory.swap = sysctlbyname("vm.swapusage", &swap, &size, nullptr, 0) == 0 ? swap.xsu_used : 0;
    return memory;
}

std::optional<SystemStatsProbe::NetworkCount> SystemStatsProbe::readNetwork()
{
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0)
        return std::nullopt;
    NetworkCount count;
    for (ifaddrs* entry = list; entry; entry = entry->ifa_next) {
        if (!entry->ifa_addr || entry->ifa_addr->sa_family != AF_LINK || !entry->ifa_data || (entry->ifa_flags & IFF_LOOPBACK))
            continue;
        const auto* data = static_cast<const if_data*>(entry->ifa_data);
        count.received += data->ifi_ibytes;
        count.sent += data->ifi_obytes;
        count.packets += data->ifi_ipackets + data->ifi_opackets;
    }
    freeifaddrs(list);
    return count;
}

std::optional<double> SystemStatsProbe::readGPU()
{
    std::optional<double> busiest;
    for (auto service : platform_->accelerators) {
        auto statistics = static_cast<CFDictionaryRef>(
            IORegistryEntryCreateCFProperty(service, CFSTR("PerformanceStatistics"), kCFAllocatorDefault, 0));
        if (!statistics)
            continue;
        if (CFGetTypeID(statistics) == CFDictionaryGetTypeID()) {
            auto value = static_cast<CFNumberRef>(CFDictionaryGetValue(statistics, CFSTR("Device Utilization %")));
            int64_t percent = 0;
            if (value && CFGetTypeID(value) == CFNumberGetTypeID() && CFNumberGetValue(value, kCFNumberSInt64Type, &percent))
                busiest = std::max(busiest.value_or(0), static_cast<double>(percent) / 100);
        }
        CFRelease(statistics);
    }
    return busiest;
}

void SystemStatsProbe::readDisk(uint64_t& free, uint64_t& total)
{
    struct statfs info {};
    if (statfs(home_.c_str(), &info) != 0) {
        free = total = 0;
        return;
    }
    free = static_cast<uint64_t>(info.f_bavail) * info.f_bsize;
    total = static_cast<uint64_t>(info.f_blocks) * info.f_bsize;
}

std::vector<SystemStatsCoreKind> SystemStatsProbe::readCoreKinds(size_t cores)
{
    std::vector<SystemStatsCoreKind> kinds(cores, SystemStatsCoreKind::unknown);
    io_registry_entry_t cpus = IORegistryEntryFromPath(kIOMainPortDefault, "IODeviceTree:/cpus");
    if (!cpus)
        return kinds;
    io_iterator_t children = 0;
    if (IORegistryEntryGetChildIterator(cpus, kIODeviceTreePlane, &children) == KERN_SUCCESS) {
        while (io_registry_entry_t cpu = IOIteratorNext(children)) {
            auto id = static_cast<CFDataRef>(IORegistryEntryCreateCFProperty(cpu, CFSTR("logical-cpu-id"), kCFAllocatorDefault, 0));
            auto cluster = static_cast<CFDataRef>(IORegistryEntryCreateCFProperty(cpu, CFSTR("cluster-type"), kCFAllocatorDefault, 0));
            uint32_t index = UINT32_MAX;
            if (id && CFGetTypeID(id) == CFDataGetTypeID() && CFDataGetLength(id) >= 4)
                CFDataGetBytes(id, CFRangeMake(0, 4), reinterpret_cast<UInt8*>(&index));
            if (index < cores && cluster && CFGetTypeID(cluster) == CFDataGetTypeID() && CFDataGetLength(cluster) >= 1) {
                UInt8 first = CFDataGetBytePtr(cluster)[0];
                kinds[index] = first == 'E' ? SystemStatsCoreKind::efficiency : first == 'P' ? SystemStatsCoreKind::performance
                                                                                                : SystemStatsCoreKind::unknown;
            }
            if (id)
                CFRelease(id);
            if (cluster)
                CFRelease(cluster);
            IOObjectRelease(cpu);
        }
        IOObjectRelease(children);
    }
    IOObjectRelease(cpus);
    return kinds;
}

} // namespace kestrune
