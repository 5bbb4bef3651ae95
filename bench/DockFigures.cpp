// kestrune-dock-figures: a dock's own figures on an X display, for bench/dock-figures, which runs
// it for kestrune-dock and for Plank in the same run.
//
//   kestrune-dock-figures [--idle SECONDS] -- COMMAND ARGS...
//
// On $DISPLAY (a window manager already running), it starts the command and reports, as one line
// of JSON: the time from start to the dock's window mapped; RSS, PSS and the process's own memory
// (Pss_Anon) ten seconds later; the processes that appeared meanwhile besides the dock; CPU time,
// context switches and threads started or ended over the idle stretch with the pointer away;
// and CPU time during five seconds of pointer sweeps along the dock, a move every 8 ms.

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
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
#include <thread>
#include <vector>

#include <xcb/xcb.h>
#include <xcb/xtest.h>

#include "KestruneKit/Process/ChildProcess.h"

namespace {

using Clock = std::chrono::steady_clock;

template<typename T>
using Reply = std::unique_ptr<T, decltype(&std::free)>;

xcb_atom_t atom(xcb_connection_t* c, const char* name)
{
    Reply<xcb_intern_atom_reply_t> reply(
        xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr), &std::free);
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

std::vector<uint32_t> cardinals(xcb_connection_t* c, xcb_window_t window, xcb_atom_t name)
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
std::optional<std::pair<xcb_window_t, Rect>> findDock(xcb_connection_t* c, xcb_window_t root, xcb_atom_t type, xcb_atom_t dock)
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

std::set<int> processes()
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

int parentOf(int pid)
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
bool descendsFrom(int pid, int ancestor)
{
    for (int hops = 0; pid > 1 && hops < 64; ++hops) {
        pid = parentOf(pid);
        if (pid == ancestor)
            return true;
    }
    return false;
}

std::string processName(int pid)
{
    std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(comm, name);
    return name;
}

std::map<std::string, long> smapsRollup(int pid)
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
double cpuOf(const std::string& statPath)
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

Usage usage(int pid)
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
long switchesBetween(const Usage& start, const Usage& end)
{
    long switches = 0;
    for (const auto& [tid, count] : end.switches) {
        auto before = start.switches.find(tid);
        switches += count - (before == start.switches.end() ? 0 : before->second);
    }
    return switches;
}

void movePointer(xcb_connection_t* c, xcb_window_t root, int x, int y)
{
    xcb_test_fake_input(c, XCB_MOTION_NOTIFY, 0, XCB_CURRENT_TIME, root, static_cast<int16_t>(x), static_cast<int16_t>(y), 0);
    xcb_flush(c);
}

} // namespace

