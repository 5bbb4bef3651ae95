#include <csignal>
#include <filesystem>

#include <gtest/gtest.h>

#include "KestruneKit/Core/ManualRuntime.h"
#include "KestruneKit/Simulators/SimulatorsMonitor.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

// The Android SDK's emulator and adb cannot run here; small stand-ins for both sit under
// tests/helpers/android-sdk and keep their devices under the test's home.
class SimulatorsTest : public ::testing::Test {
protected:
    ~SimulatorsTest() override
    {
        // A device a failed test left running.
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator(home.file(".android/stand-in-running"), ignored)) {
            std::string line = test::readFile(entry.path().string());
            ::kill(std::stoi(line.substr(line.find(' ') + 1)), SIGTERM);
        }
    }

    SimulatorsReader reader(bool withSdk) const
    {
        Environment base = processEnvironment();
        for (const char* name : { "ANDROID_HOME", "ANDROID_SDK_ROOT", "ANDROID_EMULATOR_HOME", "ANDROID_AVD_HOME" })
            base.erase(name);
        base["HOME"] = home.path();
        if (withSdk)
            base["ANDROID_HOME"] = std::string(KESTRUNE_TEST_HELPERS) + "/android-sdk";
        return SimulatorsReader(DevToolBox(base));
    }

    test::TemporaryFolder home;
};

TEST_F(SimulatorsTest, WithoutTheEmulatorItSaysItIsNotInstalled)
{
    SimulatorsReading reading = reader(false).read();
    EXPECT_FALSE(reading.installed);
    EXPECT_EQ(simulatorsText::summary(reading), "The Android emulator isn’t installed");
    EXPECT_EQ(simulatorsText::summary(std::nullopt), "Looking for devices…");
    Simulator device;
    device.name = "Pixel_8";
    EXPECT_EQ(reader(false).start(device), "The Android emulator isn’t installed");
}

TEST_F(SimulatorsTest, ListsTheDevicesAndStartsAndShutsOneDown)
{
    EXPECT_EQ(simulatorsText::summary(reader(true).read()), "No virtual devices");
    home.write(".android/avd/Pixel_8.ini", "path=x\n");
    home.write(".android/avd/Tablet_API_34.ini", "path=y\n");

    ManualRuntime runtime;
    KestruneActivity activity;
    SimulatorsMonitor monitor(runtime, activity, std::make_shared<const SimulatorsReader>(reader(true)));
    monitor.poller().setWanted("tile", true);
    ASSERT_TRUE(runtime.runUntil([&] { return monitor.reading().has_value(); }, Seconds(30)));
    ASSERT_EQ(monitor.reading()->simulators.size(), 2U);
    EXPECT_EQ(monitor.reading()->simulators[0].name, "Pixel_8");
    EXPECT_EQ(monitor.reading()->simulators[1].name, "Tablet_API_34");
    EXPECT_FALSE(monitor.reading()->simulators[0].serial || monitor.reading()->simulators[1].serial);
    EXPECT_EQ(simulatorsText::summary(monitor.reading()), "2 devices, none running");

    std::optional<std::string> started;
    monitor.start(monitor.reading()->simulators[0], [&](std::string failure) { started = failure; });
    ASSERT_TRUE(runtime.runUntil([&] { return started.has_value(); }, Seconds(30)));
    EXPECT_EQ(*started, "");
    // The device comes up on its own time; the next readings find it.
    ASSERT_TRUE(runtime.runUntil([&] {
        runtime.advance(SimulatorsMonitor::interval);
        return monitor.reading()->simulators[0].serial.has_value();
    }, Seconds(30)));
    EXPECT_EQ(monitor.reading()->simulators[0].serial, "emulator-5554");
    EXPECT_EQ(simulatorsText::summary(monitor.reading()), "Pixel 8 running");

    std::optional<std::string> stopped;
    monitor.shutDown(monitor.reading()->simulators[0], [&](std::string failure) { stopped = failure; });
    ASSERT_TRUE(runtime.runUntil([&] {
        runtime.advance(SimulatorsMonitor::interval);
        return stopped && !monitor.reading()->simulators[0].serial;
    }, Seconds(30)));
    EXPECT_EQ(*stopped, "");

}

TEST(Simulators, ToolOutputIsReadAsTheToolsWriteIt)
{
    // What Xcode 15's simctl prints, shortened.
    auto apple = parseSimctlDevices(R"({"devices":{
        "com.apple.CoreSimulator.SimRuntime.iOS-17-0":[
            {"udid":"A1","isAvailable":true,"state":"Booted","name":"iPhone 15"},
            {"udid":"A2","isAvailable":false,"state":"Shutdown","name":"iPhone Gone"}],
        "com.apple.CoreSimulator.SimRuntime.watchOS-10-0":[{"udid":"W1","isAvailable":true,"state":"Shutdown","name":"Apple Watch"}],
        "broken":{}}})");
    ASSERT_EQ(apple.size(), 2U);
    EXPECT_EQ(apple[0].name, "iPhone 15 (iOS 17.0)");
    EXPECT_EQ(apple[0].serial, "A1");
    EXPECT_EQ(apple[1].name, "Apple Watch (watchOS 10.0)");
    EXPECT_EQ(apple[1].udid, "W1");
    EXPECT_FALSE(apple[1].serial);
    EXPECT_TRUE(parseSimctlDevices("xcrun: error: unable to find utility").empty());

    EXPECT_EQ(SimulatorsReader::parseDeviceNames("INFO    | Storing crashdata in: /tmp/x\nPixel_8\r\n\nWear_OS\n"),
              (std::vector<std::string> { "Pixel_8", "Wear_OS" }));
    EXPECT_EQ(SimulatorsReader::parseEmulatorSerials("List of devices attached\nemulator-5554\tdevice\nemulator-5556\toffline\n"
                                                      "R58M123ABC\tdevice\n\n"),
              (std::vector<std::string> { "emulator-5554" }));
}

} // namespace
} // namespace kestrune
