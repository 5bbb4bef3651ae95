#include <atomic>
#include <thread>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "KestruneKit/Containers/ContainerEngine.h"
#include "KestruneKit/Containers/ContainerEngineSocket.h"
#include "KestruneKit/Containers/ContainersMonitor.h"
#include "KestruneKit/Core/ManualRuntime.h"
#include "KestruneKit/Core/UniqueFd.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

using namespace std::string_literals;

// Answers one connection on a Unix socket with a prepared reply, and keeps what it was sent.
// With no reply it holds the connection open and says nothing until it is destroyed.
class OneShotServer {
public:
    OneShotServer(const std::string& path, std::optional<std::string> reply) : reply_(std::move(reply))
    {
        listener_ = UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(::bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        EXPECT_EQ(::listen(listener_.get(), 1), 0);
        thread_ = std::thread([this] { serve(); });
    }
    ~OneShotServer()
    {
        stop_ = true;
        thread_.join();
    }
    std::string received()
    {
        thread_.join();
        thread_ = std::thread([] {});
        return received_;
    }

private:
    bool waitReadable(int fd)
    {
        pollfd entry { fd, POLLIN, 0 };
        while (!stop_)
            if (::poll(&entry, 1, 50) > 0)
                return true;
        return false;
    }
    void serve()
    {
        if (!waitReadable(listener_.get()))
            return;
        UniqueFd connection(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        char buffer[4096];
        while (received_.find("\r\n\r\n") == std::string::npos && waitReadable(connection.get())) {
            auto count = ::read(connection.get(), buffer, sizeof(buffer));
            if (count <= 0)
                break;
            received_.append(buffer, static_cast<size_t>(count));
        }
        if (!reply_) {
            while (!stop_)
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            return;
        }
        (void)!::write(connection.get(), reply_->data(), reply_->size());
    }

    UniqueFd listener_;
    std::optional<std::string> reply_;
    std::string received_;
    std::atomic<bool> stop_ { false };
    std::thread thread_;
};

std::string ok(const std::string& body)
{
    return "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

const std::string sampleList = R"([{"Id":"4f1c2d3e4f5a6b7c","Names":["/shop-web-1"],"Image":"docker.io/library/nginx:1.27","State":"running","Status":"Up 3 hours",
  "Ports":[{"IP":"0.0.0.0","PrivatePort":80,"PublicPort":8080,"Type":"tcp"},{"PrivatePort":53,"Type":"udp"},{"IP":"10.1.2.3","PrivatePort":9,"PublicPort":9,"Type":"sctp"}],
  "Labels":{"com.docker.compose.project":"shop","tier":"front"}},
 {"Id":"0123456789abcdef","Names":[],"Image":"sha256:aabbccddeeff00112233","State":"hibernating","Status":"?","Ports":null,"Labels":null}, 7])";

TEST(ContainerEngineSocket, SendsTheFixedRequestAndDecodesTheList)
{
    test::TemporaryFolder folder;
    OneShotServer server(folder.file("engine.sock"), ok(sampleList));
    auto read = ContainerEngineSocket::readContainers(folder.file("engine.sock"));
    EXPECT_EQ(server.received(), "GET /containers/json HTTP/1.1\r\nHost: docker\r\nConnection: close\r\n\r\n");
    ASSERT_TRUE(std::holds_alternative<std::vector<Container>>(read)) << toString(std::get<ContainerReadFailure>(read));
    const auto& list = std::get<std::vector<Container>>(read);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].name(), "shop-web-1");
    EXPECT_EQ(list[0].imageText(), "nginx:1.27");
    EXPECT_EQ(list[0].state, ContainerState::running);
    EXPECT_EQ(list[0].status, "Up 3 hours");
    EXPECT_EQ(list[0].composeProject(), "shop");
    EXPECT_EQ(list[0].labels.at("tier"), "front");
    std::vector<std::string> ports;
    for (const auto& port : list[0].ports)
        ports.push_back(port.text());
    EXPECT_EQ(ports, (std::vector<std::string> { "localhost:8080→80", "53/udp", "10.1.2.3:9→9/sctp" }));
    EXPECT_EQ(list[1].state, ContainerState::unknown);
    EXPECT_EQ(list[1].rawState, "hibernating");
    EXPECT_EQ(list[1].name(), "0123456789ab");
    EXPECT_EQ(list[1].imageText(), "aabbccddeeff");
    EXPECT_EQ(list[1].composeProject(), std::nullopt);
}

