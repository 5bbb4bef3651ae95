#include "KestruneKit/Core/ApplicationSupport.h"

namespace kestrune {

std::string applicationSupportFolder(const Environment& environment, const std::string& home)
{
    // The XDG base-directory rule: a relative XDG_DATA_HOME is invalid and is ignored.
    auto data = environment.find("XDG_DATA_HOME");
    if (data != environment.end() && !data->second.empty() && data->second[0] == '/')
        return data->second + "/kestrune-dock";
    return home + "/.local/share/kestrune-dock";
}

} // namespace kestrune
