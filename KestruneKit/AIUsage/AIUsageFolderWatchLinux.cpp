#include "KestruneKit/AIUsage/AIUsageFolderWatch.h"

#include <cerrno>
#include <cstring>
#include <unordered_map>

#include <dirent.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "KestruneKit/Core/UniqueFd.h"

namespace kestrune {

namespace {

constexpr uint32_t watchedEvents = IN_CREATE | IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_ONLYDIR;

// inotify watches one folder at a time: every folder of the tree gets its own watch, and a
// folder created later gets one as its creation is reported.
class InotifyEvents final : public AIUsageFolderWatch::Events {
public:
    InotifyEvents(UniqueFd inotify, UniqueFd stop, AIUsageFolderWatch::Depth depth, AIUsageFolderWatch::Callback changed)
        : inotify_(std::move(inotify)), stop_(std::move(stop)), depth_(depth), changed_(std::move(changed))
    {
    }

    ~InotifyEvents() override
    {
        uint64_t one = 1;
        [[maybe_unused]] auto wrote = ::write(stop_.get(), &one, sizeof one);
        if (thread_.joinable())
            thread_.join();
    }

    // False with errno set (ENOSPC when the user's watch limit is reached). A folder that
    // appeared while we watched may have been written to before its watch was in place: its
    // files are reported as changed.
    bool add(const std::string& folder, int depth, bool appeared = false)
    {
        int watch = ::inotify_add_watch(inotify_.get(), folder.c_str(), watchedEvents);
        if (watch < 0)
            return errno == ENOENT || errno == ENOTDIR || errno == EACCES;
        folders_[watch] = folder;
        if (depth_ == AIUsageFolderWatch::Depth::folderOnly || depth > 32)
            return true;
        DIR* stream = ::opendir(folder.c_str());
        if (!stream)
            return true;
        bool fine = true;
        while (dirent* entry = ::readdir(stream)) {
            if (appeared && entry->d_type != DT_DIR)
                changed_(folder + "/" + entry->d_name);
            if (entry->d_type != DT_DIR || !std::strcmp(entry->d_name, ".") || !std::strcmp(entry->d_name, ".."))
                continue;
            if (!(fine = add(folder + "/" + entry->d_name, depth + 1, appeared)))
                break;
        }
        ::closedir(stream);
        return fine;
    }

    void start() { thread_ = std::thread([this] { run(); }); }

private:
    void run()
    {
        alignas(inotify_event) char buffer[16384];
        for (;;) {
            pollfd watched[2] { { inotify_.get(), POLLIN, 0 }, { stop_.get(), POLLIN, 0 } };
            if (::poll(watched, 2, -1) < 0) {
                if (errno == EINTR)
                    continue;
                return;
            }
            if (watched[1].revents)
                return;
            ssize_t got = ::read(inotify_.get(), buffer, sizeof buffer);
            if (got < 0 && (errno == EINTR || errno == EAGAIN))
                continue;
            if (got <= 0)
                return;
            std::string last;
            for (char* at = buffer; at < buffer + got;) {
                auto* event = reinterpret_cast<inotify_event*>(at);
                at += sizeof(inotify_event) + event->len;
                auto folder = folders_.find(event->wd);
                if (event->mask & IN_IGNORED) {
                    if (folder != folders_.end())
                        folders_.erase(folder);
                    continue;
                }
                if (folder == folders_.end())
                    continue;
                std::string path = event->len ? folder->second + "/" + event->name : folder->second;
                if ((event->mask & IN_ISDIR) && (event->mask & (IN_CREATE | IN_MOVED_TO)) && depth_ == AIUsageFolderWatch::Depth::tree)
                    add(path, 1, true);
                // A burst of writes to one file is one change.
                if (path != last)
                    changed_(path);
                last = std::move(path);
            }
        }
    }

    UniqueFd inotify_;
    UniqueFd stop_;
    AIUsageFolderWatch::Depth depth_;
    AIUsageFolderWatch::Callback changed_;
    std::unordered_map<int, std::string> folders_;
    std::thread thread_;
};

} // namespace

std::unique_ptr<AIUsageFolderWatch::Events> AIUsageFolderWatch::startEvents(const std::string& root, Depth depth, Callback changed,
                                                                            std::string& failure)
{
    UniqueFd inotify(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    UniqueFd stop(::eventfd(0, EFD_CLOEXEC));
    if (!inotify || !stop) {
        failure = std::string("inotify unavailable: ") + std::strerror(errno);
        return nullptr;
    }
    auto events = std::make_unique<InotifyEvents>(std::move(inotify), std::move(stop), depth, std::move(changed));
    if (!events->add(root, 0)) {
        failure = errno == ENOSPC ? "inotify watch limit reached" : std::string("inotify: ") + std::strerror(errno);
        return nullptr;
    }
    events->start();
    return events;
}

} // namespace kestrune
