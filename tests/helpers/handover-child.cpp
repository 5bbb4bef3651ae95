// A dock process as far as the system dock handover goes: starts the restore guard, hides the
// system dock through the given tools, says "hidden", then either waits to be killed ("crash")
// or restores and quits ("quit"). Arguments: MODE STORE DEFAULTS KILLALL.

#include <cstdio>
#include <string>

#include <unistd.h>

#include "KestruneDock/SystemDock/SystemDockHandover.h"

using namespace kestrune;

int main(int argc, char** argv)
{
    if (argc != 5)
        return 2;
    std::string mode = argv[1], store = argv[2];
    JSONFilePreferences preferences(store + "/app.quillane.dock.json");
    SystemDockHandover handover(preferences, "app.quillane.dock", { argv[3], argv[4] });
    if (!handover.startRestoreGuard())
        return 1;
    handover.hide();
    std::printf("hidden\n");
    std::fflush(stdout);
    if (mode == "quit") {
        handover.restore();
        return 0;
    }
    for (;;)
        ::pause();
}
