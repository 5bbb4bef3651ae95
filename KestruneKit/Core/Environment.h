#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kestrune {

// An environment as a dictionary, name to value.
using Environment = std::map<std::string, std::string>;

// The environment of this process, read now.
[[nodiscard]] Environment processEnvironment();

// "NAME=value" entries, as execve takes them.
[[nodiscard]] std::vector<std::string> environmentEntries(const Environment& environment);

// The user's home folder: $HOME, else the password database.
[[nodiscard]] std::string homeFolder();

// PATH's colon-separated folders, in order, empty ones included.
[[nodiscard]] std::vector<std::string> pathComponents(const std::string& path);

// Searches PATH's folders, in order, for an executable file with this name.
[[nodiscard]] std::optional<std::string> findInPath(const std::string& name, const std::string& path);

[[nodiscard]] bool isExecutableFile(const std::string& path);

} // namespace kestrune
