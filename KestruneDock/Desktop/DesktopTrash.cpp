#include "KestruneDock/Desktop/DesktopTrash.h"

#include <filesystem>
#include <system_error>

#include "KestruneKit/AIUsage/AIUsageFolderWatch.h"
#include "KestruneKit/Core/AtomicFile.h"

namespace kestrune {

std::string DesktopTrash::folderFor(const Environment& environment, const std::string& home)
{
    auto data = environment.find("XDG_DATA_HOME");
    std::string folder = data != environment.end() && !data->second.empty() && data->second[0] == '/' ? data->second : home + "/.local/share";
    return folder + "/Trash";
}

DesktopTrash::DesktopTrash(std::string folder, std::function<void()> changed) : folder_(std::move(folder))
{
    if (!changed)
        return;
    // Made now if missing (anything that trashes a file makes them anyway), so that they are
    // watched from the start rather than looked for.
    (void)createFolders(folder_ + "/files");
    (void)createFolders(folder_ + "/info");
    watch_ = std::make_unique<AIUsageFolderWatch>(folder_ + "/files", AIUsageFolderWatch::Depth::folderOnly,
        [changed = std::move(changed)](const std::string&) { changed(); });
}

DesktopTrash::~DesktopTrash() = default;

size_t DesktopTrash::count() const
{
    std::error_code error;
    size_t items = 0;
    for (std::filesystem::directory_iterator entry(folder_ + "/files", error), end; !error && entry != end; entry.increment(error))
        ++items;
    return items;
}

std::string DesktopTrash::empty()
{
    std::string problem;
    for (const char* part : { "/files", "/info" }) {
        std::error_code error;
        std::vector<std::filesystem::path> entries;
        for (std::filesystem::directory_iterator entry(folder_ + part, error), end; !error && entry != end; entry.increment(error))
            entries.push_back(entry->path());
        for (const auto& path : entries) {
            std::error_code failed;
            // remove_all takes a symbolic link away itself, never what it points to.
            std::filesystem::remove_all(path, failed);
            if (failed && problem.empty())
                problem = "Couldn’t delete " + path.filename().string() + ": " + failed.message();
        }
    }
    // The cache of folder sizes describes items that are gone.
    std::error_code ignored;
    std::filesystem::remove(folder_ + "/directorysizes", ignored);
    return problem;
}

} // namespace kestrune
