#pragma once
// OVERVIEW
// The Simulators widget's data: the Android emulator's virtual devices and which of them run, read
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
//   monitor.start("Pixel_8", [](std::string failure) { ... });
//
// Main thread only; the tools run on the monitor's own queue.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KestruneKit/DevTools/DevTool.h"
#include "KestruneKit/DevTools/DevToolBox.h"
#include "KestruneKit/DevTools/PolledMonitor.h"

namespace kestrune {

struct Simulator {
    std::string name;
    // The running emulator's adb serial ("emulator-5554"); none while it is shut down.
    std::optional<std::string> serial;
    bool operator==(const Simulator&) const = default;
};

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
    // Starts the device and returns at once, the emulator left running on its own; or says why not.
    [[nodiscard]] std::string start(const std::string& name) const;
    [[nodiscard]] std::string shutDown(const std::string& serial) const;

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
    void start(const std::string& name, std::function<void(std::string)> done = {});
    void shutDown(const std::string& serial, std::function<void(std::string)> done = {});

private:
    SimulatorsMonitor(Runtime& runtime, KestruneActivity& activity, std::shared_ptr<const SimulatorsReader> reader, int);

    std::shared_ptr<const SimulatorsReader> reader_;
};

} // namespace kestrune
