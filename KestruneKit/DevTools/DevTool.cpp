#include "KestruneKit/DevTools/DevTool.h"

#include "KestruneKit/Core/RawNames.h"

namespace kestrune {

const std::vector<DevTool>& DevTool::known()
{
    static const std::vector<DevTool> tools {
#if defined(__APPLE__)
        { "git", { "/opt/homebrew/bin/git", "/usr/local/bin/git", "/usr/bin/git" } },
        { "gh", { "/opt/homebrew/bin/gh", "/usr/local/bin/gh" } },
        { "docker", { "/opt/homebrew/bin/docker", "/usr/local/bin/docker", "/Applications/Docker.app/Contents/Resources/bin/docker" } },
#else
        { "git", { "/opt/homebrew/bin/git", "/usr/local/bin/git", "/usr/bin/git" } },
        { "gh", { "/opt/homebrew/bin/gh", "/usr/local/bin/gh", "/usr/bin/gh" } },
        { "docker", { "/opt/homebrew/bin/docker", "/usr/local/bin/docker", "/usr/bin/docker" } },
#endif
        { "zsh", { "/bin/zsh", "/usr/bin/zsh" } },
    };
    return tools;
}

namespace {
using Failure = DevTool::Run::Failure;
constexpr RawNames<Failure, 3> failureNames { { {
    { Failure::notFound, "notFound" },
    { Failure::couldNotLaunch, "couldNotLaunch" },
    { Failure::timedOut, "timedOut" },
} } };
}

std::string_view toString(DevTool::Run::Failure failure) { return failureNames.name(failure); }

} // namespace kestrune
