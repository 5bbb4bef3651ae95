#include "KestruneKit/Sound/CameraWatch.h"

#include <dirent.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <filesystem>
#include <map>
#include <thread>

#include "KestruneKit/Core/UniqueFd.h"

namespace kestrune {

namespace {

// How many descriptors of the processes we may look at point to each watched file.
std::map<std::string, int> openedNow(const std::string& procRoot, const std::string& folder, const std::string& prefix)
{
    std::map<std::string, int> opened;
    std::error_code error;
    for (const auto& process : std::filesystem::directory_iterator(procRoot, error)) {
        std::string name = process.path().filename().string();
        if (name.empty() || name.find_first_not_of("0123456789") != std::string::npos)
            continue;
        std::error_code unreadable;
        for (const auto& descriptor : std::filesystem::directory_iterator(process.path() / "fd", unreadable)) {
            std::error_code gone;
            std::filesystem::path target = std::filesystem::read_symlink(descriptor.path(), gone);
            if (!gone && target.parent_path() == folder && target.filename().string().starts_with(prefix))
                ++opened[target.filename().string()];
        }
    }
    return opened;
}

} // namespace

class CameraWatch::Watcher {
public:
    Watcher(Runtime& runtime, std::weak_ptr<CameraWatch*> owner, uint64_t generation, std::string folder, std::string prefix, std::string procRoot)
        : runtime_(runtime), owner_(std::move(owner)), generation_(generation), folder_(std::move(folder)), prefix_(std::move(prefix)),
          procRoot_(std::move(procRoot))
    {
    }

    ~Watcher()
    {
        if (wake_.get() >= 0) {
            uint64_t one = 1;
            (void)!::write(wake_.get(), &one, sizeof one);
        }
        if (thread_.joinable())
            thread_.join();
    }

    bool start()
    {
        inotify_ = UniqueFd(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
        wake_ = UniqueFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        if (inotify_.get() < 0 || wake_.get() < 0)
            return false;
        if (::inotify_add_watch(inotify_.get(), folder_.c_str(), IN_OPEN | IN_CLOSE_WRITE | IN_CLOSE_NOWRITE | IN_DELETE) < 0)
            return false;
        thread_ = std::thread([this] { run(); });
        return true;
    }

private:
    void run()
    {
        // Watching first, then the one look at what is already open, so no open falls between.
        std::map<std::string, int> opened = openedNow(procRoot_, folder_, prefix_);
        bool last = false;
        report(opened, last, true);
        std::array<char, 4096> buffer {};
        while (true) {
            pollfd waiting[2] = { { inotify_.get(), POLLIN, 0 }, { wake_.get(), POLLIN, 0 } };
            if (::poll(waiting, 2, -1) < 0) {
                if (errno == EINTR)
                    continue;
                return;
            }
            if (waiting[1].revents)
                return;
            ssize_t count = ::read(inotify_.get(), buffer.data(), buffer.size());
            for (ssize_t at = 0; at + static_cast<ssize_t>(sizeof(inotify_event)) <= count;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
                at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
                std::string name = event->len ? event->name : "";
                if (!name.starts_with(prefix_))
                    continue;
                if (event->mask & IN_OPEN)
                    ++opened[name];
                else if (event->mask & (IN_CLOSE_WRITE | IN_CLOSE_NOWRITE))
                    opened[name] = std::max(0, opened[name] - 1);
                else if (event->mask & IN_DELETE)
                    opened.erase(name);
            }
            report(opened, last, false);
        }
    }

    void report(const std::map<std::string, int>& opened, bool& last, bool first)
    {
        bool inUse = std::any_of(opened.begin(), opened.end(), [](const auto& entry) { return entry.second > 0; });
        if (!first && inUse == last)
            return;
        last = inUse;
        runtime_.post([owner = owner_, generation = generation_, inUse] {
            if (auto self = owner.lock(); self && *self)
                (*self)->apply(generation, inUse);
        });
    }

    Runtime& runtime_;
    std::weak_ptr<CameraWatch*> owner_;
    uint64_t generation_;
    std::string folder_;
    std::string prefix_;
    std::string procRoot_;
    UniqueFd inotify_;
    UniqueFd wake_;
    std::thread thread_;
};

CameraWatch::CameraWatch(Runtime& runtime, std::string folder, std::string prefix, std::string procRoot)
    : runtime_(runtime), folder_(std::move(folder)), prefix_(std::move(prefix)), procRoot_(std::move(procRoot)),
      self_(std::make_shared<CameraWatch*>(this))
{
}

CameraWatch::~CameraWatch()
{
    *self_ = nullptr;
    watcher_.reset();
}

void CameraWatch::setWanted(const std::string& holder, bool wanted)
{
    if (!holders_.set(holder, wanted))
        return;
    if (isWanted())
        start();
    else
        stop();
}

void CameraWatch::start()
{
    ++generation_;
    watcher_ = std::make_unique<Watcher>(runtime_, self_, generation_, folder_, prefix_, procRoot_);
    watching_ = watcher_->start();
    if (!watching_)
        watcher_.reset();
}

void CameraWatch::stop()
{
    ++generation_;
    watcher_.reset();
    watching_ = false;
}

void CameraWatch::apply(uint64_t generation, bool inUse)
{
    if (generation != generation_ || inUse == inUse_)
        return;
    inUse_ = inUse;
    if (onChange)
        onChange();
}

} // namespace kestrune
