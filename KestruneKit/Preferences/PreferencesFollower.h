#pragma once
// Keeps a process's preferences in step with other processes writing the same domain (the
// `kestrune widgets` command editing a running dock's row): when the file changes, the
// preferences are synchronized on the main thread, and their observers hear of each key that
// changed. Where the store is not a file we can watch, it synchronizes every few seconds.
//
//   PreferencesFollower follower(*preferences, runtime);
//
// Main thread only.

#include <memory>

#include "KestruneKit/Core/Runtime.h"
#include "KestruneKit/Preferences/Preferences.h"

namespace kestrune {

class AIUsageFileWatch;

class PreferencesFollower {
public:
    static constexpr double lookInterval = 5;

    PreferencesFollower(Preferences& preferences, Runtime& runtime);
    ~PreferencesFollower();
    PreferencesFollower(const PreferencesFollower&) = delete;
    PreferencesFollower& operator=(const PreferencesFollower&) = delete;

private:
    Preferences& preferences_;
    std::shared_ptr<PreferencesFollower*> self_;
    TimerHandle looks_;
    std::unique_ptr<AIUsageFileWatch> watch_;
};

} // namespace kestrune
