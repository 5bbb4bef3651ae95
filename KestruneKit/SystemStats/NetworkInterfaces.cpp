#include "KestruneKit/SystemStats/NetworkInterfaces.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <algorithm>
#include <memory>

namespace kestrune {

std::vector<NetworkInterface> readNetworkInterfaces()
{
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0)
        return {};
    std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, freeifaddrs);
    std::vector<NetworkInterface> interfaces;
    auto entry = [&](const char* name) -> NetworkInterface& {
        auto found = std::find_if(interfaces.begin(), interfaces.end(), [&](const NetworkInterface& each) { return each.name == name; });
        if (found != interfaces.end())
            return *found;
        interfaces.push_back({ name, false, {} });
        return interfaces.back();
    };
    for (int family : { AF_INET, AF_INET6 }) {
        for (ifaddrs* item = list; item; item = item->ifa_next) {
            if (!item->ifa_name || (item->ifa_flags & IFF_LOOPBACK))
                continue;
            NetworkInterface& shown = entry(item->ifa_name);
            shown.up = shown.up || (item->ifa_flags & IFF_UP);
            if (!item->ifa_addr || item->ifa_addr->sa_family != family)
                continue;
            char text[INET6_ADDRSTRLEN] = {};
            const void* address = family == AF_INET ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in*>(item->ifa_addr)->sin_addr)
                                                    : static_cast<const void*>(&reinterpret_cast<const sockaddr_in6*>(item->ifa_addr)->sin6_addr);
            if (inet_ntop(family, address, text, sizeof text))
                shown.addresses.emplace_back(text);
        }
    }
    return interfaces;
}

} // namespace kestrune
