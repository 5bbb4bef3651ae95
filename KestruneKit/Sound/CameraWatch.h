#pragma once
// OVERVIEW
// Whether a camera is in use: on Linux a program using a camera holds its /dev/video* node open,
// and the kernel tells a watcher of /dev of every open and close of it (inotify), so nothing is
// scanned while it watches. Only when the watch starts are the processes' open descriptors
// looked through once, for a camera opened before.
//
// TYPICAL USAGE
//   CameraWatch cameras(runtime);
//   cameras.onChange = [&] { redraw(cameras.inUse()); };
//   cameras.setWanted("mic tile", true);
//
// Main thread only; the watch runs on a thread of its own while wanted.

#include <functional>
#include <memory>
#include <set>
#include <string>

#include "KestruneKit/Core/Holders.h"
#include "KestruneKit/Core/Runtime.h"

namespace kestrune {

class CameraWatch {
public:
    // Watches the files in `folder` whose names start with `prefix`.
    explicit CameraWatch(Runtime& runtime, std::string folder = "/dev", std::string prefix = "video", std::string procRoot = "/proc");
    ~CameraWatch();
    CameraWatch(const CameraWatch&) = delete;
    CameraWatch& operator=(const CameraWatch&) = delete;

    void setWanted(const std::string& holder, bool wanted);
    [[nodiscard]] bool isWanted() const { return holders_.any(); }
    [[nodiscard]] bool inUse() const { return inUse_; }
    // The watch is running (false where the folder cannot be watched).
    [[nodiscard]] bool isWatching() const { return watching_; }
    std::function<void()> onChange;

    class Watcher;

private:
    void start();
    void stop();
    void apply(uint64_t generation, bool inUse);

    Runtime& runtime_;
    std::string folder_;
    std::string prefix_;
    std::string procRoot_;
    Holders holders_;
    bool inUse_ = false;
    bool watching_ = false;
    uint64_t generation_ = 0;
    std::unique_ptr<Watcher> watcher_;
    std::shared_ptr<CameraWatch*> self_;
};

} // namespace kestrune
