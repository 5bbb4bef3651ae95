#pragma once

#include <optional>
#include <string>
#include <sys/types.h>

namespace kestrune {

// Writes the bytes to a temporary file beside the target, flushes it to disk and renames it over
// the target, so that a reader sees the old file or the new one and never half of either. The
// new file gets `mode`, else the target's present mode, else 0644. Returns the errno value of
// the step that failed; the target is then untouched.
[[nodiscard]] std::optional<int> writeFileAtomically(const std::string& path, const std::string& bytes,
                                                     std::optional<mode_t> mode = std::nullopt);

// The whole file, or none when it cannot be read.
[[nodiscard]] std::optional<std::string> readWholeFile(const std::string& path);

// Creates the folder and any missing folders above it; false when one cannot be made.
[[nodiscard]] bool createFolders(const std::string& folder);

// The folder of a path ("." for a bare name).
[[nodiscard]] std::string parentFolder(const std::string& path);

} // namespace kestrune
