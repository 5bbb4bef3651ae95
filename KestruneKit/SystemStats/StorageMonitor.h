#pragma once
// OVERVIEW
// The Storage widget's data: the free space of each real file system mounted on the machine,
// read every minute while the widget is on screen. On Linux the mounts come from
// /proc/self/mountinfo; a "real" one is backed by a block device (/dev/…): the kernel's own file
// systems, tmpfs, snap images (squashfs on loop devices) and bind mounts of a disk already listed
// are left out, and so are network file systems, whose statfs can hang for minutes when the
// server is gone. Removable drives (USB sticks and disks, SD cards) are marked, for Eject.
//
// TYPICAL USAGE
//   StorageMonitor monitor(runtime);
//   monitor.onChange = [&] { redraw(*monitor.reading()); };
//   monitor.poller().setWanted(tileId, true);
//
// Main thread only; the reading runs on the monitor's own queue.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "KestruneKit/DevTools/PolledMonitor.h"

namespace kestrune {

struct MountEntry {
    std::string device;      // "8:1", the kernel's major:minor
    std::string mountPoint;  // unescaped
    std::string fileSystem;  // "ext4"
    std::string source;      // "/dev/sda1"
    bool operator==(const MountEntry&) const = default;
};

// The lines of a mountinfo text; lines that do not parse are skipped.
[[nodiscard]] std::vector<MountEntry> parseMountInfo(std::string_view text);
// The real file systems among them, each device once (at its shortest mount point), in order.
[[nodiscard]] std::vector<MountEntry> realMounts(const std::vector<MountEntry>& entries);

struct StorageVolume {
    std::string name;        // "System", "Home", or the mount point's last part ("USB STICK")
    std::string mountPoint;
    std::string source;
    std::string fileSystem;
    uint64_t free = 0;       // bytes the user may still write
    uint64_t total = 0;
    bool removable = false;
    bool operator==(const StorageVolume&) const = default;
};

// One blocking reading of the machine: its real file systems with their space, the one holding
// "/" first. `procRoot` and `sysRoot` let a test give its own files.
[[nodiscard]] std::vector<StorageVolume> readStorage(const std::string& procRoot = "/proc", const std::string& sysRoot = "/sys");

// "118 GB", "1.5 TB", "640 MB": decimal units, as disks are sold and desktops show them.
[[nodiscard]] std::string byteText(uint64_t bytes);
// "1.2 MB/s", "340 KB/s", "0 KB/s".
[[nodiscard]] std::string rateText(double bytesPerSecond);

class StorageMonitor : public PolledMonitor<std::vector<StorageVolume>> {
public:
    static constexpr Seconds interval { 60 };

    explicit StorageMonitor(Runtime& runtime, KestruneActivity& activity = KestruneActivity::shared())
        : PolledMonitor(runtime, activity, interval, [] { return readStorage(); })
    {
    }
};

} // namespace kestrune
