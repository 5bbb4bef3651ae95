#include "KestruneDock/Widgets/WidgetKind.h"

#include <functional>

namespace kestrune {

namespace {

struct KindEntry {
    WidgetKind kind;
    std::string_view raw;
    std::string_view title;
    WidgetCategory category;
    std::string_view blurb;
};

// In ordinal order: entry i describes the kind whose value is i.
constexpr std::array<KindEntry, widgetKindCount> kindTable { {
    { WidgetKind::nowPlaying, "nowPlaying", "Now Playing", WidgetCategory::media, "What's playing, with controls." },
    { WidgetKind::clock, "clock", "Clock", WidgetCategory::time, "The time, in the face you like." },
    { WidgetKind::battery, "battery", "Battery", WidgetCategory::yourMac, "Your Mac's battery at a glance." },
    { WidgetKind::timer, "timer", "Timer", WidgetCategory::focus, "A timer you set with a scroll." },
    { WidgetKind::sound, "sound", "Sound", WidgetCategory::yourMac, "Volume and output, scroll to change." },
    { WidgetKind::keepAwake, "keepAwake", "Keep Awake", WidgetCategory::yourMac, "Keeps your Mac from sleeping." },
    { WidgetKind::activity, "activity", "Activity", WidgetCategory::yourMac, "CPU, memory, graphics and network, right now." },
    { WidgetKind::drives, "drives", "Drives", WidgetCategory::yourMac, "External drives, with eject." },
    { WidgetKind::note, "note", "Note", WidgetCategory::tools, "A line to remember." },
    { WidgetKind::upNext, "upNext", "Up Next", WidgetCategory::time, "Your next event, from Calendar." },
    { WidgetKind::countdown, "countdown", "Countdown", WidgetCategory::time, "Days to the date that matters." },
    { WidgetKind::network, "network", "Network", WidgetCategory::yourMac, "Upload and download, live." },
    { WidgetKind::devices, "devices", "Devices", WidgetCategory::yourMac, "Mouse, keyboard and trackpad battery." },
    { WidgetKind::micCamera, "micCamera", "Mic & Camera", WidgetCategory::yourMac, "Shows when they're on; mute in a click." },
    { WidgetKind::colorPicker, "colorPicker", "Color Picker", WidgetCategory::tools, "Pick any colour on screen, copy its hex." },
    { WidgetKind::shortcuts, "shortcuts", "Shortcuts", WidgetCategory::tools, "Run a Shortcut from the Dock." },
    { WidgetKind::photoFrame, "photoFrame", "Photo Frame", WidgetCategory::media, "Photos from a folder, one at a time." },
    { WidgetKind::appearance, "appearance", "Appearance", WidgetCategory::tools, "Light and Dark Mode in a click." },
    { WidgetKind::progress, "progress", "Progress", WidgetCategory::time, "How much of the year, month or day is gone." },
    { WidgetKind::moon, "moon", "Moon", WidgetCategory::time, "Tonight's moon and how full it is." },
    { WidgetKind::stopwatch, "stopwatch", "Stopwatch", WidgetCategory::focus, "Start, pause and reset in a click." },
    { WidgetKind::pomodoro, "pomodoro", "Pomodoro", WidgetCategory::focus, "Focus and break sessions, counted for the day." },
    { WidgetKind::todo, "todo", "To-Do", WidgetCategory::focus, "Your next task, ticked off in a click." },
    { WidgetKind::counter, "counter", "Counter", WidgetCategory::focus, "Count anything toward a daily goal." },
    { WidgetKind::breathe, "breathe", "Breathe", WidgetCategory::focus, "A minute of calm breathing." },
    { WidgetKind::calculator, "calculator", "Calculator", WidgetCategory::tools, "Type a sum, get the answer." },
    { WidgetKind::emoji, "emoji", "Emoji", WidgetCategory::tools, "Your recent emoji, typed in a click." },
    { WidgetKind::screenshot, "screenshot", "Screenshot", WidgetCategory::tools, "Opens macOS's screenshot tools." },
    { WidgetKind::mirror, "mirror", "Mirror", WidgetCategory::media, "Check your camera before a call." },
    { WidgetKind::storage, "storage", "Storage", WidgetCategory::yourMac, "Free space on your Mac." },
    { WidgetKind::devServers, "devServers", "Dev Servers", WidgetCategory::developer, "Local servers that are running, a click away." },
    { WidgetKind::lockSleep, "lockSleep", "Lock & Sleep", WidgetCategory::yourMac, "Lock the screen, or sleep, in a click." },
    { WidgetKind::desktopIcons, "desktopIcons", "Desktop Icons", WidgetCategory::yourMac, "Hide desktop icons for a clean screen." },
    { WidgetKind::clipboard, "clipboard", "Clipboard", WidgetCategory::tools, "Everything you've copied, a click away." },
    { WidgetKind::controls, "controls", "Controls", WidgetCategory::yourMac, "Dark Mode, Keep Awake, mute and more, in one place." },
    { WidgetKind::spaces, "spaces", "Spaces", WidgetCategory::yourMac, "Your desktops and full-screen apps at a glance." },
    { WidgetKind::screenTime, "screenTime", "Screen Time", WidgetCategory::focus, "Which apps you've used today, and for how long." },
    { WidgetKind::dictionary, "dictionary", "Dictionary", WidgetCategory::tools, "Look up any word, offline." },
    { WidgetKind::converter, "converter", "Converter", WidgetCategory::tools, "Length, weight, temperature, data and more." },
    { WidgetKind::qrCode, "qrCode", "QR Code", WidgetCategory::tools, "Turn text or a link into a QR code." },
    { WidgetKind::generator, "generator", "Generator", WidgetCategory::tools, "Passwords, UUIDs and placeholder text." },
    { WidgetKind::textTools, "textTools", "Text Tools", WidgetCategory::tools, "Count, change case, encode and decode." },
    { WidgetKind::shelf, "shelf", "Shelf", WidgetCategory::tools, "Hold files while you work, then drag them out anywhere." },
    { WidgetKind::git, "git", "Git", WidgetCategory::developer, "See what's changed in a project, then commit, push or pull." },
    { WidgetKind::github, "github", "GitHub", WidgetCategory::developer, "Pull requests to review and checks on yours." },
    { WidgetKind::containers, "containers", "Containers", WidgetCategory::developer, "Docker containers running, and start or stop them." },
    { WidgetKind::simulators, "simulators", "Simulators", WidgetCategory::developer, "iOS simulators: boot, open and shut them down." },
    { WidgetKind::endpoints, "endpoints", "Endpoints", WidgetCategory::developer, "Whether your sites and APIs are up, and how fast." },
    { WidgetKind::timestamp, "timestamp", "Timestamp", WidgetCategory::developer, "Unix time now; convert timestamps and dates." },
    { WidgetKind::aiUsage, "aiUsage", "AI Usage", WidgetCategory::developer, "How much Claude Code, Codex and your other AI coding tools have used, and when limits start over." },
} };

constexpr bool tableFollowsOrdinals()
{
    for (size_t i = 0; i < kindTable.size(); ++i)
        if (static_cast<size_t>(kindTable[i].kind) != i)
            return false;
    return true;
}
static_assert(tableFollowsOrdinals());

constexpr std::array<WidgetKind, widgetKindCount> kindsInOrder = [] {
    std::array<WidgetKind, widgetKindCount> kinds {};
    for (size_t i = 0; i < kinds.size(); ++i)
        kinds[i] = kindTable[i].kind;
    return kinds;
}();

const KindEntry& entry(WidgetKind kind) { return kindTable[static_cast<size_t>(kind)]; }

} // namespace

std::span<const WidgetKind, widgetKindCount> allWidgetKinds() { return kindsInOrder; }

std::string_view toString(WidgetKind kind) { return entry(kind).raw; }

std::optional<WidgetKind> widgetKindFromString(std::string_view raw)
{
    for (const auto& candidate : kindTable)
        if (candidate.raw == raw)
            return candidate.kind;
    return std::nullopt;
}

std::string_view title(WidgetKind kind) { return entry(kind).title; }
std::string_view blurb(WidgetKind kind) { return entry(kind).blurb; }
WidgetCategory category(WidgetKind kind) { return entry(kind).category; }

bool isRetired(WidgetKind kind)
{
    return kind == WidgetKind::drives || kind == WidgetKind::devices || kind == WidgetKind::screenshot;
}

std::optional<WidgetKind> successor(WidgetKind kind)
{
    switch (kind) {
    case WidgetKind::devices:
        return WidgetKind::battery;
    case WidgetKind::drives:
        return WidgetKind::storage;
    default:
        return std::nullopt;
    }
}

std::string_view title(WidgetCategory category)
{
    switch (category) {
    case WidgetCategory::time:
        return "Time";
    case WidgetCategory::focus:
        return "Focus";
    case WidgetCategory::media:
        return "Media";
    case WidgetCategory::yourMac:
        return "Your Mac";
    case WidgetCategory::developer:
        return "Developer";
    case WidgetCategory::tools:
        return "Tools";
    }
    return {};
}

std::string_view symbol(WidgetCategory category)
{
    switch (category) {
    case WidgetCategory::time:
        return "clock";
    case WidgetCategory::focus:
        return "scope";
    case WidgetCategory::media:
        return "music.note";
    case WidgetCategory::yourMac:
        return "laptopcomputer";
    case WidgetCategory::developer:
        return "chevron.left.forwardslash.chevron.right";
    case WidgetCategory::tools:
        return "wrench.and.screwdriver";
    }
    return {};
}

size_t WidgetStyleHash::operator()(const WidgetStyle& style) const
{
    size_t seed = std::hash<std::string> {}(style.identifier);
    // Order matters: ("a", "b") and ("b", "a") are different faces.
    seed ^= std::hash<std::string> {}(style.title) + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2);
    return seed;
}

