#include "KestruneDock/SystemDock/SystemDockHandover.h"

#include <cmath>
#include <cstdlib>

#include <fmt/format.h>

#include "KestruneDock/SystemDock/DashToDockHandover.h"
#include "KestruneKit/Process/ChildOutput.h"
#include "KestruneKit/Process/ChildProcess.h"

namespace kestrune {

namespace {

constexpr const char* dock = "com.apple.dock";
// The reveal delay that keeps the system Dock from ever showing; found at hide time it is our
// own value, left behind by a run that died before it could restore.
constexpr double neverDelay = 1000.0;

std::string shellQuoted(const std::string& text)
{
    std::string quoted = "'";
    for (char c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

std::optional<double> number(const std::optional<std::string>& text)
{
    if (!text || text->empty())
        return std::nullopt;
    char* end = nullptr;
    double value = std::strtod(text->c_str(), &end);
    return end && *end == '\0' && std::isfinite(value) ? std::optional(value) : std::nullopt;
}

} // namespace

std::mutex& SystemDockHandover::lock()
{
    static std::mutex lock;
    return lock;
}

std::unique_ptr<SystemDockHandover> SystemDockHandover::forThisPlatform(Preferences& preferences, std::string domain)
{
#if defined(__APPLE__)
    return std::make_unique<AppleDockHandover>(preferences, std::move(domain));
#elif defined(__linux__)
    if (!DashToDockHandover::isInstalled())
        return nullptr;
    return std::make_unique<DashToDockHandover>(preferences, DashToDockHandover::recordPathFor(domain));
#else
    (void)preferences;
    (void)domain;
    return nullptr;
#endif
}

SystemDockHandover::ToolRun SystemDockHandover::runTool(const std::string& executable, const std::vector<std::string>& arguments)
{
    ChildProcessOptions options;
    options.executable = executable;
    options.arguments = arguments;
    options.output = ChildStream::pipe;
    options.error = ChildStream::nullDevice;
    auto spawned = ChildProcess::spawn(options);
    auto* child = std::get_if<std::unique_ptr<ChildProcess>>(&spawned);
    if (!child)
        return {};
    std::string output;
    (void)readOutput(**child, { { (*child)->outputFd(), [&output](std::string_view bytes) {
                                      if (output.size() < 65536)
                                          output.append(bytes);
                                  } } },
                     std::chrono::steady_clock::now() + std::chrono::seconds(10));
    auto status = (*child)->wait();
    if (!output.empty() && output.back() == '\n')
        output.pop_back();
    return { status.succeeded(), output };
}

bool SystemDockHandover::spawnGuard(const std::string& script, const std::vector<std::string>& parameters, Environment environment)
{
    static std::once_flag once;
    static std::unique_ptr<ChildProcess> guard;
    bool started = false;
    std::call_once(once, [&] {
        ChildProcessOptions options;
        options.executable = "/bin/sh";
        options.arguments = { "-c", script, "sh" };
        options.arguments.insert(options.arguments.end(), parameters.begin(), parameters.end());
        options.environment = std::move(environment);
        options.input = ChildStream::pipe;
        options.output = ChildStream::nullDevice;
        options.error = ChildStream::nullDevice;
        options.grouping = ChildGrouping::newSession;
        auto spawned = ChildProcess::spawn(options);
        if (auto* child = std::get_if<std::unique_ptr<ChildProcess>>(&spawned)) {
            guard = std::move(*child);
            // It must outlive us; its pipe's write end stays open until this process ends.
            guard->detach();
            started = true;
        }
    });
    return started;
}

AppleDockHandover::AppleDockHandover(Preferences& preferences, std::string domain, SystemDockTools tools)
    : preferences_(preferences), domain_(std::move(domain)), tools_(std::move(tools))
{
}

std::optional<std::string> AppleDockHandover::readDock(const std::string& key)
{
    auto run = runDefaults({ "read", dock, key });
    return run.succeeded ? std::optional(run.output) : std::nullopt;
}

void AppleDockHandover::writeDock(const std::string& key, const std::string& type, const std::string& value)
{
    (void)runDefaults({ "write", dock, key, type, value });
}

void AppleDockHandover::deleteDock(const std::string& key) { (void)runDefaults({ "delete", dock, key }); }

void AppleDockHandover::importSystemDockLook()
{
    if (preferences_.boolValue("importedSystemDock").value_or(false))
        return;
    preferences_.set("importedSystemDock", true);
    if (auto size = number(readDock("tilesize")))
        preferences_.set("iconSize", std::clamp(std::round(*size), 16.0, 60.0));
    if (auto size = number(readDock("largesize")))
        preferences_.set("magnifiedSize", std::clamp(std::round(*size), 16.0, 128.0));
    if (auto magnification = readDock("magnification"); magnification == "1" || magnification == "0")
        preferences_.set("magnification", *magnification == "1");
    auto edge = readDock("orientation");
    if (edge == "left" || edge == "bottom" || edge == "right")
        preferences_.set("edge", *edge);
}

void AppleDockHandover::putBackRecordedOrientation()
{
    if (auto edge = preferences_.stringValue("systemDock.orientation")) {
        writeDock("orientation", "-string", *edge);
        preferences_.remove("systemDock.orientation");
    }
}

void AppleDockHandover::hideAs(pid_t owner)
{
    std::lock_guard guard(lock());
    // Another instance may have recorded or restored since we last looked.
    preferences_.synchronize();
    putBackRecordedOrientation();
    if (!preferences_.boolValue("systemDock.saved").value_or(false)) {
        auto autohide = readDock("autohide");
        auto delay = number(readDock("autohide-delay"));
        if (delay == neverDelay) {
            preferences_.set("systemDock.autohide", false);
            preferences_.remove("systemDock.autohideDelay");
        } else {
            preferences_.set("systemDock.autohide", autohide == "1");
            if (delay)
                preferences_.set("systemDock.autohideDelay", *delay);
            else
                preferences_.remove("systemDock.autohideDelay");
        }
        preferences_.set("systemDock.saved", true);
    }
    auto record = [&](const char* flag, std::vector<std::pair<const char*, const char*>> keys) {
        if (preferences_.boolValue(flag).value_or(false))
            return;
        for (auto [dockKey, savedKey] : keys) {
            if (auto value = readDock(dockKey))
                preferences_.set(savedKey, *value);
            else
                preferences_.remove(savedKey);
        }
        preferences_.set(flag, true);
    };
    record("systemDock.sizeSaved", { { "tilesize", "systemDock.tilesize" }, { "magnification", "systemDock.magnification" } });
    record("systemDock.edgeSaved", { { "orientation", "systemDock.userOrientation" } });
    record("systemDock.speedSaved", { { "autohide-time-modifier", "systemDock.autohideTimeModifier" } });
    preferences_.set("systemDock.owner", static_cast<int64_t>(owner));
    preferences_.synchronize();

    writeDock("autohide", "-bool", "true");
    writeDock("autohide-delay", "-float", "1000.0");
    writeDock("tilesize", "-int", "16");
    writeDock("magnification", "-bool", "false");
    auto modifier = preferences_.stringValue("systemDock.autohideTimeModifier");
    if (preferences_.boolValue("autohide").value_or(false) && modifier)
        writeDock("autohide-time-modifier", "-float", *modifier);
    else
        // With our own dock always shown, the system Dock's reveal, should it ever come, is instant.
        writeDock("autohide-time-modifier", "-float", "0");
    if (!preferences_.stringValue("systemDock.orientation")) {
        auto edge = preferences_.stringValue("edge").value_or("bottom");
        if (edge == "left" || edge == "bottom" || edge == "right") {
            preferences_.set("systemDock.orientation", preferences_.stringValue("systemDock.userOrientation").value_or("bottom"));
            writeDock("orientation", "-string", edge);
        }
    }
}

void AppleDockHandover::restoreValue(const std::string& dockKey, const std::string& savedKey, const std::string& type)
{
    if (auto value = preferences_.stringValue(savedKey)) {
        std::string written = type == "-bool" ? (*value == "1" ? "true" : "false") : *value;
        writeDock(dockKey, type, written);
    } else {
        deleteDock(dockKey);
    }
    preferences_.remove(savedKey);
}

void AppleDockHandover::restore()
{
    std::lock_guard guard(lock());
    preferences_.synchronize();
    putBackRecordedOrientation();
    if (preferences_.boolValue("systemDock.saved").value_or(false)) {
        writeDock("autohide", "-bool", preferences_.boolValue("systemDock.autohide").value_or(false) ? "true" : "false");
        if (auto delay = preferences_.doubleValue("systemDock.autohideDelay"))
            writeDock("autohide-delay", "-float", fmt::format("{}", *delay));
        else
            deleteDock("autohide-delay");
    }
    if (preferences_.boolValue("systemDock.sizeSaved").value_or(false)) {
        restoreValue("tilesize", "systemDock.tilesize", "-float");
        restoreValue("magnification", "systemDock.magnification", "-bool");
        preferences_.remove("systemDock.sizeSaved");
    }
    if (preferences_.boolValue("systemDock.speedSaved").value_or(false)) {
        restoreValue("autohide-time-modifier", "systemDock.autohideTimeModifier", "-float");
        preferences_.remove("systemDock.speedSaved");
    }
    if (preferences_.boolValue("systemDock.edgeSaved").value_or(false)) {
        restoreValue("orientation", "systemDock.userOrientation", "-string");
        preferences_.remove("systemDock.edgeSaved");
    }
    ChildProcessOptions options;
    options.executable = tools_.killall;
    options.arguments = { "Dock" };
    options.output = options.error = ChildStream::nullDevice;
    if (auto spawned = ChildProcess::spawn(options); auto* child = std::get_if<std::unique_ptr<ChildProcess>>(&spawned))
        (*child)->wait();
    preferences_.remove("systemDock.saved");
    preferences_.remove("systemDock.owner");
}

std::string AppleDockHandover::guardScript(const SystemDockTools& tools)
{
    SystemDockTools standard;
    std::string defaults = tools.defaults == standard.defaults ? standard.defaults : shellQuoted(tools.defaults);
    std::string killall = tools.killall == standard.killall ? standard.killall : shellQuoted(tools.killall);
    return "trap '' INT HUP TERM\n"
           "read -r line\n"
           "d="
        + defaults
        + "\n"
          "[ \"$($d read \"$2\" systemDock.saved 2>/dev/null)\" = 1 ] || exit 0\n"
          "[ \"$($d read \"$2\" systemDock.owner 2>/dev/null)\" = \"$1\" ] || exit 0\n"
          "if edge=$($d read \"$2\" systemDock.orientation 2>/dev/null); then\n"
          "  $d write com.apple.dock orientation -string \"$edge\"\n"
          "  $d delete \"$2\" systemDock.orientation\n"
          "fi\n"
          "if [ \"$($d read \"$2\" systemDock.autohide 2>/dev/null)\" = 1 ]; then hide=true; else hide=false; fi\n"
          "$d write com.apple.dock autohide -bool $hide\n"
          "if delay=$($d read \"$2\" systemDock.autohideDelay 2>/dev/null); then\n"
          "  $d write com.apple.dock autohide-delay -float \"$delay\"\n"
          "else\n"
          "  $d delete com.apple.dock autohide-delay 2>/dev/null\n"
          "fi\n"
          "if [ \"$($d read \"$2\" systemDock.sizeSaved 2>/dev/null)\" = 1 ]; then\n"
          "  if size=$($d read \"$2\" systemDock.tilesize 2>/dev/null); then\n"
          "    $d write com.apple.dock tilesize -float \"$size\"\n"
          "  else\n"
          "    $d delete com.apple.dock tilesize 2>/dev/null\n"
          "  fi\n"
          "  if magnify=$($d read \"$2\" systemDock.magnification 2>/dev/null); then\n"
          "    if [ \"$magnify\" = 1 ]; then magnify=true; else magnify=false; fi\n"
          "    $d write com.apple.dock magnification -bool $magnify\n"
          "  else\n"
          "    $d delete com.apple.dock magnification 2>/dev/null\n"
          "  fi\n"
          "  $d delete \"$2\" systemDock.tilesize 2>/dev/null\n"
          "  $d delete \"$2\" systemDock.magnification 2>/dev/null\n"
          "  $d delete \"$2\" systemDock.sizeSaved\n"
          "fi\n"
          "if [ \"$($d read \"$2\" systemDock.edgeSaved 2>/dev/null)\" = 1 ]; then\n"
          "  if own=$($d read \"$2\" systemDock.userOrientation 2>/dev/null); then\n"
          "    $d write com.apple.dock orientation -string \"$own\"\n"
          "  else\n"
          "    $d delete com.apple.dock orientation 2>/dev/null\n"
          "  fi\n"
          "  $d delete \"$2\" systemDock.userOrientation 2>/dev/null\n"
          "  $d delete \"$2\" systemDock.edgeSaved\n"
          "fi\n"
          "if [ \"$($d read \"$2\" systemDock.speedSaved 2>/dev/null)\" = 1 ]; then\n"
          "  if modifier=$($d read \"$2\" systemDock.autohideTimeModifier 2>/dev/null); then\n"
          "    $d write com.apple.dock autohide-time-modifier -float \"$modifier\"\n"
          "  else\n"
          "    $d delete com.apple.dock autohide-time-modifier 2>/dev/null\n"
          "  fi\n"
          "  $d delete \"$2\" systemDock.autohideTimeModifier 2>/dev/null\n"
          "  $d delete \"$2\" systemDock.speedSaved\n"
          "fi\n"
        + killall
        + " Dock\n"
          "$d delete \"$2\" systemDock.saved\n";
}

bool AppleDockHandover::startRestoreGuard()
{
    return spawnGuard(guardScript(tools_), { std::to_string(::getpid()), domain_ },
                      Environment { { "PATH", "/usr/bin:/bin:/usr/sbin:/sbin" } });
}

} // namespace kestrune
