#include <algorithm>
#include <chrono>
#include <csignal>
#include <thread>

#include <unistd.h>

#include <gtest/gtest.h>

#include "KestruneKit/Containers/ContainersMonitor.h"
#include "KestruneKit/Core/ManualRuntime.h"
#include "tests/helpers/PrivateEngine.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

using Phase = ContainersState::Phase;

TEST(RealEngine, ListsStopsStartsAndRestartsContainersAndNoticesAStoppedEngine)
{
    test::TemporaryFolder folder;
    test::PrivateEngine engine(folder);
    auto failure = engine.start();
    ASSERT_EQ(failure, "") << "the Docker engine could not start";

    auto setup = std::make_shared<ContainerEngineSetup>();
    setup->socketPath = engine.socketPath();
    setup->client = dockerClient(folder.path());
    ASSERT_TRUE(DevToolBox::locate(setup->client.candidates)) << "no docker client";
    auto docker = [&](const std::string& arguments) { return test::privateDocker(folder, engine, arguments); };
    std::string command = test::importTestImage(folder, engine);
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
