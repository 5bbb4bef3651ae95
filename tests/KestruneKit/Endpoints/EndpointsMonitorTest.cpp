#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include <gtest/gtest.h>

#include "KestruneKit/Core/UniqueFd.h"
#include "KestruneKit/Endpoints/EndpointsMonitor.h"

namespace kestrune {
namespace {

// A local web server that answers each request with the given status line, then closes.
class LocalServer {
public:
    explicit LocalServer(std::string statusLine) : statusLine_(std::move(statusLine))
    {
        socket_ = UniqueFd(::socket(AF_INET, SOCK_STREAM, 0));
        sockaddr_in address {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::listen(socket_.get(), 4);
        socklen_t length = sizeof address;
        ::getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &length);
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] {
            UniqueFd client(::accept(socket_.get(), nullptr, nullptr));
            char request[4096];
            (void)::read(client.get(), request, sizeof request);
            std::string answer = statusLine_ + "\r\nContent-Length: 5\r\nConnection: close\r\n\r\nhello";
            (void)::write(client.get(), answer.data(), answer.size());
        });
    }
    ~LocalServer() { thread_.join(); }

    [[nodiscard]] std::string address(const std::string& path = "/health") const
    {
        return "http://127.0.0.1:" + std::to_string(port_) + path;
    }

private:
    std::string statusLine_;
    UniqueFd socket_;
    uint16_t port_ = 0;
    std::thread thread_;
};

TEST(Endpoints, AnAnswerIsUpBelow400AndAFailureSaysItsCause)
{
    {
        LocalServer server("HTTP/1.1 200 OK");
        EndpointResult result = checkEndpoint(server.address());
        EXPECT_EQ(result.status, 200);
        EXPECT_TRUE(result.isUp());
        EXPECT_FALSE(result.failure);
        EXPECT_EQ(endpointsText::summary({ result.address }, { { result.address, result } }).rfind("Up · 200 · ", 0), 0U);
    }
    {
        LocalServer server("HTTP/1.1 503 Service Unavailable");
        EndpointResult result = checkEndpoint(server.address());
        EXPECT_EQ(result.status, 503);
        EXPECT_FALSE(result.isUp());
    }
    // A port nobody listens on any more.
    std::string closed;
    {
        LocalServer server("HTTP/1.1 204 No Content");
        closed = server.address();
        (void)checkEndpoint(closed);
    }
    EndpointResult refused = checkEndpoint(closed);
    EXPECT_EQ(refused.failure, EndpointFailure::refused);
    EXPECT_EQ(endpointsText::detail(refused), "Connection refused");
    EXPECT_EQ(checkEndpoint("file:///etc/passwd").failure, EndpointFailure::badAddress);
    EXPECT_EQ(checkEndpoint("ftp://example.com/").failure, EndpointFailure::badAddress);
}

TEST(Endpoints, TheOptionGivesOneAddressALineAndTheSummaryCountsThoseDown)
{
    EXPECT_EQ(endpointAddresses("  https://a.example/health \n\n\thttp://b.example\r\nhttps://a.example/health"),
              (std::vector<std::string> { "https://a.example/health", "http://b.example" }));
    EXPECT_TRUE(endpointAddresses("").empty());
    std::vector<std::string> both { "https://a.example", "https://b.example" };
    EndpointResult up { "https://a.example", 200, std::nullopt, Seconds(0.05) };
    EndpointResult down { "https://b.example", std::nullopt, EndpointFailure::timedOut, Seconds(10) };
    EXPECT_EQ(endpointsText::summary({}, {}), "Add the addresses to check in Options");
    EXPECT_EQ(endpointsText::summary(both, { { up.address, up } }), "Checking…");
    EXPECT_EQ(endpointsText::summary(both, { { up.address, up }, { down.address, down } }), "1 of 2 down");
    down = { "https://b.example", 301, std::nullopt, Seconds(0.1) };
    EXPECT_EQ(endpointsText::summary(both, { { up.address, up }, { down.address, down } }), "All 2 up");
}

} // namespace
} // namespace kestrune
