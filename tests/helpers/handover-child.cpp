// A dock process as far as the system dock handover goes: starts the restore guard, hides the
// system dock through the given tools, says "hidden", then either waits to be killed ("crash")
// or restores and quits ("quit"). Arguments:
//   MODE apple STORE DEFAULTS KILLALL   macOS's Dock through a `defaults` over our own store
//   MODE dash RECORD GSETTINGS          Dash to Dock through gsettings, recording in RECORD
//   probe PREFERENCES                   exits 0 when this desktop has a dock to hand over, else 3

#include <cstdio>
#include <memory>
#include <string>

#include <unistd.h>

#include "KestruneDock/SystemDock/DashToDockHandover.h"

using namespace kestrune;

int main(int argc, char** argv)
{
    if (argc < 3)
        return 2;
    std::string mode = argv[1], backend = argv[2];
    if (mode == "probe") {
        JSONFilePreferences probed(backend);
        return SystemDockHandover::forThisPlatform(probed, "app.quillane.dock") ? 0 : 3;
    }
    std::unique_ptr<Preferences> preferences;
    std::unique_ptr<SystemDockHandover> handover;
    if (backend == "apple" && argc == 6) {
        preferences = std::make_unique<JSONFilePreferences>(std::string(argv[3]) + "/app.quillane.dock.json");
        handover = std::make_unique<AppleDockHandover>(*preferences, "app.quillane.dock", SystemDockTools { argv[4], argv[5] });
    } else if (backend == "dash" && argc == 5) {
        preferences = std::make_unique<JSONFilePreferences>(std::string(argv[3]) + ".json");
        handover = std::make_unique<DashToDockHandover>(*preferences, argv[3], argv[4]);
    } else {
        return 2;
    }
    if (!handover->startRestoreGuard())
        return 1;
    handover->hide();
    std::printf("hidden\n");
    std::fflush(stdout);
    if (mode == "quit") {
        handover->restore();
        return 0;
    }
    for (;;)
        ::pause();
}
