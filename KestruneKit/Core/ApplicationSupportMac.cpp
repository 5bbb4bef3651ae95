#include "KestruneKit/Core/ApplicationSupport.h"

namespace kestrune {

std::string applicationSupportFolder(const Environment& /*environment*/, const std::string& home)
{
    return home + "/Library/Application Support/Kestrune Dock";
}

} // namespace kestrune
