#pragma once

// OVERVIEW
// One background thread that runs blocking work in the order it was given: a monitor's git
// reads, socket requests and tool runs, off the main thread. Results go back with
// Runtime::post, carrying the generation they were started in.
//
// TYPICAL USAGE
//   queue_.async([this, generation = generation_, folder] {
//       RepositoryState state = reader_.read(folder);
//       runtime_.post([this, generation, state] { if (generation == generation_) apply(state); });
//   });
//
// `async` may be called from any thread. The destructor waits for the task that is running and
// drops the ones still waiting.

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace kestrune {

class SerialQueue {
public:
    SerialQueue() = default;
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    void async(std::function<void()> task);
    // Tasks given and not yet finished, the running one included.
    [[nodiscard]] size_t pending() const;

private:
    void drain();

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> tasks_;
    size_t running_ = 0;
    bool stopping_ = false;
    // Started with the first task, so an idle monitor costs no thread.
    std::thread thread_;
};

} // namespace kestrune
