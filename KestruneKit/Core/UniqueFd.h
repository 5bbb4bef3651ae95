#pragma once

#include <utility>

namespace kestrune {

// The one owner of a file descriptor: move-only, closes exactly once.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    ~UniqueFd() { reset(); }

    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] bool isValid() const { return fd_ >= 0; }
    explicit operator bool() const { return isValid(); }

    [[nodiscard]] int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1);

private:
    int fd_ = -1;
};

struct PipeEnds {
    UniqueFd read;
    UniqueFd write;
};

// Both ends close-on-exec, so no other child inherits them by accident.
// Returns the errno value on failure.
[[nodiscard]] int makePipe(PipeEnds& ends);

[[nodiscard]] bool setNonBlocking(int fd);

} // namespace kestrune
