#pragma once
// A local web server for one request: it answers with the status line given, then closes.
//
//   test::LocalServer server("HTTP/1.1 200 OK");
//   checkEndpoint(server.address());

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "KestruneKit/Core/UniqueFd.h"

namespace kestrune::test {

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

} // namespace kestrune::test
