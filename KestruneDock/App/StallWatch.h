#pragma once
// How long the main thread goes without getting back to wait for events, for the soak: every
// stretch from waking to blocking again is timed, and those over 50 ms (the first hundred, each
// as seconds since the start and its length), the longest and the number of wake-ups are written
// as JSON to a file now and then and at the end. It
// costs two clock reads a wake-up and adds none, so it is on only when $KESTRUNE_STALL_REPORT
// names the file.
//
//   auto watch = StallWatch::fromEnvironment();   // none unless asked for

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <QObject>

namespace kestrune {

class StallWatch : public QObject {
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds stallThreshold { 50 };

    // Watches the main thread's event loop; call on the main thread after QApplication exists.
    explicit StallWatch(std::string reportPath);
    ~StallWatch() override;
    [[nodiscard]] static std::unique_ptr<StallWatch> fromEnvironment();

private:
    using Clock = std::chrono::steady_clock;
    void awake();
    void aboutToBlock();
    void write() const;

    std::string reportPath_;
    Clock::time_point startedAt_ {};
    Clock::time_point wokeAt_ {};
    Clock::time_point wroteAt_ {};
    Clock::duration longest_ {};
    long stalls_ = 0;
    std::vector<std::pair<double, double>> stallList_;
    long wakes_ = 0;
};

} // namespace kestrune