const std::vector<WidgetStyle>& faces(WidgetKind kind)
{
    static const std::vector<WidgetStyle> none;
    static const std::vector<WidgetStyle> clock {
        { "digital", "Digital" }, { "analog", "Analog" }, { "stacked", "Stacked" }, { "flip", "Flip" },
        { "date", "Date" }, { "world", "World" }, { "words", "Words" }, { "ring", "Ring" },
        { "poster", "Poster" }, { "daylight", "Daylight" }, { "week", "Week" },
    };
    static const std::vector<WidgetStyle> battery {
        { "ring", "Standard" }, { "classic", "Classic" }, { "capsule", "Capsule" }, { "numeral", "Numeral" },
        { "timeLeft", "Time Left" }, { "power", "Power" }, { "dots", "Dots" },
    };
    static const std::vector<WidgetStyle> activity { { "bars", "Bars" }, { "rings", "Rings" } };
    static const std::vector<WidgetStyle> network { { "speed", "Speed" }, { "graph", "Graph" } };
    static const std::vector<WidgetStyle> progress {
        { "year", "Year" }, { "month", "Month" }, { "week", "Week" }, { "day", "Day" },
    };
    switch (kind) {
    case WidgetKind::clock:
        return clock;
    case WidgetKind::battery:
        return battery;
    case WidgetKind::activity:
        return activity;
    case WidgetKind::network:
        return network;
    case WidgetKind::progress:
        return progress;
    default:
        return none;
    }
}

