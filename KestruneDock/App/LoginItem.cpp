#include "KestruneDock/App/LoginItem.h"

#include <cerrno>
#include <cstring>
#include <fstream>

#include <unistd.h>

#include "KestruneDock/App/ApplicationsMenuEntry.h"
#include "KestruneKit/Core/AtomicFile.h"

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

std::string LoginItem::setRegistered(const std::string& entryPath, const std::string& executable, bool registered)
{
    if (!registered) {
        if (::unlink(entryPath.c_str()) != 0 && errno != ENOENT)
            return std::strerror(errno);
        return {};
    }
    std::string text = "[Desktop Entry]\n"
                       "Type=Application\n"
                       "Name=Kestrune Dock\n"
                       "Comment=A dock with live widgets for developers\n"
                       "Exec="
        + ApplicationsMenuEntry::execValue(executable) + " " + std::string(loginArgument)
        + "\n"
          "Icon=app.quillane.dock\n"
          "Terminal=false\n"
          "X-GNOME-Autostart-enabled=true\n";
    if (!createFolders(parentFolder(entryPath)))
        return std::strerror(errno);
    if (auto failed = writeFileAtomically(entryPath, text, 0644))
        return std::strerror(*failed);
    return {};
}

} // namespace kestrune
