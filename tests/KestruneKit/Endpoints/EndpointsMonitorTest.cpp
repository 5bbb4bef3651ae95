#include <gtest/gtest.h>

#include "KestruneKit/Endpoints/EndpointsMonitor.h"
#include "tests/helpers/LocalServer.h"

namespace kestrune {
namespace {

TEST(Endpoints, AnAnswerIsUpBelow400AndAFailureSaysItsCause)
{
    {
        test::LocalServer server("HTTP/1.1 200 OK");
        EndpointResult result = checkEndpoint(server.address());
        EXPECT_EQ(result.status, 200);
        EXPECT_TRUE(result.isUp());
        EXPECT_FALSE(result.failure);
        EXPECT_EQ(endpointsText::summary({ result.address }, { { result.address, result } }).rfind("Up · 200 · ", 0), 0U);
    }
    {
        test::LocalServer server("HTTP/1.1 503 Service Unavailable");
        EndpointResult result = checkEndpoint(server.address());
        EXPECT_EQ(result.status, 503);
        EXPECT_FALSE(result.isUp());
    }
    // A port nobody listens on any more.
    std::string closed;
    {
        test::LocalServer server("HTTP/1.1 204 No Content");
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
