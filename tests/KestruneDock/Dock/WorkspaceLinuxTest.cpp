#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <fstream>

#include <gtest/gtest.h>

#include "KestruneDock/Dock/DockStore.h"
#include "KestruneKit/Core/ManualRuntime.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

constexpr const char* childReport = "KESTRUNE_WORKSPACE_REPORT";

std::string entry(const std::string& name, const std::string& extra = {})
{
    return "[Desktop Entry]\nType=Application\nName=" + name + "\nExec=true\n" + extra;
}

// GIO reads the XDG folders once per process, so the desktop is built here and read by this
// test binary run again with those folders in its environment.
TEST(WorkspaceLinux, FindsDesktopEntriesAndDefaultAppsThroughGio)
{
    if (const char* report = std::getenv(childReport)) {
        ManualRuntime runtime;
        auto workspace = Workspace::forThisPlatform(runtime);
        test::TemporaryFolder folder;
        JSONFilePreferences preferences(folder.file("d.json"));
        DockStore store(preferences, *workspace, runtime);
        std::ofstream out(report);
        for (const auto& app : store.pinnedItems())
            out << "pinned " << app.url << " " << store.name(app.url) << "\n";
        out << "byId " << workspace->applicationPath("org.kde.knotes").value_or("none") << "\n";
        out << "missingId " << workspace->applicationPath("no.such.app").value_or("none") << "\n";
        out << "icon " << store.iconSource(store.pinnedItems().at(0).url).name << "\n";
        out << "suffix " << workspace->applicationSuffix() << "\n";
        return;
    }

    test::TemporaryFolder folder;
    std::string apps = folder.path() + "/data/applications/";
    folder.write("data/applications/files.desktop", entry("Files", "Icon=system-file-manager\nMimeType=inode/directory;\n"));
    folder.write("data/applications/browser.desktop", entry("Browser", "MimeType=x-scheme-handler/https;x-scheme-handler/http;\n"));
    folder.write("data/applications/org.kde.knotes.desktop", entry("KNotes"));
    folder.write("data/applications/org.gnome.Settings.desktop", entry("Settings", "TryExec=/nonexistent/gnome-control-center\n"));
    folder.write("data/applications/systemsettings.desktop", entry("System Settings"));
    folder.write("data/applications/hidden-mail.desktop", entry("Mail", "Hidden=true\nMimeType=x-scheme-handler/mailto;\n"));
    folder.write("config/mimeapps.list",
        "[Default Applications]\ninode/directory=files.desktop\nx-scheme-handler/https=browser.desktop\nx-scheme-handler/mailto=hidden-mail.desktop\n");

    char self[PATH_MAX] {};
    ASSERT_GT(::readlink("/proc/self/exe", self, sizeof self - 1), 0);
    std::string report = folder.file("report");
    test::shell(folder.path(),
        "exec '" + std::string(self) + "' --gtest_filter=WorkspaceLinux.FindsDesktopEntriesAndDefaultAppsThroughGio >/dev/null",
        { { childReport, report }, { "XDG_DATA_HOME", folder.path() + "/data" }, { "XDG_DATA_DIRS", folder.path() + "/none" },
          { "XDG_CONFIG_HOME", folder.path() + "/config" }, { "XDG_CONFIG_DIRS", folder.path() + "/none" }, { "LANG", "C" }, { "LC_ALL", "C" } });

    EXPECT_EQ(test::readFile(report),
        "pinned " + apps + "files.desktop Files\n"
        "pinned " + apps + "browser.desktop Browser\n"
        "pinned " + apps + "org.kde.knotes.desktop KNotes\n"
        "pinned " + apps + "systemsettings.desktop System Settings\n"
        "byId " + apps + "org.kde.knotes.desktop\n"
        "missingId none\n"
        "icon system-file-manager\n"
        "suffix .desktop\n")
        << "no mail app (the only one is hidden), no music player; settings whose TryExec is missing are not installed";
}

} // namespace
} // namespace kestrune
