#include "KestruneKit/Simulators/SimulatorsMonitor.h"

// Xcode's simulators run on macOS only.
namespace kestrune::appleSimulators {

std::optional<std::vector<Simulator>> read(const DevToolBox&) { return std::nullopt; }

std::string start(const DevToolBox&, const std::string&) { return "Xcode’s simulators run on a Mac"; }

std::string shutDown(const DevToolBox&, const std::string&) { return "Xcode’s simulators run on a Mac"; }

} // namespace kestrune::appleSimulators
