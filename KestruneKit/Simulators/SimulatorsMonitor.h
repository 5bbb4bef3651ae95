#pragma once
// OVERVIEW
// The Simulators widget's data: the Android emulator's virtual devices (and on macOS Xcode's
// simulators, through simctl) and which of them run, read
// every ten seconds while the widget is on screen, and starting or shutting one down. The SDK is
// found where Android Studio puts it ($ANDROID_HOME, $ANDROID_SDK_ROOT, ~/Android/Sdk on Linux,
// ~/Library/Android/sdk on macOS); `emulator -list-avds` names the devices, and `adb devices`
// with `adb emu avd name` tells which run. Without the emulator the reading says it isn't
// installed.
//
// TYPICAL USAGE
//   SimulatorsMonitor monitor(runtime);
//   monitor.onChange = [&] { redraw(*monitor.reading()); };
//   monitor.poller().setWanted(tileId, true);
//   monitor.start(monitor.reading()->simulators[0], [](std::string failure) { ... });
//
// Main thread only; the tools run on the monitor's own queue.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KestruneKit/DevTools/DevTool.h"
#include "KestruneKit/DevTools/DevToolBox.h"
#include "KestruneKit/DevTools/PolledMonitor.h"

namespace kestrune {

enum class SimulatorKind { android, apple };

struct Simulator {
    // An Android device's AVD name; an Apple simulator's name and system ("iPhone 15 (iOS 17.0)").
    std::string name;
    // While it runs: the emulator's adb serial ("emulator-5554"), or the simulator's UDID.
    std::optional<std::string> serial;
    SimulatorKind kind = SimulatorKind::android;
    // An Apple simulator's UDID, which simctl boots and shuts down.
    std::string udid;
    bool operator==(const Simulator&) const = default;
};

// The available devices in `xcrun simctl list devices available --json`, by system then name.
[[nodiscard]] std::vector<Simulator> parseSimctlDevices(std::string_view json);

// Xcode's simulators, on the platforms that have them (one platform file each).
namespace appleSimulators {
// None where there is no simctl.
[[nodiscard]] std::optional<std::vector<Simulator>> read(const DevToolBox& box);
// Boots it and brings the Simulator app forward; or says why not.
[[nodiscard]] std::string start(const DevToolBox& box, const std::string& udid);
[[nodiscard]] std::string shutDown(const DevToolBox& box, const std::string& udid);
} // namespace appleSimulators

struct SimulatorsReading {
    bool installed = false;
    std::vector<Simulator> simulators;
    // Why the devices could not be listed, when they could not.
    std::string failure;
    bool operator==(const SimulatorsReading&) const = default;
};

class SimulatorsReader {
public:
    static constexpr Seconds listTimeout { 20.0 };

    // The tools found from this process's environment.
    SimulatorsReader();
    // Tests give the environment.
    explicit SimulatorsReader(DevToolBox box);

    // Blocks on the tools: on a queue, never the main thread.
    [[nodiscard]] SimulatorsReading read() const;
    // Starts the device and returns at once, the device left running on its own; or says why not.
    [[nodiscard]] std::string start(const Simulator& simulator) const;
    [[nodiscard]] std::string shutDown(const Simulator& simulator) const;

    // The device names `emulator -list-avds` printed; its own log lines are skipped.
    [[nodiscard]] static std::vector<std::string> parseDeviceNames(std::string_view output);
    // The emulators' serials in `adb devices` output.
    [[nodiscard]] static std::vector<std::string> parseEmulatorSerials(std::string_view output);

private:
    DevToolBox box_;
    DevTool emulator_;
    DevTool adb_;
};

namespace simulatorsText {
inline constexpr std::string_view looking = "Looking for devices…";
inline constexpr std::string_view notInstalled = "The Android emulator isn’t installed";
inline constexpr std::string_view none = "No virtual devices";
// A device's name as Android Studio shows it: "Pixel_8_API_34" is "Pixel 8 API 34".
[[nodiscard]] std::string displayName(std::string_view name);
// "Pixel 8 running", "2 running", "3 devices, none running".
[[nodiscard]] std::string summary(const std::optional<SimulatorsReading>& reading);
} // namespace simulatorsText

class SimulatorsMonitor : public PolledMonitor<SimulatorsReading> {
public:
    static constexpr Seconds interval { 10.0 };

    explicit SimulatorsMonitor(Runtime& runtime, KestruneActivity& activity = KestruneActivity::shared(),
                               std::shared_ptr<const SimulatorsReader> reader = nullptr);

    // `done` gets the failure's words, empty when it went.
    void start(const Simulator& simulator, std::function<void(std::string)> done = {});
    void shutDown(const Simulator& simulator, std::function<void(std::string)> done = {});

private:
    SimulatorsMonitor(Runtime& runtime, KestruneActivity& activity, std::shared_ptr<const SimulatorsReader> reader, int);

    std::shared_ptr<const SimulatorsReader> reader_;
};

} // namespace kestrune
