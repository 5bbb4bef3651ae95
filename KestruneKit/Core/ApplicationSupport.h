#pragma once

#include <string>

#include "KestruneKit/Core/Environment.h"

namespace kestrune {

// The application's own folder for files it keeps beside other tools (the status-line script
// and what it saves). Not created here.
[[nodiscard]] std::string applicationSupportFolder(const Environment& environment, const std::string& home);

} // namespace kestrune
