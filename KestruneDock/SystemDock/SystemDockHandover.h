#pragma once
// OVERVIEW
// While the dock runs, the system's own Dock is kept out of the way: set to auto-hide with a
// reveal delay so long it never shows, shrunk, magnification off. Every value changed is first
// recorded in the app's preferences, each group once, and put back when the app ends: by
// `restore` at a normal quit, and by the restore guard, a shell process that outlives a crash.
// All changes go through `defaults` on "com.apple.dock" (separate argument lists, never a
// shell), then `killall Dock`.
//
// On Linux the system dock is GNOME's Dash to Dock (and Ubuntu Dock, the same code), handed
// over the same way through `gsettings`: see DashToDockHandover.h. `forThisPlatform` picks the
// backend, or none on a desktop without a dock to hand over.
//
// TYPICAL USAGE
//   if (auto handover = SystemDockHandover::forThisPlatform(preferences, "app.quillane.dock")) {
//       handover->startRestoreGuard();
//       handover->importSystemDockLook();
//       handover->hide();
//       ... at quit: handover->restore();
//   }
//
// Hide and restore share one lock, so a quit during a hide cannot interleave with it. The
// tools' runs block; call from the main thread at launch and quit, as the dock does.

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>
#include <unistd.h>

#include "KestruneKit/Core/Environment.h"
#include "KestruneKit/Preferences/Preferences.h"

namespace kestrune {

struct SystemDockTools {
    std::string defaults = "/usr/bin/defaults";
    std::string killall = "/usr/bin/killall";
};

class SystemDockHandover {
public:
    virtual ~SystemDockHandover() = default;

    // None where the desktop has no dock to hand over.
    [[nodiscard]] static std::unique_ptr<SystemDockHandover> forThisPlatform(Preferences& preferences, std::string domain);

    // Copies the system dock's size and edge into ours, once per installation.
    virtual void importSystemDockLook() = 0;
    // Records what it is about to change, unless recorded already, and takes the system dock
    // out of the way; `owner` is the process whose end the restore guard waits for.
    void hide(pid_t owner = ::getpid()) { hideAs(owner); }
    // Writes back exactly what was recorded and forgets the record.
    virtual void restore() = 0;
    // Once per process; false when it could not be started (or one already runs).
    virtual bool startRestoreGuard() = 0;

    struct ToolRun {
        bool succeeded = false;
        // Standard output without its final newline.
        std::string output;
    };
    // Runs a tool with an argument list (never a shell) and waits up to ten seconds for it.
    static ToolRun runTool(const std::string& executable, const std::vector<std::string>& arguments);

protected:
    virtual void hideAs(pid_t owner) = 0;
    // Hide and restore of every handover in this process.
    static std::mutex& lock();
    // Starts `/bin/sh -c script sh parameters...` in a session of its own, reading a pipe whose
    // only writer is this process: the script's `read` returns when we end, however we end.
    // Once per process.
    static bool spawnGuard(const std::string& script, const std::vector<std::string>& parameters, Environment environment);
};

// macOS's Dock, through `defaults` on "com.apple.dock".
class AppleDockHandover final : public SystemDockHandover {
public:
    AppleDockHandover(Preferences& preferences, std::string domain, SystemDockTools tools = {});

    void importSystemDockLook() override;
    void restore() override;
    bool startRestoreGuard() override;

    [[nodiscard]] static std::string guardScript(const SystemDockTools& tools);

    ToolRun runDefaults(const std::vector<std::string>& arguments) { return runTool(tools_.defaults, arguments); }

private:
    void hideAs(pid_t owner) override;
    void putBackRecordedOrientation();
    std::optional<std::string> readDock(const std::string& key);
    void writeDock(const std::string& key, const std::string& type, const std::string& value);
    void deleteDock(const std::string& key);
    void restoreValue(const std::string& dockKey, const std::string& savedKey, const std::string& type);

    Preferences& preferences_;
    std::string domain_;
    SystemDockTools tools_;
};

} // namespace kestrune
