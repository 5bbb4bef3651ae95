// kestrune-dock-soak: a long run of a dock under a changing desktop, for bench/dock-soak, which
// sets up the display, the widgets and what they watch (a repository, AI logs, containers) and
// keeps those changing.
//
//   kestrune-dock-soak --minutes M --app PROGRAM --stall-report FILE -- COMMAND ARGS...
//
// On $DISPLAY (a window manager running), it starts the dock and, for M minutes: sweeps the
// pointer along the dock for five seconds each minute, launches an application window and
// closes the one before every 20 seconds, and splits the screen into two monitors and joins it
// again every three minutes. It reports as one line of JSON: RSS ten seconds after start, at
// ten minutes (or half way in a shorter run) and at the end; the dock's open descriptors, its
// child processes and zombies among them, at start and at the end; CPU time per hour and
// main-thread wake-ups per minute over the run, from the dock's stall report; and when the run
// began, so that the report's stalls can be told apart from those of starting up.

#include <csignal>
#include <thread>

#include <fcntl.h>
#include <sys/wait.h>

#include "KestruneKit/Process/ChildProcess.h"
#include "bench/DockLook.h"

using namespace kestrune::bench;

namespace {

int descriptors(int pid)
{
    int count = 0;
    if (DIR* fds = opendir(("/proc/" + std::to_string(pid) + "/fd").c_str())) {
        while (dirent* entry = readdir(fds))
            count += entry->d_name[0] != '.';
        closedir(fds);
    }
    return count;
}

char stateOf(int pid)
{
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    auto close = text.rfind(')');
    return close == std::string::npos || close + 2 >= text.size() ? '?' : text[close + 2];
}

struct Family {
    int children = 0;
    int zombies = 0;
};

Family familyOf(int pid)
{
    Family family;
    for (int other : processes())
        if (other != pid && descendsFrom(other, pid)) {
            ++family.children;
            family.zombies += stateOf(other) == 'Z';
        }
    return family;
}

std::string readAll(const std::string& path)
{
    std::ifstream file(path);
    return { (std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>() };
}

double numberAfter(const std::string& json, const std::string& key)
{
    auto at = json.find("\"" + key + "\":");
    return at == std::string::npos ? -1 : std::atof(json.c_str() + at + key.size() + 3);
}

pid_t launch(const std::vector<std::string>& command)
{
    pid_t pid = fork();
    if (pid == 0) {
        std::vector<char*> argv;
        for (const auto& word : command)
            argv.push_back(const_cast<char*>(word.c_str()));
        argv.push_back(nullptr);
        int null = open("/dev/null", O_RDWR);
        dup2(null, 1);
        dup2(null, 2);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    return pid;
}

void finish(pid_t& pid)
{
    if (pid <= 0)
        return;
    kill(pid, SIGTERM);
    waitpid(pid, nullptr, 0);
    pid = 0;
}

} // namespace

int main(int argc, char** argv)
{
    double minutes = 60;
    std::string app, stallReport;
    int at = 1;
    for (; at + 1 < argc && std::strcmp(argv[at], "--") != 0; at += 2) {
        if (std::strcmp(argv[at], "--minutes") == 0)
            minutes = std::atof(argv[at + 1]);
        else if (std::strcmp(argv[at], "--app") == 0)
            app = argv[at + 1];
        else if (std::strcmp(argv[at], "--stall-report") == 0)
            stallReport = argv[at + 1];
    }
    if (at < argc && std::strcmp(argv[at], "--") == 0)
        ++at;
    if (at >= argc || app.empty() || stallReport.empty()) {
        std::fprintf(stderr, "usage: kestrune-dock-soak --minutes M --app PROGRAM --stall-report FILE -- COMMAND ARGS...\n");
        return 2;
    }
    xcb_connection_t* c = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(c)) {
        std::fprintf(stderr, "kestrune-dock-soak: no X display\n");
        return 1;
    }
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    xcb_atom_t type = atom(c, "_NET_WM_WINDOW_TYPE");
    xcb_atom_t dockType = atom(c, "_NET_WM_WINDOW_TYPE_DOCK");
    movePointer(c, screen->root, 10, 10);

    auto spawned = spawnDock("kestrune-dock-soak", argv + at, argv + argc);
    if (!spawned)
        return 1;
    auto& dock = *spawned;
    auto start = Clock::now();
    std::optional<std::pair<xcb_window_t, Rect>> found;
    while (!(found = findDock(c, screen->root, type, dockType)) && Clock::now() - start < std::chrono::seconds(30))
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    if (!found) {
        std::fprintf(stderr, "kestrune-dock-soak: no dock window within 30 s\n");
        return 1;
    }
    std::this_thread::sleep_until(start + std::chrono::seconds(10));
    long rssStart = smapsRollup(dock.pid())["Rss"];
    int descriptorsStart = descriptors(dock.pid());
    Family familyStart = familyOf(dock.pid());
    Usage usageStart = usage(dock.pid());
    double wakesStart = numberAfter(readAll(stallReport), "wakes");
    auto soakStart = Clock::now();
    auto soakEnd = soakStart + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(minutes * 60));
    auto middle = soakStart + std::min<Clock::duration>(std::chrono::minutes(10), (soakEnd - soakStart) / 2);