TEST(ContainerEngineSocket, ChunkedAnswersAreJoinedAndBrokenOnesAreFailures)
{
    test::TemporaryFolder folder;
    auto readWith = [&](std::optional<std::string> reply, Seconds timeout = Seconds(10)) {
        std::string path = folder.file("s" + std::to_string(::rand() % 100000) + ".sock");
        OneShotServer server(path, std::move(reply));
        return ContainerEngineSocket::readContainers(path, timeout);
    };
    auto chunked = readWith("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n[{\"St\r\nf\r\nate\":\"paused\"}]\r\n0\r\n\r\n"s);
    ASSERT_TRUE(std::holds_alternative<std::vector<Container>>(chunked));
    EXPECT_EQ(std::get<std::vector<Container>>(chunked).at(0).state, ContainerState::paused);

    auto failure = [](const auto& read) { return std::holds_alternative<ContainerReadFailure>(read) ? std::optional(std::get<ContainerReadFailure>(read)) : std::nullopt; };
    EXPECT_EQ(failure(readWith("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n[{\"Names\":"s)), ContainerReadFailure::badAnswer);
    EXPECT_EQ(failure(readWith(ok("{not json"))), ContainerReadFailure::badAnswer);
    EXPECT_EQ(failure(readWith(ok("{\"message\":\"an object\"}"))), ContainerReadFailure::badAnswer);
    EXPECT_EQ(failure(readWith("HTTP/1.1 500 Internal Server Error\r\nContent-Length: 2\r\n\r\n[]"s)), ContainerReadFailure::badAnswer);
    EXPECT_EQ(failure(readWith(std::nullopt, Seconds(0.3))), ContainerReadFailure::timedOut);
    EXPECT_EQ(failure(ContainerEngineSocket::readContainers(folder.file("nobody.sock"))), ContainerReadFailure::notRunning);

    // 104 bytes is already too long: refused before any connection (which would say notRunning).
    std::string longPath = folder.path() + "/" + std::string(104 - folder.path().size() - 1, 'x');
    ASSERT_EQ(longPath.size(), 104u);
    EXPECT_EQ(failure(ContainerEngineSocket::readContainers(longPath)), ContainerReadFailure::socketPathTooLong);
}

