#include "KestruneKit/SystemStats/ProcessesMonitor.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>

namespace kestrune {

namespace {

std::optional<uint64_t> number(std::string_view text)
{
    uint64_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

// What the readings remember between two runs on the queue.
struct Previous {
    std::map<int, uint64_t> ticks;
    std::optional<std::chrono::steady_clock::time_point> at;
};

ProcessTop readTop(const std::string& procRoot, Previous& previous)
{
    static const long ticksPerSecond = std::max(1L, sysconf(_SC_CLK_TCK));
    static const long pageSize = std::max(1L, sysconf(_SC_PAGESIZE));
    auto now = std::chrono::steady_clock::now();
    std::vector<ProcessUse> uses;
    std::map<int, uint64_t> ticks;
    double seconds = previous.at ? std::chrono::duration<double>(now - *previous.at).count() : 0;
    std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(procRoot.c_str()), closedir);
    std::string line;
    while (folder) {
        dirent* entry = readdir(folder.get());
        if (!entry)
            break;
        auto pid = number(entry->d_name);
        if (!pid)
            continue;
        std::ifstream file(procRoot + "/" + entry->d_name + "/stat");
        if (!std::getline(file, line))
            continue;
        auto stat = parseProcessStat(line);
        if (!stat)
            continue;
        ticks[stat->pid] = stat->ticks;
        ProcessUse use { stat->pid, stat->name, 0, stat->residentPages * static_cast<uint64_t>(pageSize) };
        auto before = previous.ticks.find(stat->pid);
        if (seconds > 0 && before != previous.ticks.end() && stat->ticks >= before->second)
            use.processor = static_cast<double>(stat->ticks - before->second) / static_cast<double>(ticksPerSecond) / seconds;
        uses.push_back(std::move(use));
    }
    previous.ticks = std::move(ticks);
    previous.at = now;

    ProcessTop top;
    auto keep = [&](auto better) {
        std::vector<ProcessUse> sorted = uses;
        size_t count = std::min(ProcessesMonitor::shown, sorted.size());
        std::partial_sort(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>(count), sorted.end(), better);
        sorted.resize(count);
        return sorted;
    };
    if (seconds > 0)
        top.byProcessor = keep([](const ProcessUse& a, const ProcessUse& b) { return a.processor > b.processor; });
    top.byMemory = keep([](const ProcessUse& a, const ProcessUse& b) { return a.memory > b.memory; });
    return top;
}

} // namespace

std::optional<ProcessStat> parseProcessStat(std::string_view line)
{
    size_t open = line.find('(');
    size_t close = line.rfind(')');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open)
        return std::nullopt;
    auto pid = number(line.substr(0, open > 0 ? open - 1 : 0));
    if (!pid)
        return std::nullopt;
    // After the name: state, then fields 4 onwards; utime and stime are 14 and 15, rss 24.
    std::vector<std::string_view> rest;
    std::string_view tail = line.substr(close + 1);
    size_t start = 0;
    while (start < tail.size() && rest.size() < 24) {
        size_t end = tail.find(' ', start);
        if (end == std::string_view::npos)
            end = tail.size();
        if (end > start)
            rest.push_back(tail.substr(start, end - start));
        start = end + 1;
    }
    if (rest.size() < 22)
        return std::nullopt;
    auto user = number(rest[11]);
    auto system = number(rest[12]);
    auto resident = number(rest[21]);
    if (!user || !system || !resident)
        return std::nullopt;
    return ProcessStat { static_cast<int>(*pid), std::string(line.substr(open + 1, close - open - 1)), *user + *system, *resident };
}

ProcessesMonitor::ProcessesMonitor(Runtime& runtime, KestruneActivity& activity, std::string procRoot)
    : PolledMonitor(runtime, activity, interval,
                    [root = std::move(procRoot), previous = std::make_shared<Previous>()] { return readTop(root, *previous); })
{
}

} // namespace kestrune