std::string defaultStyle(WidgetKind kind)
{
    const auto& list = faces(kind);
    return list.empty() ? std::string() : list.front().identifier;
}

std::string WidgetPreset::buttonTitle() const { return "Use the " + std::string(title) + " widgets"; }

const std::vector<WidgetPreset>& allWidgetPresets()
{
    using enum WidgetKind;
    static const std::vector<WidgetPreset> presets {
        { "Everyday", "What's playing, what's next and your battery", "sun.max",
            { nowPlaying, upNext, battery, clock, note } },
        { "Developer", "Your repos, servers, containers and simulators", "terminal",
            { git, aiUsage, devServers, containers, simulators, endpoints, timestamp, activity, clipboard } },
        { "Productivity", "Tasks, focus time and what's next", "checklist",
            { todo, pomodoro, upNext, note, clipboard, shelf } },
        { "Student", "Study sessions, deadlines and quick answers", "graduationcap",
            { pomodoro, todo, countdown, calculator, dictionary, upNext } },
        { "System Monitor", "How hard your Mac is working", "gauge.with.dots.needle.67percent",
            { activity, network, storage, battery, sound, screenTime } },
    };
    return presets;
}

const WidgetPreset* widgetPreset(std::string_view title)
{
    for (const auto& preset : allWidgetPresets())
        if (preset.title == title)
            return &preset;
    return nullptr;
}

} // namespace kestrune
