#include "KestruneKit/AIUsage/AIUsageFolderWatch.h"

#include <CoreServices/CoreServices.h>
#include <dispatch/dispatch.h>

namespace kestrune {

namespace {

// FSEvents reports whole trees by itself; a folder-only watch filters to direct children.
class FSEventsEvents final : public AIUsageFolderWatch::Events {
public:
    FSEventsEvents(std::string root, AIUsageFolderWatch::Depth depth, AIUsageFolderWatch::Callback changed)
        : root_(std::move(root)), depth_(depth), changed_(std::move(changed)), queue_(dispatch_queue_create("kestrune.usage.watch", nullptr))
    {
    }

    ~FSEventsEvents() override
    {
        if (stream_) {
            FSEventStreamStop(stream_);
            FSEventStreamInvalidate(stream_);
            FSEventStreamRelease(stream_);
        }
        dispatch_sync(queue_, ^{});
        dispatch_release(queue_);
    }

    bool start()
    {
        CFStringRef path = CFStringCreateWithCString(nullptr, root_.c_str(), kCFStringEncodingUTF8);
        CFArrayRef paths = CFArrayCreate(nullptr, reinterpret_cast<const void**>(&path), 1, &kCFTypeArrayCallBacks);
        FSEventStreamContext context { 0, this, nullptr, nullptr, nullptr };
        stream_ = FSEventStreamCreate(nullptr, &FSEventsEvents::callback, &context, paths, kFSEventStreamEventIdSinceNow, 0.5,
                                      kFSEventStreamCreateFlagFileEvents | kFSEventStreamCreateFlagNoDefer | kFSEventStreamCreateFlagUseCFTypes);
        CFRelease(paths);
        CFRelease(path);
        if (!stream_)
            return false;
        FSEventStreamSetDispatchQueue(stream_, queue_);
        return FSEventStreamStart(stream_);
    }

private:
    static void callback(ConstFSEventStreamRef, void* info, size_t count, void* paths, const FSEventStreamEventFlags*, const FSEventStreamEventId*)
    {
        auto* self = static_cast<FSEventsEvents*>(info);
        auto* list = static_cast<CFArrayRef>(paths);
        for (size_t index = 0; index < count; ++index) {
            auto text = static_cast<CFStringRef>(CFArrayGetValueAtIndex(list, static_cast<CFIndex>(index)));
            char buffer[4096];
            if (!CFStringGetCString(text, buffer, sizeof buffer, kCFStringEncodingUTF8))
                continue;
            std::string path(buffer);
            if (self->depth_ == AIUsageFolderWatch::Depth::folderOnly && path.rfind('/') != self->root_.size())
                continue;
            self->changed_(path);
        }
    }

    std::string root_;
    AIUsageFolderWatch::Depth depth_;
    AIUsageFolderWatch::Callback changed_;
    dispatch_queue_t queue_;
    FSEventStreamRef stream_ = nullptr;
};

} // namespace

std::unique_ptr<AIUsageFolderWatch::Events> AIUsageFolderWatch::startEvents(const std::string& root, Depth depth, Callback changed,
                                                                            std::string& failure)
{
    auto events = std::make_unique<FSEventsEvents>(root, depth, std::move(changed));
    if (!events->start()) {
        failure = "FSEvents stream could not start";
        return nullptr;
    }
    return events;
}

} // namespace kestrune
