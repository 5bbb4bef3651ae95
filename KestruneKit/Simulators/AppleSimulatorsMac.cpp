#include "KestruneKit/Simulators/SimulatorsMonitor.h"

namespace kestrune::appleSimulators {

namespace {

// xcrun finds simctl in the Xcode the user chose; without Xcode it offers to install tools.
const DevTool xcrun { "xcrun", { "/usr/bin/xcrun" } };
constexpr Seconds timeout { 60.0 };

std::string failureOf(const DevTool::Run& run)
{
    if (run.succeeded())
        return {};
    if (run.failure == DevTool::Run::Failure::timedOut)
        return "simctl took too long and was stopped";
    if (run.failure)
        return "simctl couldn’t start";
    std::string said = run.errorOutput.empty() ? run.output : run.errorOutput;
    while (!said.empty() && (said.back() == '\n' || said.back() == ' '))
        said.pop_back();
    if (auto line = said.rfind('\n'); line != std::string::npos)
        said = said.substr(line + 1);
    return said.empty() ? "simctl failed" : "simctl said: " + said;
}

} // namespace

std::optional<std::vector<Simulator>> read(const DevToolBox& box)
{
    auto run = box.run(xcrun, { "simctl", "list", "devices", "available", "--json" }, std::nullopt, {}, timeout);
    // No Xcode (only the command-line tools, or nothing): no simulators to offer.
    if (!run.succeeded())
        return std::nullopt;
    return parseSimctlDevices(run.output);
}

std::string start(const DevToolBox& box, const std::string& udid)
{
    auto boot = box.run(xcrun, { "simctl", "boot", udid }, std::nullopt, {}, timeout);
    // Already booted is as good as booted.
    if (!boot.succeeded() && boot.errorOutput.find("current state: Booted") == std::string::npos)
        return failureOf(boot);
    auto open = box.run(DevTool { "open", { "/usr/bin/open" } }, { "-a", "Simulator" }, std::nullopt, {}, timeout);
    return open.succeeded() ? std::string() : "The Simulator app couldn’t open";
}

std::string shutDown(const DevToolBox& box, const std::string& udid)
{
    return failureOf(box.run(xcrun, { "simctl", "shutdown", udid }, std::nullopt, {}, timeout));
}

} // namespace kestrune::appleSimulators
