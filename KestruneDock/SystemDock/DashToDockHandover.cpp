#include "KestruneDock/SystemDock/DashToDockHandover.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <memory>
#include <sstream>

#include <gio/gio.h>

#include "KestruneKit/Core/AtomicFile.h"

namespace kestrune {

namespace {

// The key whose hidden value marks a dock we hid: found without a record, it was left by a run
// whose record is gone, and the user's own values are unknown.
constexpr const char* markerKey = "show-delay";

struct GObjectUnref {
    void operator()(void* object) const { g_object_unref(object); }
};
struct VariantUnref {
    void operator()(GVariant* value) const { g_variant_unref(value); }
};
using Variant = std::unique_ptr<GVariant, VariantUnref>;

// The extension's settings, or none when the schema is not installed.
std::unique_ptr<GSettings, GObjectUnref> dockSettings()
{
    GSettingsSchemaSource* source = g_settings_schema_source_get_default();
    if (!source)
        return nullptr;
    GSettingsSchema* found = g_settings_schema_source_lookup(source, DashToDockHandover::schema, TRUE);
    if (!found)
        return nullptr;
    GSettings* settings = g_settings_new_full(found, nullptr, nullptr);
    g_settings_schema_unref(found);
    return std::unique_ptr<GSettings, GObjectUnref>(settings);
}

bool hasKey(GSettings* settings, const std::string& key)
{
    GSettingsSchema* schema = nullptr;
    g_object_get(settings, "settings-schema", &schema, nullptr);
    bool has = schema && g_settings_schema_has_key(schema, key.c_str());
    if (schema)
        g_settings_schema_unref(schema);
    return has;
}

std::string printed(GVariant* value)
{
    gchar* text = g_variant_print(value, FALSE);
    std::string result = text;
    g_free(text);
    return result;
}

// The user's own value of a key, as GLib prints it; none when the key is at its default.
std::optional<std::string> userValueIn(GSettings* settings, const std::string& key)
{
    if (!hasKey(settings, key))
        return std::nullopt;
    Variant value(g_settings_get_user_value(settings, key.c_str()));
    if (!value)
        return std::nullopt;
    auto text = printed(value.get());
    // The record is one line per key; a value that cannot stay on one line is put back as the default.
    if (text.find('\n') != std::string::npos)
        return std::nullopt;
    return text;
}

struct RecordLine {
    std::string verb, key, value;
};

std::vector<RecordLine> recordLines(const std::string& record)
{
    std::vector<RecordLine> lines;
    std::istringstream stream(record);
    std::string line;
    while (std::getline(stream, line)) {
        RecordLine parsed;
        auto first = line.find(' ');
        if (first == std::string::npos)
            continue;
        parsed.verb = line.substr(0, first);
        auto second = line.find(' ', first + 1);
        parsed.key = line.substr(first + 1, second == std::string::npos ? std::string::npos : second - first - 1);
        if (second != std::string::npos)
            parsed.value = line.substr(second + 1);
        if ((parsed.verb == "set" && !parsed.value.empty()) || parsed.verb == "reset")
            lines.push_back(std::move(parsed));
    }
    return lines;
}

} // namespace

DashToDockHandover::DashToDockHandover(Preferences& preferences, std::string recordPath, std::string gsettings)
    : preferences_(preferences), recordPath_(std::move(recordPath)), gsettings_(std::move(gsettings))
{
}

bool DashToDockHandover::isInstalled() { return dockSettings() != nullptr; }

std::string DashToDockHandover::recordPathFor(const std::string& domain)
{
    return JSONFilePreferences::folder() + "/" + domain + ".dash-to-dock";
}

const std::vector<std::pair<std::string, std::string>>& DashToDockHandover::hiddenValues()
{
    static const std::vector<std::pair<std::string, std::string>> values {
        { "manualhide", "true" },
        { "dock-fixed", "false" },
        { "autohide", "true" },
        { "intellihide", "false" },
        { "require-pressure-to-show", "true" },
        { "pressure-threshold", "100000.0" },
        { "show-delay", "1000.0" },
        { "dash-max-icon-size", "16" },
    };
    return values;
}

bool DashToDockHandover::gsettings(const std::vector<std::string>& arguments)
{
    std::vector<std::string> full { arguments.front(), schema };
    full.insert(full.end(), arguments.begin() + 1, arguments.end());
    return runTool(gsettings_, full).succeeded;
}

void DashToDockHandover::importSystemDockLook()
{
    if (preferences_.boolValue("importedSystemDock").value_or(false))
        return;
    preferences_.set("importedSystemDock", true);
    auto settings = dockSettings();
    if (!settings)
        return;
    if (hasKey(settings.get(), "dash-max-icon-size")) {
        Variant size(g_settings_get_value(settings.get(), "dash-max-icon-size"));
        if (g_variant_is_of_type(size.get(), G_VARIANT_TYPE_INT32))
            preferences_.set("iconSize", std::clamp(static_cast<double>(g_variant_get_int32(size.get())), 16.0, 60.0));
    }
    if (hasKey(settings.get(), "dock-position")) {
        Variant position(g_settings_get_value(settings.get(), "dock-position"));
        if (g_variant_is_of_type(position.get(), G_VARIANT_TYPE_STRING)) {
            std::string edge = g_variant_get_string(position.get(), nullptr);
            // TOP is no edge of ours.
            if (edge == "LEFT" || edge == "BOTTOM" || edge == "RIGHT") {
                std::transform(edge.begin(), edge.end(), edge.begin(), [](unsigned char c) { return std::tolower(c); });
                preferences_.set("edge", edge);
            }
        }
    }
}

void DashToDockHandover::hideAs(pid_t owner)
{
    std::lock_guard guard(lock());
    std::string kept;
    if (auto record = readWholeFile(recordPath_)) {
        for (const auto& line : recordLines(*record))
            kept += line.verb + " " + line.key + (line.value.empty() ? "" : " " + line.value) + "\n";
    } else {
        const auto& values = hiddenValues();
        auto marker = std::find_if(values.begin(), values.end(), [](const auto& entry) { return entry.first == markerKey; });
        auto settings = dockSettings();
        auto own = [&](const std::string& key) { return settings ? userValueIn(settings.get(), key) : std::nullopt; };
        bool leftOver = own(markerKey) == marker->second;
        for (const auto& [key, hidden] : values) {
            auto user = leftOver ? std::nullopt : own(key);
            kept += user ? "set " + key + " " + *user + "\n" : "reset " + key + "\n";
        }
    }
    // Nothing changes that could not be put back.
    if (!createFolders(parentFolder(recordPath_))
        || writeFileAtomically(recordPath_, "owner " + std::to_string(owner) + "\n" + kept, 0600))
        return;
    for (const auto& [key, hidden] : hiddenValues())
        (void)gsettings({ "set", key, hidden });
}

void DashToDockHandover::restore()
{
    std::lock_guard guard(lock());
    auto record = readWholeFile(recordPath_);
    if (!record)
        return;
    bool wroteAll = true;
    for (const auto& line : recordLines(*record)) {
        if (line.verb == "set")
            wroteAll = gsettings({ "set", line.key, line.value }) && wroteAll;
        else
            wroteAll = gsettings({ "reset", line.key }) && wroteAll;
    }
    // A write that failed (no session bus at logout, say) is tried again at the next restore.
    if (wroteAll)
        ::unlink(recordPath_.c_str());
}

std::string DashToDockHandover::guardScript()
{
    return std::string("trap '' INT HUP TERM\n"
                       "read -r line\n"
                       "[ -f \"$2\" ] || exit 0\n"
                       "read -r word owner < \"$2\" || exit 0\n"
                       "[ \"$word\" = owner ] && [ \"$owner\" = \"$1\" ] || exit 0\n"
                       "ok=1\n"
                       "while read -r verb key value; do\n"
                       "  case \"$verb\" in\n"
                       "  set) \"$3\" set ")
        + schema
        + " \"$key\" \"$value\" || ok= ;;\n"
          "  reset) \"$3\" reset "
        + schema
        + " \"$key\" || ok= ;;\n"
          "  esac\n"
          "done < \"$2\"\n"
          "[ -z \"$ok\" ] || rm -f \"$2\"\n";
}

bool DashToDockHandover::startRestoreGuard()
{
    // What `gsettings` needs to find the schema, the backend and the user's settings.
    Environment environment { { "PATH", "/usr/bin:/bin:/usr/sbin:/sbin" } };
    for (const char* name : { "HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_DATA_DIRS", "XDG_RUNTIME_DIR",
                              "DBUS_SESSION_BUS_ADDRESS", "GSETTINGS_BACKEND", "GSETTINGS_SCHEMA_DIR" }) {
        if (const char* value = std::getenv(name))
            environment[name] = value;
    }
    return spawnGuard(guardScript(), { std::to_string(::getpid()), recordPath_, gsettings_ }, std::move(environment));
}

} // namespace kestrune
