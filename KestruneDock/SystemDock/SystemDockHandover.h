#pragma once
// OVERVIEW
// While the dock runs, the system's own Dock is kept out of the way: set to auto-hide with a
// reveal delay so long it never shows, shrunk, magnification off. Every value changed is first
// recorded in the app's preferences, each group once, and put back when the app ends: by
// `restore` at a normal quit, and by the restore guard, a shell process that outlives a crash.
// All changes go through `defaults` on "com.apple.dock" (separate argument lists, never a
// shell), then `killall Dock`.
//
// TYPICAL USAGE (macOS; Linux has no system dock, and `forThisPlatform` gives none there)
//   if (auto handover = SystemDockHandover::forThisPlatform(preferences, "app.quillane.dock")) {
//       handover->startRestoreGuard();
//       handover->importSystemDockLook();
//       handover->hide();
//       ... at quit: handover->restore();
//   }
//
// Hide and restore share one lock, so a quit during a hide cannot interleave with it. The
// `defaults` runs block; call from the main thread at launch and quit, as the dock does.

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>
#include <unistd.h>

#include "KestruneKit/Preferences/Preferences.h"

namespace kestrune {

struct SystemDockTools {
    std::string defaults = "/usr/bin/defaults";
    std::string killall = "/usr/bin/killall";
};

class SystemDockHandover {
public:
    SystemDockHandover(Preferences& preferences, std::string domain, SystemDockTools tools = {});

    // None where the system has no dock to hand over (Linux).
    [[nodiscard]] static std::unique_ptr<SystemDockHandover> forThisPlatform(Preferences& preferences, std::string domain);

    void importSystemDockLook();
    void hide(pid_t owner = ::getpid());
    void restore();
    // Once per process; false when it could not be started (or one already runs).
    bool startRestoreGuard();

    [[nodiscard]] static std::string guardScript(const SystemDockTools& tools);

    struct DefaultsRun {
        bool succeeded = false;
        // Standard output without its final newline.
        std::string output;
    };
    DefaultsRun runDefaults(const std::vector<std::string>& arguments);

private:
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
