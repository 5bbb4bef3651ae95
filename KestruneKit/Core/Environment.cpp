#include "KestruneKit/Core/Environment.h"

#include <cstdlib>
#include <string_view>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

extern char** environ;

namespace kestrune {

Environment processEnvironment()
{
    Environment environment;
    for (char** entry = environ; entry && *entry; ++entry) {
        std::string_view text(*entry);
        auto equals = text.find('=');
        if (equals == std::string_view::npos || equals == 0)
            continue;
        // The first definition wins, as getenv() sees it.
        environment.emplace(std::string(text.substr(0, equals)), std::string(text.substr(equals + 1)));
    }
    return environment;
}

std::vector<std::string> environmentEntries(const Environment& environment)
{
    std::vector<std::string> entries;
    entries.reserve(environment.size());
    for (const auto& [name, value] : environment)
        entries.push_back(name + "=" + value);
    return entries;
}

std::string homeFolder()
{
    if (const char* home = std::getenv("HOME"); home && *home)
        return home;
    if (const passwd* entry = ::getpwuid(::getuid()); entry && entry->pw_dir)
        return entry->pw_dir;
    return "/";
}

bool isExecutableFile(const std::string& path)
{
    struct stat info {};
    return !path.empty() && ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode)
        && ::access(path.c_str(), X_OK) == 0;
}

std::vector<std::string> pathComponents(const std::string& path)
{
    std::vector<std::string> components;
    size_t start = 0;
    for (;;) {
        size_t end = path.find(':', start);
        components.push_back(path.substr(start, end == std::string::npos ? std::string::npos : end - start));
        if (end == std::string::npos)
            return components;
        start = end + 1;
    }
}

std::optional<std::string> findInPath(const std::string& name, const std::string& path)
{
    if (name.empty())
        return std::nullopt;
    if (name.find('/') != std::string::npos)
        return isExecutableFile(name) ? std::optional(name) : std::nullopt;
    for (const auto& folder : pathComponents(path)) {
        // An empty component means the current folder to a shell; a dock has no meaningful one.
        if (folder.empty())
            continue;
        std::string candidate = folder + "/" + name;
        if (isExecutableFile(candidate))
            return candidate;
    }
    return std::nullopt;
}

} // namespace kestrune
