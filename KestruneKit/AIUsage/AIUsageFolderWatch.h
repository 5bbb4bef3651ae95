#pragma once
// OVERVIEW
// Tells when something changed under a folder tree, so that counters look again only then. The
// system's own change notification does the work (inotify on Linux, watching each folder of the
// tree and each new one as it appears; FSEvents on macOS). Where it cannot (the folder does not
// exist yet, or the system's watch limit is reached) the watch looks periodically instead, and
// says why in `fallback()`.
//
// TYPICAL USAGE
//   AIUsageFolderWatch watch(home + "/.claude/projects", AIUsageFolderWatch::Depth::tree,
//                            [](const std::string& path) { /* any thread */ });
//
// The callback runs on the watch's own thread; post to the main thread from it. Destroying the
// watch stops it and waits for a callback that is running.

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "KestruneKit/AIUsage/AIUsageTokenCounter.h"

namespace kestrune {

class AIUsageFolderWatch {
public:
    enum class Depth { tree, folderOnly };
    using Callback = std::function<void(const std::string& path)>;

    AIUsageFolderWatch(std::string root, Depth depth, Callback changed, Seconds lookInterval = Seconds(30));
    ~AIUsageFolderWatch();
    AIUsageFolderWatch(const AIUsageFolderWatch&) = delete;
    AIUsageFolderWatch& operator=(const AIUsageFolderWatch&) = delete;

    // Empty while the system notifies us; else why the watch looks periodically.
    [[nodiscard]] std::string fallback() const;

    // The system's notification for one tree; created by the platform file.
    class Events {
    public:
        virtual ~Events() = default;
    };
    // None, with the reason in `failure`, when the system cannot watch this tree.
    [[nodiscard]] static std::unique_ptr<Events> startEvents(const std::string& root, Depth depth, Callback changed, std::string& failure);

private:
    void look();

    std::string root_;
    Depth depth_;
    Callback changed_;
    Seconds lookInterval_;
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    bool stopping_ = false;
    std::string fallback_;
    std::unique_ptr<Events> events_;
    std::thread looker_;
};

// One file, which its writer may replace by renaming a new one over it: the folder holding it is
// watched, and a change is reported only when the file's stamp differs from the last one seen.
class AIUsageFileWatch {
public:
    using Stamp = AIUsageFileStamp;
    AIUsageFileWatch(std::string path, std::function<void()> changed);
    [[nodiscard]] Stamp stamp() const;

private:
    std::string path_;
    std::function<void()> changed_;
    mutable std::mutex mutex_;
    Stamp stamp_;
    // Last, so that it stops before what its callback uses goes.
    std::unique_ptr<AIUsageFolderWatch> folder_;
};

} // namespace kestrune
