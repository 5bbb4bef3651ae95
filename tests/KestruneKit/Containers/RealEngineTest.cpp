#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

#include <sys/mount.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "KestruneKit/Containers/ContainersMonitor.h"
#include "KestruneKit/Core/ManualRuntime.h"
#include "KestruneKit/Process/ChildProcess.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

using Phase = ContainersState::Phase;

// A Docker engine of the test's own: a private socket and data folder, kept off the host's
// network, torn down with every mount it made.
class PrivateEngine {
public:
    explicit PrivateEngine(const test::TemporaryFolder& folder) : folder_(folder) {}
    ~PrivateEngine()
    {
        stop();
        unmountUnder(folder_.path());
    }

    std::string socketPath() const { return folder_.file("engine.sock"); }

    // Empty when the engine answers; else why it could not start.
    std::string start()
    {
        if (::geteuid() != 0)
            return "dockerd needs root to run; this test needs a real engine";
        if (!isExecutableFile("/usr/sbin/dockerd"))
            return "dockerd is not installed (scripts/setup installs docker.io)";
        ChildProcessOptions options;
        options.executable = "/bin/sh";
        options.arguments = { "-c", "exec /usr/sbin/dockerd \"$@\" >\"$LOG\" 2>&1", "dockerd",
                              "--host", "unix://" + socketPath(), "--data-root", folder_.file("data"), "--exec-root", folder_.file("exec"),
                              "--pidfile", folder_.file("dockerd.pid"), "--bridge=none", "--iptables=false", "--ip-forward=false",
                              "--ip-masq=false", "--ip6tables=false" };
        Environment environment = processEnvironment();
        environment["LOG"] = folder_.file("dockerd.log");
        environment.erase("DOCKER_HOST");
        options.environment = environment;
        options.input = ChildStream::nullDevice;
        options.output = ChildStream::nullDevice;
        options.error = ChildStream::nullDevice;
        options.grouping = ChildGrouping::newProcessGroup;
        auto spawned = ChildProcess::spawn(options);
        if (auto* failure = std::get_if<SpawnFailure>(&spawned))
            return failure->description();
        engine_ = std::move(std::get<std::unique_ptr<ChildProcess>>(spawned));
        for (int attempt = 0; attempt < 600; ++attempt) {
            if (engine_->tryWait())
                return "dockerd exited: " + logTail();
            auto read = ContainerEngineSocket::readContainers(socketPath(), Seconds(2));
            if (std::holds_alternative<std::vector<Container>>(read))
                return {};
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        return "dockerd did not answer within a minute: " + logTail();
    }

    void stop()
    {
        if (!engine_)
            return;
        engine_->signal(SIGTERM);
        for (int attempt = 0; attempt < 300 && !engine_->tryWait(); ++attempt)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        engine_->signalGroup(SIGKILL);
        engine_.reset();
    }

    std::string logTail() const
    {
        auto log = test::readFile(folder_.file("dockerd.log"));
        return log.size() > 2000 ? log.substr(log.size() - 2000) : log;
    }

private:
    static void unmountUnder(const std::string& folder)
    {
        std::ifstream mounts("/proc/self/mountinfo");
        std::vector<std::string> points;
        for (std::string line; std::getline(mounts, line);) {
            std::istringstream fields(line);
            std::string id, parent, device, root, point;
            fields >> id >> parent >> device >> root >> point;
            if (point.starts_with(folder + "/"))
                points.push_back(point);
        }
        // Deepest first.
        std::sort(points.rbegin(), points.rend());
        for (const auto& point : points)
            ::umount2(point.c_str(), MNT_DETACH);
    }

    const test::TemporaryFolder& folder_;
    std::unique_ptr<ChildProcess> engine_;
};

TEST(RealEngine, ListsStopsStartsAndRestartsContainersAndNoticesAStoppedEngine)
{
    test::TemporaryFolder folder;
    PrivateEngine engine(folder);
    auto failure = engine.start();
    ASSERT_EQ(failure, "") << "the Docker engine could not start";

    auto setup = std::make_shared<ContainerEngineSetup>();
    setup->socketPath = engine.socketPath();
    setup->client = dockerClient(folder.path());
    ASSERT_TRUE(DevToolBox::locate(setup->client.candidates)) << "no docker client";
    auto docker = [&](const std::string& arguments) {
        return test::shell(folder.path(), "docker " + arguments, { { "DOCKER_HOST", "unix://" + engine.socketPath() } });
    };

    // A tiny image from the static busybox; the containers end at once on SIGTERM.
    test::shell(folder.path(), "mkdir -p rootfs/bin && cp /bin/busybox rootfs/bin/ && ln -s busybox rootfs/bin/sh && ln -s busybox rootfs/bin/sleep"
                               " && tar -C rootfs -cf image.tar .");
    docker("import image.tar kestrune-test:1 >/dev/null");
    std::string command = " kestrune-test:1 /bin/sh -c 'trap \"exit 0\" TERM; while :; do sleep 1; done' >/dev/null";
    docker("run -d --name web --network none --label com.docker.compose.project=shop --label tier=front" + command);
    docker("run -d --name solo --network none" + command);

    auto names = [](const ContainersState& state) {
        std::vector<std::string> result;
        for (const auto& container : state.containers)
            result.push_back(container.name());
        std::sort(result.begin(), result.end());
        return result;
    };
    auto running = readContainersState(*setup);
    ASSERT_EQ(running.phase, Phase::running);
    EXPECT_EQ(names(running), (std::vector<std::string> { "solo", "web" }));
    auto web = std::find_if(running.containers.begin(), running.containers.end(), [](const Container& c) { return c.name() == "web"; });
    EXPECT_EQ(web->composeProject(), "shop");
    EXPECT_EQ(web->labels.at("tier"), "front");
    EXPECT_EQ(web->image, "kestrune-test:1");
    EXPECT_EQ(web->state, ContainerState::running);
    EXPECT_TRUE(web->status.starts_with("Up")) << web->status;

    // Actions through the monitor, each followed by a fresh read.
    ManualRuntime runtime;
    KestruneActivity activity;
    ContainersMonitor monitor(runtime, activity, setup);
    std::vector<std::optional<ContainerActionFailure>> results;
    auto act = [&](ContainerAction action, const std::string& name) {
        size_t before = results.size();
        monitor.perform(action, name, [&](auto result) { results.push_back(result); });
        EXPECT_TRUE(runtime.runUntil([&] { return results.size() > before; }, Seconds(60)));
        return results.back();
    };
    EXPECT_EQ(act(ContainerAction::stop, "web"), std::nullopt);
    EXPECT_EQ(names(monitor.state()), (std::vector<std::string> { "solo" }));
    EXPECT_EQ(act(ContainerAction::start, "web"), std::nullopt);
    EXPECT_EQ(names(monitor.state()), (std::vector<std::string> { "solo", "web" }));
    auto startedAt = [&] { return docker("inspect -f '{{.State.StartedAt}}' solo"); };
    auto before = startedAt();
    EXPECT_EQ(act(ContainerAction::restart, "solo"), std::nullopt);
    EXPECT_NE(startedAt(), before);
    EXPECT_EQ(monitor.state().phase, Phase::running);
    EXPECT_EQ(act(ContainerAction::start, "nobody"), ContainerActionFailure::unknownContainer);

    docker("stop -t 5 web solo >/dev/null");
    monitor.refresh();
    ASSERT_TRUE(runtime.runUntil([&] { return monitor.state().phase == Phase::noneRunning; }, Seconds(60)));
    EXPECT_EQ(containersText::summary(monitor.state()), "No containers running");

    engine.stop();
    auto stopped = readContainersState(*setup);
    EXPECT_EQ(stopped.phase, Phase::notRunning);
    EXPECT_EQ(containersText::summary(stopped), "Docker isn’t running");
}

} // namespace
} // namespace kestrune
