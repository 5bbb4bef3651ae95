#include "KestruneKit/Simulators/SimulatorsMonitor.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "KestruneKit/Core/CountText.h"
#include "KestruneKit/Core/JsonFields.h"

namespace kestrune {

namespace {

std::vector<std::string_view> linesOf(std::string_view text)
{
    std::vector<std::string_view> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string_view::npos)
            end = text.size();
        std::string_view line = text.substr(start, end - start);
        while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t'))
            line.remove_suffix(1);
        if (!line.empty())
            lines.push_back(line);
        start = end + 1;
    }
    return lines;
}

// Where the SDK usually is, in the order looked at.
std::vector<std::string> sdkFolders(const Environment& environment)
{
    std::vector<std::string> folders;
    for (const char* name : { "ANDROID_HOME", "ANDROID_SDK_ROOT" })
        if (auto found = environment.find(name); found != environment.end() && !found->second.empty())
            folders.push_back(found->second);
    if (auto home = environment.find("HOME"); home != environment.end() && !home->second.empty()) {
        folders.push_back(home->second + "/Android/Sdk");
        folders.push_back(home->second + "/Library/Android/sdk");
    }
    return folders;
}

std::string failureOf(const DevTool::Run& run, std::string_view tool)
{
    if (run.succeeded())
        return {};
    if (run.failure == DevTool::Run::Failure::timedOut)
        return std::string(tool) + " took too long and was stopped";
    if (run.failure)
        return std::string(tool) + " couldn’t start";
    std::vector<std::string_view> said = linesOf(run.errorOutput.empty() ? run.output : run.errorOutput);
    return said.empty() ? std::string(tool) + " failed" : std::string(tool) + " said: " + std::string(said.back());
}

} // namespace

SimulatorsReader::SimulatorsReader() : SimulatorsReader(DevToolBox()) {}

SimulatorsReader::SimulatorsReader(DevToolBox box) : box_(std::move(box)), emulator_ { "emulator", {} }, adb_ { "adb", {} }
{
    for (const std::string& sdk : sdkFolders(box_.base())) {
        emulator_.candidates.push_back(sdk + "/emulator/emulator");
        adb_.candidates.push_back(sdk + "/platform-tools/adb");
    }
    adb_.candidates.emplace_back("/usr/bin/adb");
}

std::vector<std::string> SimulatorsReader::parseDeviceNames(std::string_view output)
{
    std::vector<std::string> names;
    for (std::string_view line : linesOf(output)) {
        // A device's name has no spaces; the emulator's own log lines ("INFO    | …") on the same
        // stream do.
        if (line.find_first_of(" |") != std::string_view::npos)
            continue;
        names.emplace_back(line);
    }
    return names;
}

std::vector<std::string> SimulatorsReader::parseEmulatorSerials(std::string_view output)
{
    std::vector<std::string> serials;
    for (std::string_view line : linesOf(output)) {
        size_t tab = line.find('\t');
        if (tab == std::string_view::npos || !line.starts_with("emulator-"))
            continue;
        // "offline" and "unauthorized" emulators are still starting or going.
        if (line.substr(tab + 1) == "device")
            serials.emplace_back(line.substr(0, tab));
    }
    return serials;
}

std::vector<Simulator> parseSimctlDevices(std::string_view json)
{
    std::vector<Simulator> simulators;
    auto root = nlohmann::json::parse(json, nullptr, false);
    if (!root.is_object() || !root.contains("devices") || !root["devices"].is_object())
        return simulators;
    for (const auto& [runtime, devices] : root["devices"].items()) {
        // "com.apple.CoreSimulator.SimRuntime.iOS-17-0" runs "iOS 17.0".
        std::string system = runtime.substr(runtime.rfind('.') + 1);
        if (auto dash = system.find('-'); dash != std::string::npos) {
            system[dash] = ' ';
            std::replace(system.begin() + static_cast<std::ptrdiff_t>(dash), system.end(), '-', '.');
        }
        if (!devices.is_array())
            continue;
        for (const auto& device : devices) {
            if (!device.is_object() || !jsonFlag(device, "isAvailable", true) || jsonText(device, "udid").empty())
                continue;
            Simulator simulator;
            simulator.kind = SimulatorKind::apple;
            simulator.udid = jsonText(device, "udid");
            std::string name = jsonText(device, "name");
            simulator.name = (name.empty() ? simulator.udid : name) + " (" + system + ")";
            if (jsonText(device, "state") == "Booted")
                simulator.serial = simulator.udid;
            simulators.push_back(std::move(simulator));
        }
    }
    return simulators;
}

