// Applications on Linux are desktop entries found through the XDG data folders; GIO reads them
// as the desktop itself does (localized names, default handlers from mimeapps.list, TryExec and
// Hidden honoured). Running applications come from the window system, which the application
// watches; until it reports, none are known here.

#include "KestruneDock/Dock/WorkspaceLinux.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>

#include "KestruneKit/Core/ObserverList.h"
#include "KestruneKit/Core/Runtime.h"

namespace kestrune {

namespace {

// One owner for a GObject reference.
template<typename T>
class GObjectRef {
public:
    explicit GObjectRef(T* object = nullptr) : object_(object) {}
    GObjectRef(const GObjectRef&) = delete;
    GObjectRef& operator=(const GObjectRef&) = delete;
    ~GObjectRef()
    {
        if (object_)
            g_object_unref(object_);
    }
    T* get() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }

private:
    T* object_;
};

std::optional<std::string> entryPath(GAppInfo* info)
{
    // A hidden entry is one the user deleted, even when mimeapps.list still names it.
    if (!info || !G_IS_DESKTOP_APP_INFO(info) || g_desktop_app_info_get_is_hidden(G_DESKTOP_APP_INFO(info)))
        return std::nullopt;
    const char* file = g_desktop_app_info_get_filename(G_DESKTOP_APP_INFO(info));
    return file ? std::optional<std::string>(file) : std::nullopt;
}

std::optional<std::string> entryById(std::string id)
{
    if (!id.ends_with(".desktop"))
        id += ".desktop";
    GObjectRef<GDesktopAppInfo> info(g_desktop_app_info_new(id.c_str()));
    return entryPath(G_APP_INFO(info.get()));
}

std::optional<std::string> defaultFor(const char* contentType)
{
    GObjectRef<GAppInfo> info(g_app_info_get_default_for_type(contentType, FALSE));
    return entryPath(info.get());
}

// Each role: the user's default handlers first, then the well-known apps of the common
// desktops. Notes has no content type of its own; a plain-text editor is the last resort.
struct RoleLookup {
    std::vector<const char*> contentTypes;
    std::vector<const char*> ids;
    std::vector<const char*> fallbackTypes;
};

const RoleLookup& lookup(DockDefaultApp role)
{
    static const std::map<DockDefaultApp, RoleLookup> lookups {
        { DockDefaultApp::fileManager, { { "inode/directory" }, { "org.gnome.Nautilus", "org.kde.dolphin", "thunar", "nemo", "caja", "pcmanfm" }, {} } },
        { DockDefaultApp::webBrowser, { { "x-scheme-handler/https", "x-scheme-handler/http" }, { "firefox-esr", "firefox", "chromium" }, {} } },
        { DockDefaultApp::mail, { { "x-scheme-handler/mailto" }, { "org.gnome.Evolution", "thunderbird", "org.kde.kmail2" }, {} } },
        { DockDefaultApp::music, { { "audio/mpeg", "audio/flac", "audio/x-vorbis+ogg" }, { "org.gnome.Music", "rhythmbox", "org.kde.elisa" }, {} } },
        { DockDefaultApp::notes, { {}, { "org.gnome.Notes", "bijiben", "org.kde.knotes", "xpad" }, { "text/plain" } } },
        { DockDefaultApp::settings, { {}, { "org.gnome.Settings", "gnome-control-center", "systemsettings", "org.kde.systemsettings", "xfce-settings-manager", "cinnamon-settings", "mate-control-center" }, {} } },
    };
    return lookups.at(role);
}

// A launched app leads a session of its own: a signal to the dock's process group (a terminal's
// Ctrl-C) does not reach it, and nothing ties its life to the dock's.
void startOwnSession(gpointer) { ::setsid(); }

} // namespace

WorkspaceLinux::WorkspaceLinux(Runtime& runtime) : runtime_(runtime) {}

int64_t WorkspaceLinux::thisProcess() const { return ::getpid(); }

std::optional<std::string> WorkspaceLinux::applicationPath(std::string_view identifier) const
{
    return entryById(std::string(identifier));
}

