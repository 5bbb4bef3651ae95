#include "KestruneKit/DevServers/DevServersMonitor.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <map>
#include <sys/stat.h>

#include "KestruneKit/Core/CountText.h"

namespace kestrune {

namespace {

// A kernel table is a few hundred lines on a busy machine; more than this is not one.
constexpr size_t tableLimit = 4 << 20;

std::string readSmall(const std::string& path, size_t limit)
{
    std::ifstream file(path, std::ios::binary);
    std::string text;
    char buffer[8192];
    while (file && text.size() < limit) {
        file.read(buffer, sizeof buffer);
        text.append(buffer, static_cast<size_t>(file.gcount()));
    }
    return text;
}

template<typename Number>
bool parseNumber(std::string_view text, Number& value, int base)
{
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return error == std::errc() && end == text.data() + text.size();
}

// The inodes of the sockets a process holds open: its descriptors' links read "socket:[N]".
void socketsOf(const std::string& fdFolder, const std::map<uint64_t, uint16_t>& wanted, std::map<uint64_t, bool>& found)
{
    DIR* folder = opendir(fdFolder.c_str());
    if (!folder)
        return;
    while (dirent* entry = readdir(folder)) {
        if (entry->d_name[0] == '.')
            continue;
        char target[64];
        ssize_t length = readlinkat(dirfd(folder), entry->d_name, target, sizeof target - 1);
        if (length <= 9 || std::string_view(target, 8) != "socket:[")
            continue;
        uint64_t inode = 0;
        if (parseNumber(std::string_view(target + 8, static_cast<size_t>(length) - 9), inode, 10) && wanted.contains(inode))
            found[inode] = true;
    }
    closedir(folder);
}

} // namespace

std::vector<ListeningSocket> parseListeningSockets(std::string_view text)
{
    std::vector<ListeningSocket> sockets;
    size_t start = text.find('\n');
    while (start != std::string_view::npos && start < text.size()) {
        size_t end = text.find('\n', start + 1);
        std::string_view line = text.substr(start + 1, end == std::string_view::npos ? std::string_view::npos : end - start - 1);
        start = end;
        // sl local_address rem_address st tx_queue:rx_queue tr:tm->when retrnsmt uid timeout inode
        std::vector<std::string_view> fields;
        size_t at = 0;
        while (at < line.size() && fields.size() < 10) {
            while (at < line.size() && line[at] == ' ')
                ++at;
            size_t stop = line.find(' ', at);
            if (at < line.size())
                fields.push_back(line.substr(at, stop == std::string_view::npos ? std::string_view::npos : stop - at));
            at = stop == std::string_view::npos ? line.size() : stop;
        }
        if (fields.size() < 10 || fields[3] != "0A")
            continue;
        size_t colon = fields[1].rfind(':');
        ListeningSocket socket;
        if (colon == std::string_view::npos || !parseNumber(fields[1].substr(colon + 1), socket.port, 16)
            || !parseNumber(fields[9], socket.inode, 10) || socket.inode == 0)
            continue;
        sockets.push_back(socket);
    }
    return sockets;
}

std::vector<DevServer> readDevServers(const std::string& procRoot)
{
    std::map<uint64_t, uint16_t> ports;
    for (const char* table : { "/net/tcp", "/net/tcp6" })
        for (const ListeningSocket& socket : parseListeningSockets(readSmall(procRoot + table, tableLimit)))
            ports.emplace(socket.inode, socket.port);
    std::map<uint16_t, DevServer> servers;
    if (ports.empty())
        return {};
    DIR* processes = opendir(procRoot.c_str());
    if (!processes)
        return {};
    uid_t me = getuid();
    while (dirent* entry = readdir(processes)) {
        int pid = 0;
        if (!parseNumber(std::string_view(entry->d_name), pid, 10))
            continue;
        std::string folder = procRoot + "/" + entry->d_name;
        // Only the user's own processes: another user's descriptors cannot be read anyway.
        struct stat owner {};
        if (stat(folder.c_str(), &owner) != 0 || owner.st_uid != me)
            continue;
        std::map<uint64_t, bool> held;
        socketsOf(folder + "/fd", ports, held);
        if (held.empty())
            continue;
        std::string name = readSmall(folder + "/comm", 256);
        while (!name.empty() && (name.back() == '\n' || name.back() == '\0'))
            name.pop_back();
        for (const auto& entryHeld : held) {
            uint16_t port = ports[entryHeld.first];
            servers.try_emplace(port, DevServer { port, name, pid });
        }
    }
    closedir(processes);
    std::vector<DevServer> list;
    for (auto& entryServer : servers)
        list.push_back(std::move(entryServer.second));
    return list;
}

namespace devServersText {

std::string summary(const std::optional<std::vector<DevServer>>& servers)
{
    if (!servers)
        return std::string(looking);
    if (servers->empty())
        return std::string(none);
    if (servers->size() == 1)
        return std::to_string(servers->front().port) + " · " + servers->front().process;
    return countText(static_cast<int>(servers->size()), "server", "servers");
}

} // namespace devServersText

} // namespace kestrune
