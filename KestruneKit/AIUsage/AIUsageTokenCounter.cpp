#include "KestruneKit/AIUsage/AIUsageTokenCounter.h"

#include <cerrno>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "KestruneKit/Core/UniqueFd.h"

namespace kestrune {

namespace {

// Reads of 256 KiB: large enough that a read costs little beside the search, small enough to
// stay in the second-level cache.
constexpr size_t chunkSize = 1024 * 1024;
// A line longer than this (a tool's output, never a reply) is stepped over unread, so that one
// huge line cannot make the count hold it in memory.
constexpr size_t longestLine = 16 * 1024 * 1024;
// Files read whole are small in practice; a larger one is not what we think it is.
constexpr uint64_t largestWholeFile = 64 * 1024 * 1024;

AIUsageFileStamp stampFrom(const struct stat& info)
{
    return { true, static_cast<uint64_t>(info.st_size),
#if defined(__APPLE__)
             static_cast<int64_t>(info.st_mtimespec.tv_sec) * 1000000000 + info.st_mtimespec.tv_nsec,
#else
             static_cast<int64_t>(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec,
#endif
             static_cast<uint64_t>(info.st_ino) };
}

void listFolder(const std::string& folder, int depth, const std::function<bool(std::string_view)>& filter,
                const std::function<void(const std::string&, const AIUsageFileStamp&)>& visit)
{
    if (depth > 32)
        return;
    DIR* stream = ::opendir(folder.c_str());
    if (!stream)
        return;
    std::string path;
    while (dirent* entry = ::readdir(stream)) {
        if (entry->d_name[0] == '.' && (entry->d_name[1] == 0 || (entry->d_name[1] == '.' && entry->d_name[2] == 0)))
            continue;
        path.assign(folder).append("/").append(entry->d_name);
        unsigned char type = entry->d_type;
        struct stat info {};
        if (type == DT_UNKNOWN) {
            if (::lstat(path.c_str(), &info) != 0)
                continue;
            type = S_ISDIR(info.st_mode) ? DT_DIR : S_ISREG(info.st_mode) ? DT_REG : DT_LNK;
        }
        if (type == DT_DIR) {
            listFolder(path, depth + 1, filter, visit);
        } else if (type == DT_REG && filter(path) && ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode)) {
            visit(path, stampFrom(info));
        }
    }
    ::closedir(stream);
}

} // namespace

bool endsWith(std::string_view text, std::string_view suffix)
{
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

AIUsageFileStamp fileStamp(const std::string& path)
{
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0)
        return {};
    return stampFrom(info);
}

void listFiles(const std::string& root, const std::function<bool(std::string_view)>& filter,
               const std::function<void(const std::string&, const AIUsageFileStamp&)>& visit)
{
    listFolder(root, 0, filter, visit);
}

bool AIUsageTokenCounter::isPresent() const
{
    struct stat info {};
    return ::stat(root_.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

AIUsageTokenUse AIUsageLogCounter::count(const AIUsageWindows& windows)
{
    filesOpened_ = 0;
    listFiles(
        root(), [this](std::string_view path) { return concerns(path); },
        [&](const std::string& path, const AIUsageFileStamp& stamp) {
            // Last written before the earliest window start: nothing in it can count.
            if (stamp.modifiedNanos / 1000000 < windows.earliest)
                return;
            auto& mark = marks_[path];
            if (mark.stamp == stamp)
                return;
            if (mark.stamp.inode != stamp.inode || stamp.size < mark.offset || reading(path) == Reading::wholeFile) {
                mark.offset = 0;
                forget(path);
            }
            mark.stamp = stamp;
            // One it may not open now is looked at again next time, not taken as read.
            if (!readFile(path, stamp, windows))
                mark.stamp = {};
        });
    replies_.prune(windows.earliest);
    hasCounted_ = true;
    return totals(windows);
}

void AIUsageLogCounter::reset()
{
    marks_.clear();
    replies_.clear();
    hasCounted_ = false;
    buffer_.reset();
    capacity_ = 0;
}

void AIUsageLogCounter::grow(size_t capacity)
{
    auto larger = std::make_unique<char[]>(capacity + aiUsageReadPadding);
    if (buffer_)
        std::memcpy(larger.get(), buffer_.get(), capacity_);
    buffer_ = std::move(larger);
    capacity_ = capacity;
}

bool AIUsageLogCounter::readFile(const std::string& path, const AIUsageFileStamp& stamp, const AIUsageWindows& windows)
{
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (!fd)
        return false;
    ++filesOpened_;
    auto& mark = marks_[path];
    if (reading(path) == Reading::wholeFile) {
        if (stamp.size > largestWholeFile)
            return true;
        std::string text(stamp.size + aiUsageReadPadding, '\0');
        size_t filled = 0;
        while (filled < stamp.size) {
            ssize_t got = ::read(fd.get(), text.data() + filled, stamp.size - filled);
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
                break;
            filled += static_cast<size_t>(got);
        }
        consume(path, std::string_view(text.data(), filled), text.size(), windows);
        mark.offset = filled;
        return true;
    }
    if (capacity_ < chunkSize)
        grow(chunkSize);
    // buffer_[0] holds the byte at file offset `start`; `held` bytes are in it.
    uint64_t start = mark.offset;
    size_t held = 0;
    bool skipping = false;
    for (;;) {
        if (held == capacity_) {
            if (capacity_ < longestLine) {
                grow(std::min(capacity_ * 2, longestLine));
            } else {
                start += held;
                held = 0;
                skipping = true;
            }
        }
        ssize_t got = ::pread(fd.get(), buffer_.get() + held, capacity_ - held, static_cast<off_t>(start + held));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        size_t fresh = held;
        held += static_cast<size_t>(got);
        if (skipping) {
            auto* end = static_cast<char*>(std::memchr(buffer_.get() + fresh, '\n', held - fresh));
            if (!end)
                continue;
            size_t past = static_cast<size_t>(end - buffer_.get()) + 1;
            std::memmove(buffer_.get(), buffer_.get() + past, held - past);
            start += past;
            held -= past;
            mark.offset = start;
            skipping = false;
            fresh = 0;
        }
        auto* last = static_cast<char*>(::memrchr(buffer_.get() + fresh, '\n', held - fresh));
        if (!last)
            continue;
        size_t complete = static_cast<size_t>(last - buffer_.get()) + 1;
        consume(path, std::string_view(buffer_.get(), complete), capacity_ + aiUsageReadPadding, windows);
        std::memmove(buffer_.get(), buffer_.get() + complete, held - complete);
        start += complete;
        held -= complete;
        mark.offset = start;
    }
    // Shrink back after a file with long lines, so one such file does not keep its buffer.
    if (capacity_ > chunkSize) {
        buffer_.reset();
        capacity_ = 0;
    }
    return true;
}

} // namespace kestrune
