#include "KestruneKit/AIUsage/AIUsageFolderWatch.h"

#include <sys/stat.h>

#include "KestruneKit/Core/AtomicFile.h"

namespace kestrune {

namespace {

bool isFolder(const std::string& path)
{
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

} // namespace

AIUsageFolderWatch::AIUsageFolderWatch(std::string root, Depth depth, Callback changed, Seconds lookInterval)
    : root_(std::move(root)), depth_(depth), changed_(std::move(changed)), lookInterval_(lookInterval)
{
    if (isFolder(root_))
        events_ = startEvents(root_, depth_, changed_, fallback_);
    else
        fallback_ = "missing folder";
    if (!events_)
        looker_ = std::thread([this] { look(); });
}

AIUsageFolderWatch::~AIUsageFolderWatch()
{
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    if (looker_.joinable())
        looker_.join();
    events_.reset();
}

std::string AIUsageFolderWatch::fallback() const
{
    std::lock_guard lock(mutex_);
    return fallback_;
}

void AIUsageFolderWatch::look()
{
    std::unique_lock lock(mutex_);
    while (!wake_.wait_for(lock, lookInterval_, [this] { return stopping_; })) {
        // A folder that has appeared can be watched properly from now on.
        if (fallback_ == "missing folder" && isFolder(root_)) {
            std::string failure;
            auto events = startEvents(root_, depth_, changed_, failure);
            fallback_ = failure;
            lock.unlock();
            changed_(root_);
            lock.lock();
            if (events) {
                events_ = std::move(events);
                return;
            }
            continue;
        }
        if (fallback_ != "missing folder") {
            lock.unlock();
            changed_(root_);
            lock.lock();
        }
    }
}

AIUsageFileWatch::AIUsageFileWatch(std::string path, std::function<void()> changed)
    : path_(std::move(path)), changed_(std::move(changed)), stamp_(fileStamp(path_))
{
    folder_ = std::make_unique<AIUsageFolderWatch>(parentFolder(path_), AIUsageFolderWatch::Depth::folderOnly, [this](const std::string&) {
        auto now = fileStamp(path_);
        {
            std::lock_guard lock(mutex_);
            if (now == stamp_)
                return;
            stamp_ = now;
        }
        changed_();
    });
}

AIUsageFileWatch::Stamp AIUsageFileWatch::stamp() const
{
    std::lock_guard lock(mutex_);
    return stamp_;
}

} // namespace kestrune
