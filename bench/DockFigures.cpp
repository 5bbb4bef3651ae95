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
#include "bench/DockLook.h"

using namespace kestrune::bench;

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
    auto start = Clock::now();
    auto spawned = spawnDock("kestrune-dock-figures", argv + at, argv + argc);
    if (!spawned)
        return 1;
    auto& dock = *spawned;
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