int main(int argc, char** argv)
{
    double idleSeconds = 60;
    int at = 1;
    if (at + 1 < argc && std::strcmp(argv[at], "--idle") == 0) {
        idleSeconds = std::atof(argv[at + 1]);
        at += 2;
    }
    if (at < argc && std::strcmp(argv[at], "--") == 0)
        ++at;
    if (at >= argc) {
        std::fprintf(stderr, "usage: kestrune-dock-figures [--idle SECONDS] -- COMMAND ARGS...\n");
        return 2;
    }
    xcb_connection_t* c = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(c)) {
        std::fprintf(stderr, "kestrune-dock-figures: no X display\n");
        return 1;
    }
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    xcb_atom_t type = atom(c, "_NET_WM_WINDOW_TYPE");
    xcb_atom_t dockType = atom(c, "_NET_WM_WINDOW_TYPE_DOCK");
    movePointer(c, screen->root, 10, 10);

    std::set<int> before = processes();
    kestrune::ChildProcessOptions options;
    options.executable = argv[at];
    options.arguments.assign(argv + at + 1, argv + argc);
    options.output = kestrune::ChildStream::nullDevice;
    options.error = kestrune::ChildStream::nullDevice;
    options.grouping = kestrune::ChildGrouping::newProcessGroup;
    auto start = Clock::now();
    auto spawned = kestrune::ChildProcess::spawn(options);
    if (auto* failure = std::get_if<kestrune::SpawnFailure>(&spawned)) {
        std::fprintf(stderr, "kestrune-dock-figures: %s\n", failure->description().c_str());
        return 1;
    }
    auto& dock = *std::get<std::unique_ptr<kestrune::ChildProcess>>(spawned);
    std::optional<std::pair<xcb_window_t, Rect>> found;
    while (!(found = findDock(c, screen->root, type, dockType)) && Clock::now() - start < std::chrono::seconds(30))
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    double mappedMs = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    if (!found) {
        std::fprintf(stderr, "kestrune-dock-figures: no dock window within 30 s\n");
        return 1;
    }

    std::this_thread::sleep_until(start + std::chrono::seconds(10));
    auto memory = smapsRollup(dock.pid());
    // What came up with the dock and is still there: its children, and the services its session
    // bus started for it, some of which leave their parents for init. Only the dock runs here, so
    // every new user process that is not ours is its doing; kernel threads have no executable.
    std::vector<std::string> helpers;
    for (int pid : processes()) {
        if (before.contains(pid) || pid == dock.pid() || descendsFrom(pid, getpid()))
            continue;
        char target[16];
        if (::readlink(("/proc/" + std::to_string(pid) + "/exe").c_str(), target, sizeof target) <= 0)
            continue;
        helpers.push_back(processName(pid));
    }

    // Idle: the pointer far from the dock, nothing happening.
    Usage idleStart = usage(dock.pid());
    std::this_thread::sleep_for(std::chrono::duration<double>(idleSeconds));
    Usage idleEnd = usage(dock.pid());
    size_t threadsChanged = 0;
    for (int tid : idleStart.threads)
        threadsChanged += !idleEnd.threads.contains(tid);
    for (int tid : idleEnd.threads)
        threadsChanged += !idleStart.threads.contains(tid);

    // Sweeps along the dock's resting bar, a move every 8 ms, back and forth.
    Rect bar = found->second;
    // The resting bar of an edge-bottom dock is its window's lowest part.
    int y = bar.y + bar.height - 20;
    Usage sweepStart = usage(dock.pid());
    auto sweepBegin = Clock::now();
    int step = 0;
    while (Clock::now() - sweepBegin < std::chrono::seconds(5)) {
        int span = std::max(1, bar.width - 4);
        int position = step % (2 * span);
        int x = bar.x + 2 + (position < span ? position : 2 * span - position);
        movePointer(c, screen->root, x, y);
        step += 3;
        std::this_thread::sleep_for(std::chrono::milliseconds(8));
    }
    double sweepSeconds = std::chrono::duration<double>(Clock::now() - sweepBegin).count();
    Usage sweepEnd = usage(dock.pid());
    movePointer(c, screen->root, 10, 10);

    std::printf("{\"mappedMs\": %.0f, \"rssKiB\": %ld, \"pssKiB\": %ld, \"ownKiB\": %ld, \"helpers\": [", mappedMs,
        memory["Rss"], memory["Pss"], memory["Pss_Anon"]);
    for (size_t index = 0; index < helpers.size(); ++index)
        std::printf("%s\"%s\"", index ? ", " : "", helpers[index].c_str());
    std::printf("], \"idleSeconds\": %.0f, \"idleCpuMs\": %.1f, \"idleSwitches\": %ld, \"idleThreadsChanged\": %zu, "
                "\"threads\": %zu, \"sweepCpuPercent\": %.2f, \"sweepMoves\": %d}\n",
        idleSeconds, (idleEnd.cpuSeconds - idleStart.cpuSeconds) * 1000, switchesBetween(idleStart, idleEnd), threadsChanged,
        idleEnd.threads.size(), 100 * (sweepEnd.cpuSeconds - sweepStart.cpuSeconds) / sweepSeconds, step / 3);
    std::fflush(stdout);
    dock.signalGroup(SIGTERM);
    dock.wait();
    xcb_disconnect(c);
    return 0;
}
