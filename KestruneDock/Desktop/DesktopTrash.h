#pragma once
// OVERVIEW
// The user's trash where Linux desktops keep it: files in
// $XDG_DATA_HOME/Trash/files, each with its .trashinfo in Trash/info. Counts what is in it,
// follows it through inotify (the folders are made if missing, so that they can be watched),
// and empties it. Read directly rather than through trash:///, which needs a running gvfs.
//
// TYPICAL USAGE
//   DesktopTrash trash(DesktopTrash::folderFor(environment, home), [&] { post(refresh); });
//   if (trash.count() > 0) problem = trash.empty();
//
// `changed` is called on the watch's own thread. Everything else: the main thread.

#include <functional>
#include <memory>
#include <string>

#include "KestruneKit/Core/Environment.h"

namespace kestrune {

class AIUsageFolderWatch;

class DesktopTrash {
public:
    // $XDG_DATA_HOME/Trash (~/.local/share/Trash when unset or relative).
    [[nodiscard]] static std::string folderFor(const Environment& environment, const std::string& home);

    // `changed` set: the trash is followed while this object lives.
    explicit DesktopTrash(std::string folder, std::function<void()> changed = nullptr);
    ~DesktopTrash();
    DesktopTrash(const DesktopTrash&) = delete;
    DesktopTrash& operator=(const DesktopTrash&) = delete;

    [[nodiscard]] const std::string& folder() const { return folder_; }
    // The items in it (files and folders at its top).
    [[nodiscard]] size_t count() const;
    // Deletes every item and its information for good; symbolic links are removed, never
    // followed. The first problem met, or empty; what could be deleted is deleted.
    [[nodiscard]] std::string empty();

private:
    std::string folder_;
    std::unique_ptr<AIUsageFolderWatch> watch_;
};

} // namespace kestrune
