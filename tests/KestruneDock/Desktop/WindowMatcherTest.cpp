#include <gtest/gtest.h>

#include "KestruneDock/Desktop/WindowMatcher.h"

namespace kestrune {
namespace {

const std::vector<DesktopEntryFacts> entries {
    { "/a/org.gnome.Nautilus.desktop", "org.gnome.Nautilus", "", "nautilus" },
    { "/a/org.kde.dolphin.desktop", "org.kde.dolphin", "", "dolphin" },
    { "/a/google-chrome.desktop", "google-chrome", "", "/usr/bin/google-chrome-stable" },
    { "/a/chrome-abcdef-Default.desktop", "chrome-abcdef-Default", "crx_abcdef", "/opt/google/chrome/google-chrome" },
    { "/a/firefox-esr.desktop", "firefox-esr", "", "/usr/lib/firefox-esr/firefox-esr" },
    { "/a/org.gnome.Evince.desktop", "org.gnome.Evince", "", "evince" },
    { "/a/com.spotify.Client.desktop", "com.spotify.Client", "", "/usr/bin/flatpak" },
    { "/a/foo.desktop", "foo", "", "/usr/lib/foo/foo-bin" },
    { "/a/code.desktop", "code", "", "code" },
};

std::optional<std::string> matched(const WindowFacts& facts, WindowMatchEvidence* evidence = nullptr)
{
    auto match = matchWindow(facts, entries);
    if (evidence)
        *evidence = match.evidence;
    return match.entry ? std::optional(entries[*match.entry].id) : std::nullopt;
}

TEST(WindowMatcher, FollowsTheChainOfEvidenceFromTheStrongest)
{
    struct Case {
        WindowFacts facts;
        std::optional<std::string> entry;
        WindowMatchEvidence evidence;
    };
    const Case cases[] {
        // The toolkit's own id wins over a WM_CLASS that would name another entry.
        { { "org.gnome.Nautilus", "", "code", "Code", {}, "" }, "org.gnome.Nautilus", WindowMatchEvidence::gtkApplicationId },
        { { "", "/usr/share/applications/org.kde.dolphin.desktop", "dolphin", "dolphin", {}, "" }, "org.kde.dolphin", WindowMatchEvidence::kdeDesktopFile },
        // A browser's web app is its own entry, not the browser's.
        { { "", "", "crx_abcdef", "Google-chrome", {}, "/opt/google/chrome/chrome" }, "chrome-abcdef-Default", WindowMatchEvidence::startupWMClass },
        { { "", "", "Navigator", "firefox-esr", {}, "" }, "firefox-esr", WindowMatchEvidence::entryId },
        { { "", "", "evince", "Evince", {}, "" }, "org.gnome.Evince", WindowMatchEvidence::entryId },
        { { "", "", "spotify", "Spotify", { "com.spotify.Client" }, "/app/extra/spotify" }, "com.spotify.Client", WindowMatchEvidence::sandboxId },
        { { "", "", "foo-bin", "Electron", {}, "/usr/lib/foo/foo-bin" }, "foo", WindowMatchEvidence::executable },
        // A bare Exec name is what PATH found: the executable's name decides.
        { { "", "", "electron", "Electron", {}, "/usr/share/code/code" }, "code", WindowMatchEvidence::executable },
        // An id that names nothing here is no evidence; the next link still decides.
        { { "org.example.Gone", "", "Evince", "Evince", {}, "" }, "org.gnome.Evince", WindowMatchEvidence::entryId },
        { { "", "", "mystery", "Mystery", {}, "/usr/bin/mystery" }, std::nullopt, WindowMatchEvidence::none },
        { {}, std::nullopt, WindowMatchEvidence::none },
    };
    for (const Case& c : cases) {
        WindowMatchEvidence evidence;
        EXPECT_EQ(matched(c.facts, &evidence), c.entry) << c.facts.wmClass;
        EXPECT_EQ(evidence, c.evidence) << c.facts.wmClass;
    }
    EXPECT_EQ(matchWindow({ "x", "", "", "", {}, "" }, {}), WindowMatch {});
}

TEST(WindowMatcher, ReadsTheProgramOfAnExecLine)
{
    EXPECT_EQ(execProgram("nautilus --new-window %U"), "nautilus");
    EXPECT_EQ(execProgram("\"/opt/My App/run\" --x"), "/opt/My App/run");
    EXPECT_EQ(execProgram("env GDK_BACKEND=x11 BAMF=1 code --unity-launch %F"), "code");
    EXPECT_EQ(execProgram("/usr/bin/env -u FOO prog"), "prog");
    EXPECT_EQ(execProgram("   "), "");
    EXPECT_EQ(execProgram(""), "");
}

} // namespace
} // namespace kestrune

#include "KestruneDock/Desktop/DesktopApplications.h"

namespace kestrune {
namespace {

TEST(DesktopApplications, GroupsWindowsByTheirEntryAndCyclesThroughThemOnRepeatedClicks)
{
    auto window = [](uint32_t id, int64_t pid, const char* wmClass) {
        return DesktopWindow { id, pid, { "", "", wmClass, wmClass, {}, "" } };
    };
    std::vector<DesktopWindow> windows { window(10, 100, "Evince"), window(11, 200, "firefox-esr"),
        window(12, 101, "Evince"), window(13, 300, "Mystery"), window(14, 200, "firefox-esr"), window(15, 301, "Mystery"),
        DesktopWindow { 16, 400, { "", "", "", "", {}, "/opt/tools/../x/bin/tool" } }, DesktopWindow { 17, 500, {} },
        window(18, 600, "../..") };
    auto applications = groupWindows(windows, entries);
    ASSERT_EQ(applications.size(), 5u);
    EXPECT_EQ(applications[0], (DesktopApplication { "/a/org.gnome.Evince.desktop", 100, { 10, 12 }, "" }));
    EXPECT_EQ(applications[1], (DesktopApplication { "/a/firefox-esr.desktop", 200, { 11, 14 }, "" }));
    // Windows of no entry are apps of their own, by WM_CLASS, else by their program's name; one
    // with no name at all is left out, and a name never carries a path's separators.
    EXPECT_EQ(applications[2], (DesktopApplication { "window:Mystery", 300, { 13, 15 }, "Mystery" }));
    EXPECT_EQ(applications[3], (DesktopApplication { "window:tool", 400, { 16 }, "tool" }));
    EXPECT_EQ(applications[4], (DesktopApplication { "window:.._..", 600, { 18 }, ".._.." }));
    EXPECT_TRUE(isWindowApplication(applications[2].path));
    EXPECT_FALSE(isWindowApplication(applications[0].path));

    const DesktopApplication& evince = applications[0];
    std::vector<uint32_t> recent { 11, 12, 10, 14 };
    // Another app is active: the app's most recently used window comes forward.
    EXPECT_EQ(windowToActivate(evince, 11u, recent), 12u);
    // Its own window is active: the next of its windows, round again after the last.
    EXPECT_EQ(windowToActivate(evince, 10u, recent), 12u);
    EXPECT_EQ(windowToActivate(evince, 12u, recent), 10u);
    // Never active yet: its first window.
    EXPECT_EQ(windowToActivate(evince, std::nullopt, {}), 10u);
    EXPECT_EQ(windowToActivate(DesktopApplication {}, 10u, recent), std::nullopt);
}

} // namespace
} // namespace kestrune
