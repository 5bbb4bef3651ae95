#pragma once
// OVERVIEW
// The Dev Servers widget's data: the TCP ports the user's own processes listen on, each with the
// process's name, read every five seconds while the widget is on screen. On Linux the sockets come
// from /proc/net/tcp and tcp6 (state LISTEN), and a socket's owner from the user's processes'
// descriptors (socket:[inode]); the system's own services, run by other users, are left out.
//
// TYPICAL USAGE
//   DevServersMonitor monitor(runtime);
//   monitor.onChange = [&] { redraw(monitor.servers()); };
//   monitor.poller().setWanted(tileId, true);
//
// Main thread only; the reading runs on the monitor's own queue.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KestruneKit/DevTools/PolledMonitor.h"

namespace kestrune {

struct ListeningSocket {
    uint16_t port = 0;
    uint64_t inode = 0;
    bool operator==(const ListeningSocket&) const = default;
};

// The listening sockets of one /proc/net/tcp or tcp6 text. Lines that do not parse are skipped.
[[nodiscard]] std::vector<ListeningSocket> parseListeningSockets(std::string_view text);

struct DevServer {
    uint16_t port = 0;
    std::string process;
    int pid = 0;
    bool operator==(const DevServer&) const = default;
};

// One blocking reading of the machine under `procRoot`: the user's listening ports, lowest first,
// each once (a server listening on IPv4 and IPv6 alike is one server).
[[nodiscard]] std::vector<DevServer> readDevServers(const std::string& procRoot = "/proc");

namespace devServersText {
inline constexpr std::string_view looking = "Looking for servers…";
inline constexpr std::string_view none = "No servers running";
// "1 server", "3 servers"; with one, its port and process: "3000 · node".
[[nodiscard]] std::string summary(const std::optional<std::vector<DevServer>>& servers);
} // namespace devServersText

class DevServersMonitor : public PolledMonitor<std::vector<DevServer>> {
public:
    static constexpr Seconds interval { 5.0 };

    explicit DevServersMonitor(Runtime& runtime, KestruneActivity& activity = KestruneActivity::shared(),
                               std::string procRoot = "/proc")
        : PolledMonitor(runtime, activity, interval, [root = std::move(procRoot)] { return readDevServers(root); })
    {
    }

    // None until the first reading.
    [[nodiscard]] const std::optional<std::vector<DevServer>>& servers() const { return reading(); }
};

} // namespace kestrune
