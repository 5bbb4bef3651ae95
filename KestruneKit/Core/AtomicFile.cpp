#include "KestruneKit/Core/AtomicFile.h"

#include <cerrno>
#include <cstdlib>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "KestruneKit/Core/UniqueFd.h"

namespace kestrune {

std::string parentFolder(const std::string& path)
{
    auto slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool createFolders(const std::string& folder)
{
    for (size_t at = 1; at <= folder.size(); ++at) {
        if (at == folder.size() || folder[at] == '/') {
            std::string partial = folder.substr(0, at);
            if (::mkdir(partial.c_str(), 0755) != 0 && errno != EEXIST)
                return false;
        }
    }
    return true;
}

std::optional<int> writeFileAtomically(const std::string& path, const std::string& bytes, std::optional<mode_t> mode)
{
    if (!mode) {
        struct stat info {};
        mode = ::stat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0644;
    }
    std::string name = path + ".kestrune-XXXXXX";
    std::vector<char> temporary(name.begin(), name.end());
    temporary.push_back('\0');
    UniqueFd fd(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!fd)
        return errno;
    auto fail = [&](int error) {
        ::unlink(temporary.data());
        return std::optional<int>(error);
    };
    for (size_t written = 0; written < bytes.size();) {
        ssize_t wrote = ::write(fd.get(), bytes.data() + written, bytes.size() - written);
        if (wrote < 0 && errno == EINTR)
            continue;
        if (wrote < 0)
            return fail(errno);
        written += static_cast<size_t>(wrote);
    }
    if (::fchmod(fd.get(), *mode) != 0 || ::fsync(fd.get()) != 0)
        return fail(errno);
    if (::close(fd.release()) != 0)
        return fail(errno);
    if (::rename(temporary.data(), path.c_str()) != 0)
        return fail(errno);
    return std::nullopt;
}

std::optional<std::string> readWholeFile(const std::string& path)
{
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd)
        return std::nullopt;
    std::string text;
    char chunk[65536];
    for (;;) {
        ssize_t got = ::read(fd.get(), chunk, sizeof chunk);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return std::nullopt;
        if (got == 0)
            return text;
        text.append(chunk, static_cast<size_t>(got));
    }
}

} // namespace kestrune
