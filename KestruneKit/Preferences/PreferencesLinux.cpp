#include "KestruneKit/Preferences/Preferences.h"

namespace kestrune {

std::unique_ptr<Preferences> Preferences::open(const std::string& domain)
{
    return std::make_unique<JSONFilePreferences>(JSONFilePreferences::folder() + "/" + domain + ".json");
}

} // namespace kestrune
