// A desktop entry's Exec line, and the facts a window and the entries give the matcher.
#include <vector>

#include "KestruneDock/Desktop/WindowMatcher.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace kestrune;
    auto input = fuzz::text(data, size);
    std::vector<std::string> parts;
    size_t start = 0;
    while (start <= input.size() && parts.size() < 12) {
        auto end = input.find('\n', start);
        if (end == std::string_view::npos)
            end = input.size();
        parts.emplace_back(input.substr(start, end - start));
        start = end + 1;
    }
    parts.resize(12);
    WindowFacts window { parts[0], parts[1], parts[2], parts[3], { parts[4] }, parts[5] };
    std::vector<DesktopEntryFacts> entries {
        { "/a.desktop", parts[6], parts[7], execProgram(parts[8]) },
        { "/b.desktop", parts[9], parts[10], execProgram(parts[11]) },
    };
    auto match = matchWindow(window, entries);
    if (match.entry && *match.entry >= entries.size())
        __builtin_trap();
    (void)execProgram(input);
    return 0;
}
