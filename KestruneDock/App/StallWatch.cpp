#include "KestruneDock/App/StallWatch.h"

#include <cstdlib>

#include <QAbstractEventDispatcher>
#include <QCoreApplication>

#include "KestruneKit/Core/AtomicFile.h"

namespace kestrune {

StallWatch::StallWatch(std::string reportPath) : reportPath_(std::move(reportPath)), startedAt_(Clock::now()), wokeAt_(startedAt_), wroteAt_(startedAt_)
{
    auto* dispatcher = QAbstractEventDispatcher::instance(QCoreApplication::instance()->thread());
    connect(dispatcher, &QAbstractEventDispatcher::awake, this, &StallWatch::awake, Qt::DirectConnection);
    connect(dispatcher, &QAbstractEventDispatcher::aboutToBlock, this, &StallWatch::aboutToBlock, Qt::DirectConnection);
    write();
}

StallWatch::~StallWatch() { write(); }

std::unique_ptr<StallWatch> StallWatch::fromEnvironment()
{
    const char* path = std::getenv("KESTRUNE_STALL_REPORT");
    if (!path || !*path)
        return nullptr;
    return std::make_unique<StallWatch>(path);
}

void StallWatch::awake()
{
    wokeAt_ = Clock::now();
    ++wakes_;
}

void StallWatch::aboutToBlock()
{
    auto now = Clock::now();
    auto busy = now - wokeAt_;
    bool longer = busy > longest_;
    if (longer)
        longest_ = busy;
    if (busy > stallThreshold) {
        ++stalls_;
        if (stallList_.size() < 100)
            stallList_.emplace_back(std::chrono::duration<double>(wokeAt_ - startedAt_).count(),
                                    std::chrono::duration<double, std::milli>(busy).count());
    }
    if (longer || busy > stallThreshold || now - wroteAt_ > std::chrono::seconds(10)) {
        wroteAt_ = now;
        write();
    }
}

void StallWatch::write() const
{
    auto millis = std::chrono::duration<double, std::milli>(longest_).count();
    std::string json = "{\"longestMs\": " + std::to_string(millis) + ", \"over50Ms\": " + std::to_string(stalls_)
        + ", \"wakes\": " + std::to_string(wakes_) + ", \"stalls\": [";
    for (size_t index = 0; index < stallList_.size(); ++index)
        json += (index ? ", [" : "[") + std::to_string(stallList_[index].first) + ", " + std::to_string(stallList_[index].second) + "]";
    json += "]}\n";
    (void)writeFileAtomically(reportPath_, json);
}

} // namespace kestrune
