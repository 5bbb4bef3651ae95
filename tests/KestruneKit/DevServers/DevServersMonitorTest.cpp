#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include <gtest/gtest.h>

#include "KestruneKit/Core/UniqueFd.h"
#include "KestruneKit/DevServers/DevServersMonitor.h"

namespace kestrune {
namespace {

TEST(DevServers, ListeningSocketsAreReadFromTheKernelsTablesAndTheRestIsSkipped)
{
    std::string table =
        "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n"
        "   0: 0100007F:0BB8 00000000:0000 0A 00000000:00000000 00:00000000 00000000  1000        0 41234 1 0000 100 0 0 10 0\n"
        "   1: 0100007F:0BB8 0100007F:D2F0 01 00000000:00000000 00:00000000 00000000  1000        0 41299 1 0000 20 4 30 10 -1\n"
        "   2: 00000000:1F90 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 0 1\n"
        "   3: garbage\n"
        "   4: 00000000000000000000000000000000:1538 00000000000000000000000000000000:0000 0A 00000000:00000000 00:00000000 00000000  1000        0 5150 1\n";
    EXPECT_EQ(parseListeningSockets(table), (std::vector<ListeningSocket> { { 3000, 41234 }, { 5432, 5150 } }))
        << "connected sockets, a zero inode and a broken line count as none";
    EXPECT_TRUE(parseListeningSockets("").empty());
}

TEST(DevServers, ASocketThisProcessListensOnIsOneOfTheUsersServersUntilItCloses)
{
    UniqueFd listening(::socket(AF_INET6, SOCK_STREAM, 0));
    ASSERT_TRUE(listening);
    int both = 0;
    ::setsockopt(listening.get(), IPPROTO_IPV6, IPV6_V6ONLY, &both, sizeof both);
    sockaddr_in6 address {};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    ASSERT_EQ(::bind(listening.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(listening.get(), 4), 0);
    socklen_t length = sizeof address;
    ::getsockname(listening.get(), reinterpret_cast<sockaddr*>(&address), &length);
    uint16_t port = ntohs(address.sin6_port);
    std::string name;
    std::getline(std::ifstream("/proc/self/comm"), name);

    auto servers = readDevServers();
    auto mine = std::find_if(servers.begin(), servers.end(), [&](const DevServer& server) { return server.port == port; });
    ASSERT_NE(mine, servers.end()) << "port " << port << " not found";
    EXPECT_EQ(mine->pid, ::getpid());
    EXPECT_EQ(mine->process, name);
    EXPECT_TRUE(std::is_sorted(servers.begin(), servers.end(), [](const auto& a, const auto& b) { return a.port < b.port; }));
    EXPECT_EQ(devServersText::summary(std::vector<DevServer> { *mine }), std::to_string(port) + " · " + name);

    listening.reset();
    servers = readDevServers();
    EXPECT_TRUE(std::none_of(servers.begin(), servers.end(), [&](const DevServer& server) { return server.port == port; }));
    EXPECT_EQ(devServersText::summary(std::nullopt), "Looking for servers…");
    EXPECT_EQ(devServersText::summary(std::vector<DevServer> {}), "No servers running");
    EXPECT_EQ(devServersText::summary(std::vector<DevServer> { { 3000, "node", 1 }, { 5173, "vite", 2 } }), "2 servers");
    EXPECT_TRUE(readDevServers("/nonexistent").empty());
}

} // namespace
} // namespace kestrune
