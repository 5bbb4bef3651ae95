#include "KestruneKit/DevTools/ShellCommandTerminal.h"

#include <cerrno>
#include <chrono>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "KestruneKit/Core/UniqueFd.h"
#include "KestruneKit/Core/Uuid.h"

namespace kestrune {

namespace {

// Scripts older than this are left from earlier hand-overs; the terminal read them long ago.
constexpr auto staleScriptAge = std::chrono::hours(24);

void removeStaleScripts(const std::string& folder)
{
    DIR* directory = ::opendir(folder.c_str());
    if (!directory)
        return;
    auto now = std::chrono::system_clock::now();
    while (dirent* entry = ::readdir(directory)) {
        std::string_view name(entry->d_name);
        if (!name.ends_with(".command"))
            continue;
        std::string path = folder + "/" + std::string(name);
        struct stat info {};
        if (::lstat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode))
            continue;
        auto modified = std::chrono::system_clock::from_time_t(info.st_mtime);
        if (now - modified > staleScriptAge)
            ::unlink(path.c_str());
    }
    ::closedir(directory);
}

std::string errorText(int error) { return std::strerror(error); }

} // namespace

std::string ShellCommandTerminal::scriptText(std::string_view name, std::string_view folder, std::string_view command)
{
    std::string title;
    for (char c : name)
        title += c == '\n' ? ' ' : c;
    if (title.empty())
        title = "Untitled";
    std::string quotedFolder = "'";
    for (char c : folder) {
        if (c == '\'')
            quotedFolder += "'\\''";
        else
            quotedFolder += c;
    }
    quotedFolder += "'";
    std::string text = "#!/bin/zsh -il\n# ";
    text += title;
    text += ", from Kestrune Widgets\ncd -- ";
    text += quotedFolder;
    text += " || exit 1\n";
    text += command;
    text += "\n";
    return text;
}

std::string ShellCommandTerminal::commandsFolder(const Environment& environment)
{
    std::string base = "/tmp";
    if (auto found = environment.find("TMPDIR"); found != environment.end() && !found->second.empty())
        base = found->second;
    while (base.size() > 1 && base.back() == '/')
        base.pop_back();
    return base + "/Kestrune Commands";
}

std::variant<std::string, ShellCommandTerminal::Failure> ShellCommandTerminal::writeScript(const std::string& folder,
                                                                                          std::string_view text)
{
    // The folder may sit in a temporary folder every user can write to: someone else could have
    // made it, or put a link there, to have us write a script where they can change it.
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
        // Intermediate folders, as a missing $TMPDIR would need.
        for (size_t slash = folder.find('/', 1); slash != std::string::npos; slash = folder.find('/', slash + 1))
            ::mkdir(folder.substr(0, slash).c_str(), 0700);
        if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST)
            return Failure { "Couldn’t create " + folder + ": " + errorText(errno) };
    }
    struct stat info {};
    if (::lstat(folder.c_str(), &info) != 0)
        return Failure { "Couldn’t create " + folder + ": " + errorText(errno) };
    if (!S_ISDIR(info.st_mode) || info.st_uid != ::geteuid())
        return Failure { folder + " isn’t a private folder of this user" };
    if ((info.st_mode & 0777) != 0700 && ::chmod(folder.c_str(), 0700) != 0)
        return Failure { "Couldn’t make " + folder + " private: " + errorText(errno) };

    removeStaleScripts(folder);

    std::string path = folder + "/" + Uuid::random().toString() + ".command";
    std::string partPath = path + ".part";
    UniqueFd file(::open(partPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0700));
    if (!file)
        return Failure { "Couldn’t write " + path + ": " + errorText(errno) };
    size_t written = 0;
    while (written < text.size()) {
        ssize_t count = ::write(file.get(), text.data() + written, text.size() - written);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0) {
            int error = errno;
            ::unlink(partPath.c_str());
            return Failure { "Couldn’t write " + path + ": " + errorText(error) };
        }
        written += static_cast<size_t>(count);
    }
    // The umask may have taken the execute bits away.
    if (::fchmod(file.get(), 0700) != 0 || ::close(file.release()) != 0
        || ::rename(partPath.c_str(), path.c_str()) != 0) {
        int error = errno;
        ::unlink(partPath.c_str());
        return Failure { "Couldn’t write " + path + ": " + errorText(error) };
    }
    return path;
}

} // namespace kestrune
