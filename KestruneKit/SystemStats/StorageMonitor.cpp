#include "KestruneKit/SystemStats/StorageMonitor.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include <fmt/format.h>

namespace kestrune {

namespace {

// mountinfo writes space, tab, newline and backslash as three octal figures after a backslash.
std::string unescape(std::string_view text)
{
    std::string plain;
    plain.reserve(text.size());
    for (size_t index = 0; index < text.size(); ++index) {
        if (text[index] == '\\' && index + 3 < text.size() + 1) {
            std::string_view digits = text.substr(index + 1, 3);
            if (digits.size() == 3 && std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '7'; })) {
                plain += static_cast<char>((digits[0] - '0') * 64 + (digits[1] - '0') * 8 + (digits[2] - '0'));
                index += 3;
                continue;
            }
        }
        plain += text[index];
    }
    return plain;
}

std::vector<std::string_view> fields(std::string_view line)
{
    std::vector<std::string_view> parts;
    size_t start = 0;
    while (start < line.size()) {
        size_t end = line.find(' ', start);
        if (end == std::string_view::npos)
            end = line.size();
        if (end > start)
            parts.push_back(line.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

std::string readSmallFile(const std::string& path)
{
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

bool isRemovable(const std::string& sysRoot, const MountEntry& mount)
{
    if (mount.mountPoint.starts_with("/media/") || mount.mountPoint.starts_with("/run/media/"))
        return true;
    std::error_code error;
    std::filesystem::path device = std::filesystem::canonical(sysRoot + "/dev/block/" + mount.device, error);
    if (error)
        return false;
    // USB and card-reader disks sit under a usb or mmc controller; a partition's flag is its disk's.
    std::string path = device.string();
    if (path.find("/usb") != std::string::npos || path.find("/mmc_host/") != std::string::npos)
        return true;
    for (const std::filesystem::path& folder : { device, device.parent_path() }) {
        std::string flag = readSmallFile((folder / "removable").string());
        if (!flag.empty())
            return flag[0] == '1';
    }
    return false;
}

std::string nameOf(const std::string& mountPoint)
{
    if (mountPoint == "/")
        return "System";
    if (mountPoint == "/home")
        return "Home";
    std::string name = std::filesystem::path(mountPoint).filename().string();
    return name.empty() ? mountPoint : name;
}

} // namespace

std::vector<MountEntry> parseMountInfo(std::string_view text)
{
    std::vector<MountEntry> entries;
    while (!text.empty()) {
        size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        std::vector<std::string_view> parts = fields(line);
        // id, parent, major:minor, root, mount point, options, optional fields…, "-", type, source, …
        auto separator = std::find(parts.begin(), parts.end(), std::string_view("-"));
        if (parts.size() < 6 || separator == parts.end() || separator - parts.begin() < 6 || parts.end() - separator < 3)
            continue;
        entries.push_back({ std::string(parts[2]), unescape(parts[4]), std::string(*(separator + 1)), unescape(*(separator + 2)) });
    }
    return entries;
}

std::vector<MountEntry> realMounts(const std::vector<MountEntry>& entries)
{
    std::vector<MountEntry> real;
    for (const MountEntry& entry : entries) {
        if (!entry.source.starts_with("/dev/") || entry.source.starts_with("/dev/loop") || entry.fileSystem == "squashfs")
            continue;
        auto same = std::find_if(real.begin(), real.end(), [&](const MountEntry& kept) { return kept.device == entry.device; });
        if (same == real.end())
            real.push_back(entry);
        else if (entry.mountPoint.size() < same->mountPoint.size())
            *same = entry;
    }
    return real;
}

std::vector<StorageVolume> readStorage(const std::string& procRoot, const std::string& sysRoot)
{
    std::vector<StorageVolume> volumes;
    for (const MountEntry& mount : realMounts(parseMountInfo(readSmallFile(procRoot + "/self/mountinfo")))) {
        // A container's bind-mounted files (/etc/hosts) sit on a disk too, but are no place to keep things.
        std::error_code error;
        if (!std::filesystem::is_directory(mount.mountPoint, error))
            continue;
        struct statvfs info {};
        if (::statvfs(mount.mountPoint.c_str(), &info) != 0 || info.f_blocks == 0)
            continue;
        StorageVolume volume;
        volume.name = nameOf(mount.mountPoint);
        volume.mountPoint = mount.mountPoint;
        volume.source = mount.source;
        volume.fileSystem = mount.fileSystem;
        volume.free = static_cast<uint64_t>(info.f_bavail) * info.f_frsize;
        volume.total = static_cast<uint64_t>(info.f_blocks) * info.f_frsize;
        volume.removable = isRemovable(sysRoot, mount);
        volumes.push_back(std::move(volume));
    }
    std::stable_partition(volumes.begin(), volumes.end(), [](const StorageVolume& volume) { return volume.mountPoint == "/"; });
    return volumes;
}

std::string byteText(uint64_t bytes)
{
    static constexpr const char* units[] = { "bytes", "KB", "MB", "GB", "TB", "PB" };
    double value = static_cast<double>(bytes);
    size_t unit = 0;
    while (value >= 1000 && unit + 1 < std::size(units)) {
        value /= 1000;
        ++unit;
    }
    if (unit == 0)
        return fmt::format("{} bytes", bytes);
    // One decimal below ten, where it says something.
    if (value < 10 && std::round(value * 10) / 10 < 10)
        return fmt::format("{:.1f} {}", value, units[unit]);
    return fmt::format("{:.0f} {}", value, units[unit]);
}

std::string rateText(double bytesPerSecond)
{
    if (!(bytesPerSecond >= 1000))
        return "0 KB/s";
    return byteText(static_cast<uint64_t>(bytesPerSecond)) + "/s";
}

} // namespace kestrune