    long rssMiddle = 0, rssHighest = rssStart;
    pid_t shown = 0;
    int launched = 0, sweeps = 0, screenChanges = 0;
    bool split = false;
    for (int second = 0; Clock::now() < soakEnd; ++second) {
        if (second % 60 == 30) {
            // Along the resting bar of an edge-bottom dock, a move every 8 ms.
            found = findDock(c, screen->root, type, dockType).value_or(*found);
            Rect bar = found->second;
            int span = std::max(1, bar.width - 4);
            for (int step = 0; step < 5000 / 8; ++step) {
                int position = (step * 3) % (2 * span);
                movePointer(c, screen->root, bar.x + 2 + (position < span ? position : 2 * span - position), bar.y + bar.height - 20);
                std::this_thread::sleep_for(std::chrono::milliseconds(8));
            }
            movePointer(c, screen->root, 10, 10);
            ++sweeps;
        }
        if (second % 20 == 0) {
            pid_t previous = shown;
            int number = launched++ % 3 + 1;
            shown = launch({ app, std::to_string(100 + 40 * number), "100", "300", "200", "SoakApp" + std::to_string(number) });
            std::this_thread::sleep_for(std::chrono::seconds(2));
            finish(previous);
        }
        if (second % 180 == 90) {
            split = !split;
            std::string command = split ? "xrandr --setmonitor SOAK-0 640/160x800/200+0+0 none && xrandr --setmonitor SOAK-1 640/160x800/200+640+0 none"
                                        : "xrandr --delmonitor SOAK-0 && xrandr --delmonitor SOAK-1";
            screenChanges += std::system((command + " >/dev/null 2>&1").c_str()) == 0;
        }
        if (second % 60 == 0) {
            long rss = smapsRollup(dock.pid())["Rss"];
            rssHighest = std::max(rssHighest, rss);
            if (!rssMiddle && Clock::now() >= middle)
                rssMiddle = rss;
        }
        std::this_thread::sleep_until(soakStart + std::chrono::seconds(second + 1));
    }
    finish(shown);
    if (split)
        (void)std::system("xrandr --delmonitor SOAK-0 >/dev/null 2>&1; xrandr --delmonitor SOAK-1 >/dev/null 2>&1");
    std::this_thread::sleep_for(std::chrono::seconds(5));

    double elapsed = std::chrono::duration<double>(Clock::now() - soakStart).count();
    long rssEnd = smapsRollup(dock.pid())["Rss"];
    Usage usageEnd = usage(dock.pid());
    // A read in progress has a child and its pipes for a moment, and a child that just ended is
    // a zombie until it is reaped: the fewest over a few looks is what stays.
    Family familyEnd = familyOf(dock.pid());
    int descriptorsEnd = descriptors(dock.pid());
    for (int look = 0; look < 6; ++look) {
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        Family family = familyOf(dock.pid());
        familyEnd.children = std::min(familyEnd.children, family.children);
        familyEnd.zombies = std::min(familyEnd.zombies, family.zombies);
        descriptorsEnd = std::min(descriptorsEnd, descriptors(dock.pid()));
    }
    dock.signalGroup(SIGTERM);
    dock.wait();
    std::string stalls = readAll(stallReport);
    double wakes = numberAfter(stalls, "wakes") - wakesStart;

    std::printf("{\"minutes\": %.1f, \"rssStartKiB\": %ld, \"rssMiddleKiB\": %ld, \"rssEndKiB\": %ld, \"rssHighestKiB\": %ld, "
                "\"descriptorsStart\": %d, \"descriptorsEnd\": %d, \"childrenStart\": %d, \"childrenEnd\": %d, \"zombiesEnd\": %d, "
                "\"cpuSecondsPerHour\": %.1f, \"wakesPerMinute\": %.0f, \"soakStartSeconds\": %.1f, "
                "\"threadsEnd\": %zu, \"sweeps\": %d, \"appsLaunched\": %d, \"screenChanges\": %d}\n",
        elapsed / 60, rssStart, rssMiddle, rssEnd, rssHighest, descriptorsStart, descriptorsEnd, familyStart.children, familyEnd.children,
        familyEnd.zombies, (usageEnd.cpuSeconds - usageStart.cpuSeconds) * 3600 / elapsed, wakes * 60 / elapsed,
        std::chrono::duration<double>(soakStart - start).count(), usageEnd.threads.size(), sweeps, launched, screenChanges);
    std::fflush(stdout);
    xcb_disconnect(c);
    return 0;
}
