#pragma once
// What the dock benchmarks look at from outside the dock: its window on the X display, its
// processes, memory, CPU time and context switches in /proc, and a pointer moved by XTest.

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <xcb/xcb.h>
#include <xcb/xtest.h>

#include "KestruneKit/Process/ChildProcess.h"

namespace kestrune::bench {

using Clock = std::chrono::steady_clock;

template<typename T>
using Reply = std::unique_ptr<T, decltype(&std::free)>;

inline xcb_atom_t atom(xcb_connection_t* c, const char* name)
{
    Reply<xcb_intern_atom_reply_t> reply(
        xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr), &std::free);
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

inline std::vector<uint32_t> cardinals(xcb_connection_t* c, xcb_window_t window, xcb_atom_t name)
{
    Reply<xcb_get_property_reply_t> reply(
        xcb_get_property_reply(c, xcb_get_property(c, 0, window, name, XCB_GET_PROPERTY_TYPE_ANY, 0, 1024), nullptr), &std::free);
    if (!reply || reply->format != 32)
        return {};
    auto* values = static_cast<const uint32_t*>(xcb_get_property_value(reply.get()));
    return { values, values + xcb_get_property_value_length(reply.get()) / 4 };
}

struct Rect {
    int x = 0, y = 0, width = 0, height = 0;
};

// A mapped, viewable window of type dock, anywhere in the tree (a dock may be managed or not).
inline std::optional<std::pair<xcb_window_t, Rect>> findDock(xcb_connection_t* c, xcb_window_t root, xcb_atom_t type, xcb_atom_t dock)
{
    std::vector<xcb_window_t> pending { root };
    while (!pending.empty()) {
        xcb_window_t window = pending.back();
        pending.pop_back();
        Reply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(c, xcb_query_tree(c, window), nullptr), &std::free);
        if (!tree)
            continue;
        xcb_window_t* children = xcb_query_tree_children(tree.get());
        for (int index = 0; index < xcb_query_tree_children_length(tree.get()); ++index) {
            xcb_window_t child = children[index];
            pending.push_back(child);
            auto types = cardinals(c, child, type);
            if (types.empty() || types[0] != dock)
                continue;
            Reply<xcb_get_window_attributes_reply_t> attributes(
                xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, child), nullptr), &std::free);
            if (!attributes || attributes->map_state != XCB_MAP_STATE_VIEWABLE)
                continue;
            Reply<xcb_get_geometry_reply_t> size(xcb_get_geometry_reply(c, xcb_get_geometry(c, child), nullptr), &std::free);
            Reply<xcb_translate_coordinates_reply_t> place(
                xcb_translate_coordinates_reply(c, xcb_translate_coordinates(c, child, root, 0, 0), nullptr), &std::free);
            if (size && place && size->width > 1 && size->height > 1)
                return std::pair { child, Rect { place->dst_x, place->dst_y, size->width, size->height } };
        }
    }
    return std::nullopt;
}

inline std::set<int> processes()
{
    std::set<int> pids;
    if (DIR* proc = opendir("/proc")) {
        while (dirent* entry = readdir(proc))
            if (int pid = std::atoi(entry->d_name); pid > 0)
                pids.insert(pid);
        closedir(proc);
    }
    return pids;
}

inline int parentOf(int pid)
{
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    auto close = text.rfind(')');
    if (close == std::string::npos)
        return 0;
    std::istringstream fields(text.substr(close + 2));
    std::string state;
    int parent = 0;
    fields >> state >> parent;
    return parent;
}

// Whether `ancestor` is among the process's forebears.
inline bool descendsFrom(int pid, int ancestor)
{
    for (int hops = 0; pid > 1 && hops < 64; ++hops) {
        pid = parentOf(pid);
        if (pid == ancestor)
            return true;
    }
    return false;
}

inline std::string processName(int pid)
{
    std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(comm, name);
    return name;
}

inline std::map<std::string, long> smapsRollup(int pid)
{
    std::map<std::string, long> values;
    std::ifstream file("/proc/" + std::to_string(pid) + "/smaps_rollup");
    std::string line;
    while (std::getline(file, line)) {
        std::istringstream words(line);
        std::string key;
        long kilobytes = 0;
        if (words >> key >> kilobytes)
            values[key.substr(0, key.size() - 1)] = kilobytes;
    }
    return values;
}

struct Usage {
    // The whole process's, ended threads included.
    double cpuSeconds = 0;
    // Per thread: the kernel keeps no process-wide count of switches.
    std::map<int, long> switches;
    std::set<int> threads;
};

// utime + stime of a /proc stat file, in seconds.
inline double cpuOf(const std::string& statPath)
{
    std::ifstream stat(statPath);
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    auto close = text.rfind(')');
    if (close == std::string::npos)
        return 0;
    std::istringstream fields(text.substr(close + 2));
    std::vector<std::string> values;
    std::string value;
    while (fields >> value)
        values.push_back(value);
    // utime and stime are fields 14 and 15; here 11 and 12 after the state.
    return values.size() > 12 ? double(std::stol(values[11]) + std::stol(values[12])) / double(sysconf(_SC_CLK_TCK)) : 0;
}

inline Usage usage(int pid)
{
    Usage total;
    total.cpuSeconds = cpuOf("/proc/" + std::to_string(pid) + "/stat");
    std::string base = "/proc/" + std::to_string(pid) + "/task";
    if (DIR* tasks = opendir(base.c_str())) {
        while (dirent* entry = readdir(tasks)) {
            int tid = std::atoi(entry->d_name);
            if (tid <= 0)
                continue;
            total.threads.insert(tid);
            std::ifstream status(base + "/" + entry->d_name + "/status");
            std::string line;
            while (std::getline(status, line))
                if (line.starts_with("voluntary_ctxt_switches:") || line.starts_with("nonvoluntary_ctxt_switches:"))
                    total.switches[tid] += std::stol(line.substr(line.find(':') + 1));
        }
        closedir(tasks);
    }
    return total;
}

// Switches between two looks: those of threads that lived through, and all of those started
// in between (a thread that came and went in between is not seen).
inline long switchesBetween(const Usage& start, const Usage& end)
{
    long switches = 0;
    for (const auto& [tid, count] : end.switches) {
        auto before = start.switches.find(tid);
        switches += count - (before == start.switches.end() ? 0 : before->second);
    }
    return switches;
}

inline void movePointer(xcb_connection_t* c, xcb_window_t root, int x, int y)
{
    xcb_test_fake_input(c, XCB_MOTION_NOTIFY, 0, XCB_CURRENT_TIME, root, static_cast<int16_t>(x), static_cast<int16_t>(y), 0);
    xcb_flush(c);
}


// Starts the dock's command in a process group of its own, its output dropped; none, said on
// standard error under the tool's name, when it cannot start.
inline std::unique_ptr<kestrune::ChildProcess> spawnDock(const char* tool, char** command, char** end)
{
    kestrune::ChildProcessOptions options;
    options.executable = command[0];
    options.arguments.assign(command + 1, end);
    options.output = kestrune::ChildStream::nullDevice;
    options.error = kestrune::ChildStream::nullDevice;
    options.grouping = kestrune::ChildGrouping::newProcessGroup;
    auto spawned = kestrune::ChildProcess::spawn(options);
    if (auto* failure = std::get_if<kestrune::SpawnFailure>(&spawned)) {
        std::fprintf(stderr, "%s: %s\n", tool, failure->description().c_str());
        return nullptr;
    }
    return std::move(std::get<std::unique_ptr<kestrune::ChildProcess>>(spawned));
}

} // namespace kestrune::bench
