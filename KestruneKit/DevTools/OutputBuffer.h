#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>

namespace kestrune {

// What a running command has printed, newest last. However much it prints, the buffer holds at
// most `appendLimit` bytes: past that, only the newest `keptOnTrim` are kept.
//
// Thread-safe: the pipe's reading thread appends while the runner may finish it.
class OutputBuffer {
public:
    static constexpr size_t appendLimit = 0x80000;   // 524,288
    static constexpr size_t keptOnTrim = 0x41000;    // 266,240: the final size plus one line search
    static constexpr size_t finalLimit = 0x40000;    // 262,144
    static constexpr size_t lineSearch = 4096;

    // Ignored once the buffer is closed.
    void append(std::string_view chunk);

    struct Final {
        std::string bytes;
        bool trimmed = false;
    };
    // Closes the buffer and gives its bytes cut to the final size: the newest `finalLimit` bytes,
    // starting after the first newline in their first `lineSearch` bytes when there is one, so
    // the text starts at a line boundary. `trimmed` when anything was ever dropped.
    [[nodiscard]] Final finish();

    [[nodiscard]] size_t size() const;
    [[nodiscard]] bool isClosed() const;

private:
    mutable std::mutex lock_;
    std::string data_;
    bool trimmed_ = false;
    bool closed_ = false;
};

} // namespace kestrune
