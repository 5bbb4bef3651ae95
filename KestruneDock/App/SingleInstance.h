#pragma once
// One dock per user session. The first process to hold a lock file is the instance; it listens on
// a local socket beside the lock. A later process finds the lock held, sends "reopen" over the
// socket and exits. The lock is the kernel's (flock), so it goes with its process however that
// process ends: a killed dock never keeps the next one from starting, and a stale socket is
// simply replaced by the next instance.
//
//   auto claim = SingleInstance::claim(folder);
//   if (claim.role == SingleInstance::Role::duplicate) {
//       SingleInstance::send(claim.socketPath, SingleInstance::reopenMessage);
//       return 0;
//   }
//   claim.instance->listen([](const std::string& message) { ... });
//
// Main thread only; messages arrive through the Qt event loop.

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "KestruneKit/Core/Environment.h"
#include "KestruneKit/Core/UniqueFd.h"

class QSocketNotifier;

namespace kestrune {

class SingleInstance {
public:
    static constexpr std::string_view reopenMessage = "app.quillane.dock.reopen";
    static constexpr std::string_view openSettingsMessage = "app.quillane.dock.openSettings";

    enum class Role { instance, duplicate, failed };
    struct Claim {
        Role role = Role::failed;
        std::string socketPath;
        // Why the lock could not be had at all (role failed).
        std::string problem;
        std::unique_ptr<SingleInstance> instance;
    };

    // $XDG_RUNTIME_DIR when it is set and absolute, else the application support folder.
    [[nodiscard]] static std::string folder(const Environment& environment, const std::string& home);
    [[nodiscard]] static Claim claim(const std::string& folder);
    // Delivers one message to the instance, waiting up to `seconds` for it to start listening
    // (it may have taken the lock a moment ago). Returns whether it was delivered.
    static bool send(const std::string& socketPath, std::string_view message, double seconds = 3);

    ~SingleInstance();
    SingleInstance(const SingleInstance&) = delete;
    SingleInstance& operator=(const SingleInstance&) = delete;

    // Starts listening; each line a client sends is handed over on the main thread.
    bool listen(std::function<void(const std::string& message)> received);

private:
    SingleInstance(UniqueFd lock, std::string socketPath);
    void accept();
    void readFrom(int fd);
    void drop(int fd);

    UniqueFd lock_;
    std::string socketPath_;
    UniqueFd listener_;
    std::unique_ptr<QSocketNotifier> listenerNotifier_;
    struct Connection {
        UniqueFd fd;
        std::unique_ptr<QSocketNotifier> notifier;
        std::string pending;
    };
    std::vector<std::unique_ptr<Connection>> connections_;
    std::function<void(const std::string&)> received_;
};

} // namespace kestrune
