#include "KestruneKit/Preferences/PreferencesFollower.h"

#include "KestruneKit/AIUsage/AIUsageFolderWatch.h"
#include "KestruneKit/Core/AtomicFile.h"

namespace kestrune {

PreferencesFollower::PreferencesFollower(Preferences& preferences, Runtime& runtime)
    : preferences_(preferences)
    , self_(std::make_shared<PreferencesFollower*>(this))
{
    std::weak_ptr<PreferencesFollower*> weak = self_;
    auto synchronize = [weak] {
        if (auto self = weak.lock(); self && *self)
            (*self)->preferences_.synchronize();
    };
    if (auto* file = dynamic_cast<JSONFilePreferences*>(&preferences)) {
        // The folder is ours: made now (a first start has none yet), it is watched from the
        // start instead of looked for every few seconds until the first write.
        (void)createFolders(parentFolder(file->path()));
        // The watch calls from its own thread; the preferences are the main thread's.
        watch_ = std::make_unique<AIUsageFileWatch>(file->path(), [&runtime, synchronize] { runtime.post(synchronize); });
    } else {
        looks_ = runtime.schedule(Seconds(lookInterval), TimerRepeat::repeating, Runtime::defaultTolerance(Seconds(lookInterval)), synchronize);
    }
}

PreferencesFollower::~PreferencesFollower()
{
    // The watch first: it waits for a callback that is running, which may still post.
    watch_.reset();
    *self_ = nullptr;
}

} // namespace kestrune
