// A system whose desktop the dock does not know: no applications can be found or opened, and
// the dock shows only what the user pins by path.

#include "KestruneDock/Dock/Workspace.h"

#include <sys/stat.h>
#include <unistd.h>

namespace kestrune {

namespace {

class WorkspaceUnsupported final : public Workspace {
public:
    std::string_view applicationSuffix() const override { return ".desktop"; }
    std::vector<RunningApplication> runningApplications() const override { return {}; }
    uint64_t watchRunningApplications(std::function<void()>) override { return 0; }
    void unwatchRunningApplications(uint64_t) override {}
    int64_t thisProcess() const override { return ::getpid(); }
    std::optional<std::string> applicationPath(std::string_view) const override { return std::nullopt; }
    std::optional<std::string> defaultApplication(DockDefaultApp) const override { return std::nullopt; }
    std::string displayName(const std::string& path) const override { return path.substr(path.find_last_of('/') + 1); }
    std::optional<DockIconSource> icon(const std::string&) const override { return std::nullopt; }
    bool fileExists(const std::string& path) const override
    {
        struct stat status {};
        return ::stat(path.c_str(), &status) == 0;
    }
    void launch(const std::string&, std::function<void(bool)> finished) override { finished(false); }
};

} // namespace

std::unique_ptr<Workspace> Workspace::forThisPlatform(Runtime&) { return std::make_unique<WorkspaceUnsupported>(); }

} // namespace kestrune
