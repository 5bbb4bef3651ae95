#pragma once
// A Docker engine of a test's own, for the tests that use the real thing: a private socket and
// data folder, kept off the host's network, torn down with every mount it made; and the tiny
// image its containers run.

#include <unistd.h>
#include <sys/mount.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

#include "KestruneKit/Containers/ContainerEngineSocket.h"
#include "KestruneKit/Core/Environment.h"
#include "KestruneKit/Process/ChildProcess.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune::test {

// A Docker engine of the test's own: a private socket and data folder, kept off the host's
// network, torn down with every mount it made.
class PrivateEngine {
public:
    explicit PrivateEngine(const TemporaryFolder& folder) : folder_(folder) {}
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
        auto log = readFile(folder_.file("dockerd.log"));
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

    const TemporaryFolder& folder_;
    std::unique_ptr<ChildProcess> engine_;
};

// Runs the docker client against the engine, in the folder.
inline std::string privateDocker(const TemporaryFolder& folder, const PrivateEngine& engine, const std::string& arguments)
{
    return shell(folder.path(), "docker " + arguments, { { "DOCKER_HOST", "unix://" + engine.socketPath() } });
}

// Imports kestrune-test:1, a tiny image from the static busybox, and returns what `docker run`
// takes after its options for a container of it that runs until SIGTERM ends it at once.
inline std::string importTestImage(const TemporaryFolder& folder, const PrivateEngine& engine)
{
    shell(folder.path(), "mkdir -p rootfs/bin && cp /bin/busybox rootfs/bin/ && ln -s busybox rootfs/bin/sh && ln -s busybox rootfs/bin/sleep"
                         " && tar -C rootfs -cf image.tar .");
    privateDocker(folder, engine, "import image.tar kestrune-test:1 >/dev/null");
    return " kestrune-test:1 /bin/sh -c 'trap \"exit 0\" TERM; while :; do sleep 1; done' >/dev/null";
}

} // namespace kestrune::test
