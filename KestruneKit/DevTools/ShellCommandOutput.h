#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kestrune {

// Turns what a command wrote to its terminal-less pipe into the text a terminal would have
// shown: carriage returns overwrite the line (progress bars), backspaces erase, colour and other
// control sequences and window-title commands vanish, other control characters are dropped.
// Invalid UTF-8 becomes U+FFFD, one for each maximal invalid subpart, as the platform decodes it.
struct ShellCommandOutput {
    [[nodiscard]] static std::string clean(std::string_view bytes);

    // The last line of cleaned text that has something to show, cut to at most `limit`
    // characters; output ending in a newline or blank lines does not leave the face empty.
    [[nodiscard]] static std::string lastLine(std::string_view cleaned, size_t limit = 160);
};

} // namespace kestrune
