// The Storage and Activity monitors' readings: mounts as the kernel lists them, this machine's
// own file systems, and a busy process found among the busiest.

#include <csignal>

#include <gtest/gtest.h>

#include "KestruneKit/Core/ManualRuntime.h"
#include "KestruneKit/DevTools/KestruneActivity.h"
#include "KestruneKit/Process/ChildProcess.h"
#include "KestruneKit/SystemStats/ProcessesMonitor.h"
#include "KestruneKit/SystemStats/StorageMonitor.h"
#include "tests/helpers/Spawn.h"

namespace kestrune {
namespace {

TEST(StorageMonitor, KeepsEachRealFileSystemOnceAndLeavesTheKernelsAndSnapsOut)
{
    const std::string mountinfo =
        "22 1 0:21 / /proc rw,nosuid shared:12 - proc proc rw\n"
        "24 1 8:2 / / rw,relatime shared:1 - ext4 /dev/sda2 rw\n"
        "25 24 0:23 / /run rw,nosuid shared:5 - tmpfs tmpfs rw,size=1617008k\n"
        "26 24 8:1 / /boot/efi rw,relatime shared:7 - vfat /dev/sda1 rw\n"
        "27 24 8:2 /home /home rw,relatime shared:1 - ext4 /dev/sda2 rw\n"  // the same disk again
        "28 24 7:3 / /snap/core/123 ro,nodev shared:9 - squashfs /dev/loop3 ro\n"
        "29 24 8:17 / /media/ada/USB\\040STICK rw,nosuid shared:44 master:3 - vfat /dev/sdb1 rw\n"
        "30 24 0:50 / /mnt/share rw shared:50 - nfs4 server:/export rw\n"
        "garbage line\n";
    std::vector<MountEntry> entries = parseMountInfo(mountinfo);
    ASSERT_EQ(entries.size(), 8u);
    EXPECT_EQ(entries[6].mountPoint, "/media/ada/USB STICK");
    EXPECT_EQ(entries[6].device, "8:17");
    std::vector<MountEntry> real = realMounts(entries);
    std::vector<std::string> points;
    for (const MountEntry& entry : real)
        points.push_back(entry.mountPoint);
    EXPECT_EQ(points, (std::vector<std::string> { "/", "/boot/efi", "/media/ada/USB STICK" }));

    // This machine: its root is among what it reads, first, with its space.
    std::vector<StorageVolume> volumes = readStorage();
    ASSERT_FALSE(volumes.empty());
    if (volumes[0].mountPoint == "/") {
        EXPECT_EQ(volumes[0].name, "System");
        EXPECT_GT(volumes[0].total, 0u);
        EXPECT_LE(volumes[0].free, volumes[0].total);
    }

    EXPECT_EQ(byteText(999), "999 bytes");
    EXPECT_EQ(byteText(118'400'000'000), "118 GB");
    EXPECT_EQ(byteText(1'530'000'000'000), "1.5 TB");
    EXPECT_EQ(byteText(9'990'000), "10 MB");
    EXPECT_EQ(rateText(1'234'567), "1.2 MB/s");
    EXPECT_EQ(rateText(12), "0 KB/s");
}

TEST(ProcessesMonitor, FindsABusyProcessAmongTheBusiest)
{
    auto parsed = parseProcessStat("4242 (tmux: server) (x)) S 1 4242 4242 0 -1 4194560 2056 0 0 0 150 30 0 0 20 0 1 0 12345 "
                                   "9000000 812 18446744073709551615 1 1 0 0 0 0 0 4096 134433283 0 0 0 17 1 0 0 0 0 0");
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->pid, 4242);
    EXPECT_EQ(parsed->name, "tmux: server) (x)");
    EXPECT_EQ(parsed->ticks, 180u);
    EXPECT_EQ(parsed->residentPages, 812u);
    EXPECT_FALSE(parseProcessStat("4242 (short) S 1 2"));
    EXPECT_FALSE(parseProcessStat("no pid here"));

    ChildProcessOptions options;
    options.executable = "/bin/sh";
    options.arguments = { "-c", "while :; do :; done" };
    auto busy = test::spawn(options);
    ASSERT_TRUE(busy);
    ManualRuntime runtime(Date {});
    KestruneActivity activity;
    ProcessesMonitor monitor(runtime, activity);
    int readings = 0;
    monitor.onChange = [&] { ++readings; };
    monitor.refresh();
    ASSERT_TRUE(runtime.runUntil([&] { return readings == 1; }));
    EXPECT_TRUE(monitor.reading()->byProcessor.empty()) << "a first reading has nothing to compare";
    EXPECT_EQ(monitor.reading()->byMemory.size(), ProcessesMonitor::shown);
    usleep(300'000);
    monitor.refresh();
    ASSERT_TRUE(runtime.runUntil([&] { return readings == 2; }));
    const auto& top = monitor.reading()->byProcessor;
    auto found = std::find_if(top.begin(), top.end(), [&](const ProcessUse& use) { return use.pid == busy->pid(); });
    ASSERT_NE(found, top.end()) << "the spinning shell is not among the busiest";
    EXPECT_GT(found->processor, 0.3);
    EXPECT_EQ(found->name, "sh");
    busy->signal(SIGKILL);
    busy->wait();
}

} // namespace
} // namespace kestrune