SimulatorsReading SimulatorsReader::read() const
{
    SimulatorsReading reading;
    if (auto apple = appleSimulators::read(box_)) {
        reading.installed = true;
        reading.simulators = std::move(*apple);
    }
    auto list = box_.run(emulator_, { "-list-avds" }, std::nullopt, {}, listTimeout);
    if (list.failure == DevTool::Run::Failure::notFound)
        return reading;
    reading.installed = true;
    if (!list.succeeded()) {
        reading.failure = failureOf(list, "The emulator");
        return reading;
    }
    for (std::string& name : parseDeviceNames(list.output)) {
        Simulator device;
        device.name = std::move(name);
        reading.simulators.push_back(std::move(device));
    }

    auto devices = box_.run(adb_, { "devices" }, std::nullopt, {}, listTimeout);
    if (!devices.succeeded())
        return reading;
    for (const std::string& serial : parseEmulatorSerials(devices.output)) {
        auto named = box_.run(adb_, { "-s", serial, "emu", "avd", "name" }, std::nullopt, {}, listTimeout);
        std::vector<std::string_view> lines = linesOf(named.output);
        if (!named.succeeded() || lines.empty())
            continue;
        for (Simulator& simulator : reading.simulators)
            if (simulator.name == lines.front())
                simulator.serial = serial;
    }
    return reading;
}

std::string SimulatorsReader::start(const Simulator& simulator) const
{
    if (simulator.kind == SimulatorKind::apple)
        return appleSimulators::start(box_, simulator.udid);
    const std::string& name = simulator.name;
    auto emulator = DevToolBox::locate(emulator_.candidates);
    if (!emulator)
        return std::string(simulatorsText::notInstalled);
    // The shell puts the emulator in the background and leaves at once: the device runs on after
    // the dock quits, as one started from Android Studio does.
    auto run = box_.run(DevTool { "sh", { "/bin/sh" } }, { "-c", "\"$0\" -avd \"$1\" </dev/null >/dev/null 2>&1 &", *emulator, name },
                        std::nullopt, {}, listTimeout);
    return failureOf(run, "The emulator");
}

std::string SimulatorsReader::shutDown(const Simulator& simulator) const
{
    if (simulator.kind == SimulatorKind::apple)
        return appleSimulators::shutDown(box_, simulator.udid);
    if (!simulator.serial)
        return {};
    auto run = box_.run(adb_, { "-s", *simulator.serial, "emu", "kill" }, std::nullopt, {}, listTimeout);
    if (run.failure == DevTool::Run::Failure::notFound)
        return "adb isn’t installed";
    return failureOf(run, "adb");
}

namespace simulatorsText {

std::string displayName(std::string_view name)
{
    std::string shown(name);
    std::replace(shown.begin(), shown.end(), '_', ' ');
    return shown;
}

std::string summary(const std::optional<SimulatorsReading>& reading)
{
    if (!reading)
        return std::string(looking);
    if (!reading->installed)
        return std::string(notInstalled);
    if (!reading->failure.empty())
        return reading->failure;
    if (reading->simulators.empty())
        return std::string(none);
    std::vector<const Simulator*> running;
    for (const Simulator& simulator : reading->simulators)
        if (simulator.serial)
            running.push_back(&simulator);
    if (running.size() == 1)
        return (running.front()->kind == SimulatorKind::android ? displayName(running.front()->name) : running.front()->name) + " running";
    if (!running.empty())
        return std::to_string(running.size()) + " running";
    return countText(static_cast<int64_t>(reading->simulators.size()), "device", "devices") + ", none running";
}

} // namespace simulatorsText

SimulatorsMonitor::SimulatorsMonitor(Runtime& runtime, KestruneActivity& activity, std::shared_ptr<const SimulatorsReader> reader)
    : SimulatorsMonitor(runtime, activity, reader ? std::move(reader) : std::make_shared<const SimulatorsReader>(), 0)
{
}

SimulatorsMonitor::SimulatorsMonitor(Runtime& runtime, KestruneActivity& activity, std::shared_ptr<const SimulatorsReader> reader, int)
    : PolledMonitor(runtime, activity, interval, [reader] { return reader->read(); }), reader_(std::move(reader))
{
}

void SimulatorsMonitor::start(const Simulator& simulator, std::function<void(std::string)> done)
{
    perform<std::string>([reader = reader_, simulator] { return reader->start(simulator); }, std::move(done));
}

void SimulatorsMonitor::shutDown(const Simulator& simulator, std::function<void(std::string)> done)
{
    perform<std::string>([reader = reader_, simulator] { return reader->shutDown(simulator); }, std::move(done));
}

} // namespace kestrune