std::optional<std::string> WorkspaceLinux::defaultApplication(DockDefaultApp role) const
{
    const auto& wanted = lookup(role);
    for (const char* type : wanted.contentTypes)
        if (auto path = defaultFor(type))
            return path;
    for (const char* id : wanted.ids)
        if (auto path = entryById(id))
            return path;
    for (const char* type : wanted.fallbackTypes)
        if (auto path = defaultFor(type))
            return path;
    return std::nullopt;
}

std::string WorkspaceLinux::displayName(const std::string& path) const
{
    if (isWindowApplication(path))
        return path.substr(windowApplicationScheme.size());
    GObjectRef<GDesktopAppInfo> info(g_desktop_app_info_new_from_filename(path.c_str()));
    if (info)
        if (const char* name = g_app_info_get_display_name(G_APP_INFO(info.get())))
            return name;
    // No readable entry: its file name is the best name there is.
    auto slash = path.find_last_of('/');
    auto name = path.substr(slash == std::string::npos ? 0 : slash + 1);
    return name.ends_with(".desktop") ? name.substr(0, name.size() - 8) : name;
}

std::optional<DockIconSource> WorkspaceLinux::icon(const std::string& path) const
{
    if (isWindowApplication(path)) {
        auto found = windowIcons_.find(path);
        return found == windowIcons_.end() ? std::nullopt : std::optional(DockIconSource { found->second, false });
    }
    GObjectRef<GDesktopAppInfo> info(g_desktop_app_info_new_from_filename(path.c_str()));
    GIcon* icon = info ? g_app_info_get_icon(G_APP_INFO(info.get())) : nullptr;
    if (!icon)
        return std::nullopt;
    gchar* text = g_icon_to_string(icon);
    if (!text)
        return std::nullopt;
    DockIconSource source { text, false };
    g_free(text);
    return source;
}

bool WorkspaceLinux::fileExists(const std::string& path) const
{
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0;
}

void WorkspaceLinux::launch(const std::string& path, std::function<void(bool)> finished)
{
    bool running = std::any_of(running_.begin(), running_.end(), [&](const auto& app) { return app.path == path; });
    if (running && activator_ && activator_(path)) {
        runtime_.post([finished = std::move(finished)] { finished(true); });
        return;
    }
    // Windows of no entry have nothing to start again.
    GObjectRef<GDesktopAppInfo> info(isWindowApplication(path) ? nullptr : g_desktop_app_info_new_from_filename(path.c_str()));
    bool launched = false;
    if (info) {
        GError* error = nullptr;
        // Without DO_NOT_REAP, GLib starts the app through an intermediate child it reaps at
        // once: the app is nobody's child here and never becomes a zombie.
        launched = g_desktop_app_info_launch_uris_as_manager(info.get(), nullptr, nullptr, G_SPAWN_SEARCH_PATH,
            startOwnSession, nullptr, nullptr, nullptr, &error);
        if (error)
            g_error_free(error);
    }
    if (!launched) {
        runtime_.post([finished = std::move(finished)] { finished(false); });
        return;
    }
    // Launched once its first window is up (the store gives up on it after a while).
    pendingLaunches_[path].push_back(std::move(finished));
}

std::vector<std::pair<std::string, std::string>> WorkspaceLinux::actions(const std::string& path) const
{
    std::vector<std::pair<std::string, std::string>> list;
    if (isWindowApplication(path))
        return list;
    GObjectRef<GDesktopAppInfo> info(g_desktop_app_info_new_from_filename(path.c_str()));
    if (!info)
        return list;
    for (const gchar* const* id = g_desktop_app_info_list_actions(info.get()); id && *id; ++id) {
        gchar* name = g_desktop_app_info_get_action_name(info.get(), *id);
        list.emplace_back(*id, name ? name : *id);
        g_free(name);
    }
    return list;
}

bool WorkspaceLinux::launchAction(const std::string& path, const std::string& action)
{
    if (isWindowApplication(path))
        return false;
    GObjectRef<GDesktopAppInfo> info(g_desktop_app_info_new_from_filename(path.c_str()));
    if (!info || !g_desktop_app_info_has_key(info.get(), "Actions"))
        return false;
    bool known = false;
    for (const gchar* const* id = g_desktop_app_info_list_actions(info.get()); id && *id; ++id)
        known |= action == *id;
    if (!known)
        return false;
    // GIO starts an action without our session setup; it still goes through its reaping child.
    g_desktop_app_info_launch_action(info.get(), action.c_str(), nullptr);
    return true;
}