TEST(ContainerEngine, FindsTheSocketFromHostContextOrDefault)
{
    test::TemporaryFolder home;
    home.write(".docker/config.json", R"({"auths":{},"currentContext":"orbstack"})");
    home.write(".docker/contexts/meta/9c7a1b/meta.json",
               R"({"Name":"orbstack","Metadata":{},"Endpoints":{"docker":{"Host":"unix:///Users/me/.orbstack/run/docker.sock"}}})");
    home.write(".docker/contexts/meta/1d2e3f/meta.json", R"({"Name":"remote","Endpoints":{"docker":{"Host":"ssh://me@server"}}})");
    home.write(".docker/contexts/meta/000000/meta.json", R"({"Name":"odd","Endpoints":"not an object"})");
    home.write("other/config.json", R"({"currentContext":"default"})");

    struct Row { Environment environment; std::string socket; };
    std::vector<Row> rows {
        { { { "DOCKER_HOST", "unix:///run/user/1000/docker.sock" } }, "/run/user/1000/docker.sock" },
        { { { "DOCKER_HOST", "tcp://127.0.0.1:2375" } }, "/Users/me/.orbstack/run/docker.sock" },
        { {}, "/Users/me/.orbstack/run/docker.sock" },
        { { { "DOCKER_CONTEXT", "remote" } }, "/var/run/docker.sock" },
        { { { "DOCKER_CONTEXT", "odd" } }, "/var/run/docker.sock" },
        { { { "DOCKER_CONTEXT", "default" } }, "/var/run/docker.sock" },
        { { { "DOCKER_CONFIG", home.file("other") } }, "/var/run/docker.sock" },
    };
    for (const auto& row : rows)
        EXPECT_EQ(containerSocketPath(row.environment, home.path()), row.socket) << row.environment.begin()->second;
    home.write(".docker/config.json", "{ broken");
    EXPECT_EQ(containerSocketPath({}, home.path()), "/var/run/docker.sock");
    EXPECT_EQ(containerSocketPath({}, home.file("nobody")), "/var/run/docker.sock");
}

TEST(ContainerEngine, KindsClientsAndFailureTexts)
{
    EXPECT_EQ(containerEngineKind("/Users/me/.orbstack/run/docker.sock"), ContainerEngineKind::orbStack);
    EXPECT_EQ(containerEngineKind("/Applications/OrbStack.app/Contents/MacOS/xbin/docker"), ContainerEngineKind::orbStack);
    EXPECT_EQ(containerEngineKind("/Applications/Docker.app/Contents/Resources/bin/docker"), ContainerEngineKind::dockerDesktop);
    EXPECT_EQ(containerEngineKind("/Users/me/.docker/run/docker.sock"), ContainerEngineKind::dockerDesktop);
    EXPECT_EQ(containerEngineKind("/var/run/docker.sock"), ContainerEngineKind::other);

    auto client = dockerClient("/home/me");
    EXPECT_EQ(client.candidates.at(2), "/home/me/.orbstack/bin/docker");
    EXPECT_EQ(client.candidates.at(3), "/home/me/.docker/bin/docker");
    auto environment = dockerClientEnvironment("/tmp/e.sock");
    EXPECT_EQ(environment.at("DOCKER_CLI_HINTS"), "false");
    EXPECT_TRUE(environment.count("DOCKER_CLI_HOOKS"));
    EXPECT_EQ(environment.at("DOCKER_HOST"), "unix:///tmp/e.sock");

    auto failure = [](std::optional<DevTool::Run::Failure> launch, int status, std::string error) {
        DevTool::Run run;
        run.failure = launch;
        run.status = status;
        run.errorOutput = std::move(error);
        return text(containerActionFailure(run));
    };
    EXPECT_EQ(failure(DevTool::Run::Failure::notFound, 0, ""), "The docker tool couldn’t be run");
    EXPECT_EQ(failure(DevTool::Run::Failure::timedOut, 0, ""), "Docker didn’t answer in time");
    EXPECT_EQ(failure(std::nullopt, 1, "Error response from daemon: No such container: web\n"), "Docker doesn’t know this container");
    EXPECT_EQ(failure(std::nullopt, 1, "Error response from daemon: cannot stop container\n"), "Docker didn’t say why");

    EXPECT_EQ(containersText::notRunningAdvice("OrbStack"), "Open OrbStack to start it, and your containers show up here");
    EXPECT_EQ(containersText::notRunningAdvice(""), "Start your Docker engine, and your containers show up here");
}

TEST(ContainerEngine, NothingInstalledReadsAsNotInstalledAndAStartRequestAsStarting)
{
    test::TemporaryFolder folder;
    auto setup = std::make_shared<ContainerEngineSetup>();
    setup->socketPath = folder.file("no.sock");
    setup->client = DevTool { "docker", { folder.file("no-docker") } };
    EXPECT_EQ(readContainersState(*setup).phase, ContainersState::Phase::notInstalled);
    EXPECT_EQ(setup->perform(ContainerAction::start, "web"), ContainerActionFailure::couldNotRun);

    folder.write("docker", "#!/bin/sh\nexit 1\n", 0755);
    setup->client = DevTool { "docker", { folder.file("docker") } };
    EXPECT_EQ(containersText::summary(readContainersState(*setup)), "Docker isn’t running");

    ManualRuntime runtime;
    KestruneActivity activity;
    ContainersMonitor monitor(runtime, activity, setup);
    int changes = 0;
    monitor.onChange = [&] { ++changes; };
    monitor.engineStartRequested();
    EXPECT_EQ(monitor.state().phase, ContainersState::Phase::starting);
    ASSERT_TRUE(runtime.runUntil([&] { return changes == 2; }, Seconds(30)));
    EXPECT_EQ(containersText::summary(monitor.state()), "Docker is starting");
    runtime.advance(ContainersMonitor::startingGrace);
    monitor.refresh();
    ASSERT_TRUE(runtime.runUntil([&] { return changes == 3; }, Seconds(30)));
    EXPECT_EQ(monitor.state().phase, ContainersState::Phase::notRunning);
}

} // namespace
} // namespace kestrune
