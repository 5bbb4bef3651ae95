#include "KestruneDock/App/SingleInstance.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>

#include <QSocketNotifier>

namespace kestrune {

namespace {

constexpr size_t mostPending = 4096;

bool socketAddress(const std::string& path, sockaddr_un& address)
{
    std::memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        return false;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

} // namespace

std::string SingleInstance::folder(const Environment& environment, const std::string& home)
{
    auto runtime = environment.find("XDG_RUNTIME_DIR");
    if (runtime != environment.end() && !runtime->second.empty() && runtime->second[0] == '/')
        return runtime->second;
    auto data = environment.find("XDG_DATA_HOME");
    if (data != environment.end() && !data->second.empty() && data->second[0] == '/')
        return data->second + "/kestrune-dock";
    return home + "/.local/share/kestrune-dock";
}

SingleInstance::Claim SingleInstance::claim(const std::string& folder)
{
    Claim claim;
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
    std::string lockPath = folder + "/app.quillane.dock.lock";
    claim.socketPath = folder + "/app.quillane.dock.socket";
    UniqueFd lock(::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!lock) {
        claim.problem = "Can’t open " + lockPath + ": " + std::strerror(errno);
        return claim;
    }
    int result;
    do
        result = ::flock(lock.get(), LOCK_EX | LOCK_NB);
    while (result != 0 && errno == EINTR);
    if (result != 0) {
        if (errno == EWOULDBLOCK) {
            claim.role = Role::duplicate;
            return claim;
        }
        claim.problem = "Can’t lock " + lockPath + ": " + std::strerror(errno);
        return claim;
    }
    claim.role = Role::instance;
    claim.instance.reset(new SingleInstance(std::move(lock), claim.socketPath));
    return claim;
}

bool SingleInstance::send(const std::string& socketPath, std::string_view message, double seconds)
{
    sockaddr_un address {};
    if (!socketAddress(socketPath, address))
        return false;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    for (;;) {
        UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (!fd)
            return false;
        if (::connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
            std::string line = std::string(message) + "\n";
            size_t written = 0;
            while (written < line.size()) {
                ssize_t count = ::send(fd.get(), line.data() + written, line.size() - written, MSG_NOSIGNAL);
                if (count < 0 && errno == EINTR)
                    continue;
                if (count <= 0)
                    return false;
                written += static_cast<size_t>(count);
            }
            return true;
        }
        // The instance holds the lock but may not be listening yet.
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
}

SingleInstance::SingleInstance(UniqueFd lock, std::string socketPath)
    : lock_(std::move(lock)), socketPath_(std::move(socketPath))
{
}

SingleInstance::~SingleInstance()
{
    connections_.clear();
    listenerNotifier_.reset();
    if (listener_)
        ::unlink(socketPath_.c_str());
}

bool SingleInstance::listen(std::function<void(const std::string&)> received)
{
    received_ = std::move(received);
    sockaddr_un address {};
    if (!socketAddress(socketPath_, address))
        return false;
    // Holding the lock makes any socket file left here a dead instance's.
    ::unlink(socketPath_.c_str());
    UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd)
        return false;
    mode_t previous = ::umask(0077);
    int bound = ::bind(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::umask(previous);
    if (bound != 0 || ::listen(fd.get(), 8) != 0)
        return false;
    listener_ = std::move(fd);
    listenerNotifier_ = std::make_unique<QSocketNotifier>(listener_.get(), QSocketNotifier::Read);
    QObject::connect(listenerNotifier_.get(), &QSocketNotifier::activated, [this] { accept(); });
    return true;
}

void SingleInstance::accept()
{
    for (;;) {
        int client = ::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (client < 0)
            return;
        auto connection = std::make_unique<Connection>();
        connection->fd.reset(client);
        connection->notifier = std::make_unique<QSocketNotifier>(client, QSocketNotifier::Read);
        QObject::connect(connection->notifier.get(), &QSocketNotifier::activated, [this, client] { readFrom(client); });
        connections_.push_back(std::move(connection));
    }
}

void SingleInstance::readFrom(int fd)
{
    auto found = std::find_if(connections_.begin(), connections_.end(), [fd](const auto& c) { return c->fd.get() == fd; });
    if (found == connections_.end())
        return;
    Connection& connection = **found;
    char buffer[512];
    for (;;) {
        ssize_t count = ::read(fd, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return;
        if (count <= 0)
            break;
        connection.pending.append(buffer, static_cast<size_t>(count));
        // A client that never ends a line gets no more of our memory.
        if (connection.pending.size() > mostPending)
            break;
    }
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t end; (end = connection.pending.find('\n', start)) != std::string::npos; start = end + 1)
        lines.push_back(connection.pending.substr(start, end - start));
    drop(fd);
    for (const auto& line : lines)
        if (received_)
            received_(line);
}

void SingleInstance::drop(int fd)
{
    for (auto& connection : connections_) {
        if (connection->fd.get() != fd)
            continue;
        // Called from the notifier's own signal: it goes once that has returned.
        connection->notifier->setEnabled(false);
        connection->notifier.release()->deleteLater();
    }
    std::erase_if(connections_, [fd](const auto& c) { return c->fd.get() == fd; });
}

} // namespace kestrune