bool WorkspaceLinux::opensFiles(const std::string& path, const std::vector<std::string>& files) const
{
    if (files.empty() || isWindowApplication(path))
        return false;
    GObjectRef<GDesktopAppInfo> info(g_desktop_app_info_new_from_filename(path.c_str()));
    if (!info)
        return false;
    const char* const* supported = g_app_info_get_supported_types(G_APP_INFO(info.get()));
    if (!supported)
        return false;
    return std::all_of(files.begin(), files.end(), [&](const std::string& file) {
        // By name first (no disk read on the main thread), by content when the name says nothing.
        gboolean uncertain = FALSE;
        gchar* type = g_content_type_guess(file.c_str(), nullptr, 0, &uncertain);
        if (uncertain && std::filesystem::is_directory(file)) {
            g_free(type);
            type = g_strdup("inode/directory");
        }
        bool opens = false;
        for (const char* const* each = supported; *each && !opens; ++each)
            opens = g_content_type_is_a(type, *each) || g_content_type_is_mime_type(type, *each);
        g_free(type);
        return opens;
    });
}

bool WorkspaceLinux::openFiles(const std::string& path, const std::vector<std::string>& files)
{
    if (isWindowApplication(path))
        return false;
    GObjectRef<GDesktopAppInfo> info(g_desktop_app_info_new_from_filename(path.c_str()));
    if (!info)
        return false;
    GList* list = nullptr;
    for (const auto& file : files)
        list = g_list_append(list, g_file_new_for_path(file.c_str()));
    gboolean launched = g_app_info_launch(G_APP_INFO(info.get()), list, nullptr, nullptr);
    g_list_free_full(list, g_object_unref);
    return launched;
}

std::string WorkspaceLinux::moveToTrash(const std::vector<std::string>& files)
{
    for (const auto& file : files) {
        GObjectRef<GFile> moved(g_file_new_for_path(file.c_str()));
        GError* error = nullptr;
        if (!g_file_trash(moved.get(), nullptr, &error)) {
            std::string problem = error ? error->message : "The file could not be moved to the trash.";
            g_clear_error(&error);
            return problem;
        }
    }
    return {};
}

void WorkspaceLinux::setRunningApplications(std::vector<RunningApplication> running)
{
    running_ = std::move(running);
    std::vector<std::function<void(bool)>> done;
    for (const auto& app : running_) {
        auto pending = pendingLaunches_.find(app.path);
        if (pending == pendingLaunches_.end())
            continue;
        for (auto& finished : pending->second)
            done.push_back(std::move(finished));
        pendingLaunches_.erase(pending);
    }
    watchers_.notify();
    for (auto& finished : done)
        finished(true);
}

const std::vector<DesktopEntryFacts>& WorkspaceLinux::desktopEntries(bool reload)
{
    if (entriesRead_ && !reload)
        return entries_;
    entriesRead_ = true;
    entries_.clear();
    GList* all = g_app_info_get_all();
    for (GList* item = all; item; item = item->next) {
        auto* info = static_cast<GAppInfo*>(item->data);
        auto path = entryPath(info);
        if (!path)
            continue;
        DesktopEntryFacts facts;
        facts.path = *path;
        const char* id = g_app_info_get_id(info);
        std::string entryId = id ? id : "";
        facts.id = entryId.ends_with(".desktop") ? entryId.substr(0, entryId.size() - 8) : entryId;
        const char* wmClass = g_desktop_app_info_get_startup_wm_class(G_DESKTOP_APP_INFO(info));
        facts.startupWMClass = wmClass ? wmClass : "";
        const char* commandLine = g_app_info_get_commandline(info);
        facts.execProgram = commandLine ? execProgram(commandLine) : "";
        entries_.push_back(std::move(facts));
    }
    g_list_free_full(all, g_object_unref);
    return entries_;
}

std::unique_ptr<Workspace> Workspace::forThisPlatform(Runtime& runtime) { return std::make_unique<WorkspaceLinux>(runtime); }

} // namespace kestrune
