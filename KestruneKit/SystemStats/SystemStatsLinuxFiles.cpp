#include "KestruneKit/SystemStats/SystemStatsLinuxFiles.h"

#include <algorithm>
#include <cerrno>
#include <charconv>

#include <fcntl.h>
#include <unistd.h>

#include "KestruneKit/Core/UniqueFd.h"

namespace kestrune {

namespace {

// The next whitespace-separated number after `at`, moving `at` past it.
uint64_t number(std::string_view text, size_t& at)
{
    while (at < text.size() && (text[at] == ' ' || text[at] == '\t'))
        ++at;
    uint64_t value = 0;
    auto [end, error] = std::from_chars(text.data() + at, text.data() + text.size(), value);
    at = static_cast<size_t>(end - text.data());
    return error == std::errc() ? value : 0;
}

std::optional<uint64_t> field(std::string_view text, std::string_view name)
{
    size_t at = 0;
    while ((at = text.find(name, at)) != std::string_view::npos) {
        if ((at == 0 || text[at - 1] == '\n') && at + name.size() < text.size() && text[at + name.size()] == ':') {
            at += name.size() + 1;
            return number(text, at);
        }
        at += name.size();
    }
    return std::nullopt;
}

// "avg10=1.23" on the line that starts with `kind`.
double average10(std::string_view text, std::string_view kind)
{
    size_t line = 0;
    while (!text.substr(line).starts_with(kind)) {
        line = text.find('\n', line);
        if (line == std::string_view::npos)
            return 0;
        ++line;
    }
    size_t at = text.find("avg10=", line);
    if (at == std::string_view::npos)
        return 0;
    at += 6;
    double value = 0;
    auto [end, error] = std::from_chars(text.data() + at, text.data() + text.size(), value);
    return error == std::errc() ? value : 0;
}

} // namespace

bool parseProcStat(std::string_view text, std::vector<SystemStatsTicks>& ticks, std::vector<int>& ids)
{
    ticks.clear();
    ids.clear();
    size_t line = 0;
    while (line < text.size()) {
        size_t end = text.find('\n', line);
        if (end == std::string_view::npos)
            end = text.size();
        std::string_view row = text.substr(line, end - line);
        line = end + 1;
        if (!row.starts_with("cpu") || row.size() < 4 || row[3] < '0' || row[3] > '9')
            continue;
        size_t at = 3;
        int id = static_cast<int>(number(row, at));
        uint64_t values[8] {};
        for (auto& value : values)
            value = number(row, at);
        // user nice system idle iowait irq softirq steal
        ticks.push_back({ values[0], values[1], values[2] + values[5] + values[6] + values[7], values[3] + values[4] });
        ids.push_back(id);
    }
    return !ticks.empty();
}

SystemStatsProbe::Memory parseMeminfo(std::string_view text)
{
    SystemStatsProbe::Memory memory;
    auto total = field(text, "MemTotal");
    auto available = field(text, "MemAvailable");
    if (!total || !available)
        return memory;
    memory.total = *total * 1024;
    memory.used = (*total - std::min(*total, *available)) * 1024;
    uint64_t swapTotal = field(text, "SwapTotal").value_or(0);
    memory.swap = (swapTotal - std::min(swapTotal, field(text, "SwapFree").value_or(swapTotal))) * 1024;
    return memory;
}

SystemStatsPressure parsePressureStall(std::optional<std::string_view> text)
{
    if (!text)
        return SystemStatsPressure::normal;
    double some = average10(*text, "some");
    double full = average10(*text, "full");
    if (full >= 10)
        return SystemStatsPressure::critical;
    return some >= 10 || full >= 2 ? SystemStatsPressure::warning : SystemStatsPressure::normal;
}

std::vector<int> parseCPUList(std::string_view text)
{
    std::vector<int> ids;
    size_t at = 0;
    while (at < text.size()) {
        if (text[at] < '0' || text[at] > '9') {
            ++at;
            continue;
        }
        auto first = static_cast<int>(number(text, at));
        int last = first;
        if (at < text.size() && text[at] == '-') {
            ++at;
            last = static_cast<int>(number(text, at));
        }
        for (int id = first; id <= last && id - first < 4096; ++id)
            ids.push_back(id);
    }
    return ids;
}

std::optional<std::string_view> readInto(const std::string& path, std::string& buffer)
{
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd)
        return std::nullopt;
    if (buffer.size() < 4096)
        buffer.resize(4096);
    size_t filled = 0;
    for (;;) {
        if (filled == buffer.size())
            buffer.resize(buffer.size() * 2);
        ssize_t got = ::read(fd.get(), buffer.data() + filled, buffer.size() - filled);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return std::nullopt;
        if (got == 0)
            return std::string_view(buffer.data(), filled);
        filled += static_cast<size_t>(got);
    }
}

std::vector<SystemStatsCoreKind> readCoreKinds(const std::string& sysRoot, const std::vector<int>& ids)
{
    std::vector<SystemStatsCoreKind> kinds(ids.size(), SystemStatsCoreKind::unknown);
    std::string buffer;
    auto performance = readInto(sysRoot + "/devices/cpu_core/cpus", buffer);
    std::vector<int> big = performance ? parseCPUList(*performance) : std::vector<int> {};
    auto efficiency = readInto(sysRoot + "/devices/cpu_atom/cpus", buffer);
    std::vector<int> small = efficiency ? parseCPUList(*efficiency) : std::vector<int> {};
    if (!big.empty() || !small.empty()) {
        for (size_t index = 0; index < ids.size(); ++index) {
            if (std::find(big.begin(), big.end(), ids[index]) != big.end())
                kinds[index] = SystemStatsCoreKind::performance;
            else if (std::find(small.begin(), small.end(), ids[index]) != small.end())
                kinds[index] = SystemStatsCoreKind::efficiency;
        }
        return kinds;
    }
    std::vector<uint64_t> capacities;
    for (int id : ids) {
        auto text = readInto(sysRoot + "/devices/system/cpu/cpu" + std::to_string(id) + "/cpu_capacity", buffer);
        size_t at = 0;
        capacities.push_back(text ? number(*text, at) : 0);
    }
    auto [least, most] = std::minmax_element(capacities.begin(), capacities.end());
    if (capacities.empty() || *least == 0 || *least == *most)
        return kinds;
    for (size_t index = 0; index < ids.size(); ++index)
        kinds[index] = capacities[index] == *most ? SystemStatsCoreKind::performance : SystemStatsCoreKind::efficiency;
    return kinds;
}

} // namespace kestrune
