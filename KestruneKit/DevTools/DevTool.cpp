#include "KestruneKit/DevTools/DevTool.h"

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

std::string_view toString(DevTool::Run::Failure failure)
{
    switch (failure) {
    case DevTool::Run::Failure::notFound:
        return "notFound";
    case DevTool::Run::Failure::couldNotLaunch:
        return "couldNotLaunch";
    case DevTool::Run::Failure::timedOut:
        return "timedOut";
    }
    return "couldNotLaunch";
}

} // namespace kestrune
