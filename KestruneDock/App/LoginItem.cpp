#include "KestruneDock/App/LoginItem.h"

#include <fstream>

namespace kestrune {

std::string LoginItem::entryPath(const Environment& environment, const std::string& home)
{
    auto config = environment.find("XDG_CONFIG_HOME");
    std::string folder = config != environment.end() && !config->second.empty() && config->second[0] == '/'
        ? config->second
        : home + "/.config";
    return folder + "/autostart/" + std::string(entryName);
}

bool LoginItem::isRegistered(const std::string& entryPath)
{
    std::ifstream file(entryPath);
    if (!file)
        return false;
    bool inEntry = false;
    std::string line;
    while (std::getline(file, line)) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.starts_with('[')) {
            inEntry = line == "[Desktop Entry]";
            continue;
        }
        if (!inEntry)
            continue;
        if (line == "Hidden=true" || line == "X-GNOME-Autostart-enabled=false")
            return false;
    }
    return true;
}

} // namespace kestrune
