#pragma once
// The machine's network interfaces with their addresses, for the Network card: read when the card
// opens (getifaddrs, a few microseconds), loopback left out.
//
//   for (const NetworkInterface& each : readNetworkInterfaces()) ...   // "wlp2s0", up, 192.168.1.20 …

#include <string>
#include <vector>

namespace kestrune {

struct NetworkInterface {
    std::string name;
    bool up = false;
    // IPv4 first, then IPv6, each as the system writes it ("fe80::1%wlp2s0" without the zone).
    std::vector<std::string> addresses;
    bool operator==(const NetworkInterface&) const = default;
};

[[nodiscard]] std::vector<NetworkInterface> readNetworkInterfaces();

} // namespace kestrune
