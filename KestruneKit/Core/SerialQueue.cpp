#include "KestruneKit/Core/SerialQueue.h"

namespace kestrune {

SerialQueue::~SerialQueue()
{
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        tasks_.clear();
    }
    wake_.notify_all();
    if (thread_.joinable())
        thread_.join();
}

void SerialQueue::async(std::function<void()> task)
{
    {
        std::lock_guard lock(mutex_);
        if (stopping_)
            return;
        tasks_.push_back(std::move(task));
        if (!thread_.joinable())
            thread_ = std::thread([this] { drain(); });
    }
    wake_.notify_one();
}

size_t SerialQueue::pending() const
{
    std::lock_guard lock(mutex_);
    return tasks_.size() + running_;
}

void SerialQueue::drain()
{
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
        if (stopping_)
            return;
        auto task = std::move(tasks_.front());
        tasks_.pop_front();
        running_ = 1;
        lock.unlock();
        task();
        lock.lock();
        running_ = 0;
    }
}

} // namespace kestrune
