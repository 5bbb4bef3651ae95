#pragma once
// OVERVIEW
// The token counters' common ground. AIUsageTokenCounter is what the engine drives: where to
// watch, how long to let changes settle, which changed paths matter, count, reset. Counting and
// resetting run on the counter's own serial queue, which the engine's slot holds so that the
// queue is drained before the counter goes; the rest is constant after construction.
//
// AIUsageLogCounter is the base of the four counters over log trees (Claude Code, Codex, Gemini
// CLI, Droid): it lists the tree, skips files whose stamp is unchanged or that were last written
// before the earliest window start (they are never opened), and hands each changed file's new
// complete lines to the subclass in large chunks. A file that shrank or was replaced is read
// again from its start.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "KestruneKit/AIUsage/AIUsageTally.h"

namespace kestrune {

struct AIUsageFileStamp {
    bool exists = false;
    uint64_t size = 0;
    int64_t modifiedNanos = 0;
    uint64_t inode = 0;
    bool operator==(const AIUsageFileStamp&) const = default;
};
[[nodiscard]] AIUsageFileStamp fileStamp(const std::string& path);

class AIUsageTokenCounter {
public:
    AIUsageTokenCounter(AIUsageTool tool, std::string root, Seconds latency) : tool_(tool), root_(std::move(root)), latency_(latency) {}
    virtual ~AIUsageTokenCounter() = default;
    AIUsageTokenCounter(const AIUsageTokenCounter&) = delete;
    AIUsageTokenCounter& operator=(const AIUsageTokenCounter&) = delete;

    [[nodiscard]] AIUsageTool tool() const { return tool_; }
    [[nodiscard]] const std::string& root() const { return root_; }
    [[nodiscard]] Seconds latency() const { return latency_; }
    // Whether a changed path under the root concerns this counter.
    [[nodiscard]] virtual bool concerns(std::string_view path) const = 0;
    // Reads what is new and returns the updated figures. Blocks.
    [[nodiscard]] virtual AIUsageTokenUse count(const AIUsageWindows& windows) = 0;
    // Forgets every mark, so that the next count starts from scratch.
    virtual void reset() = 0;
    // Whether the tool is on this machine: its root exists.
    [[nodiscard]] bool isPresent() const;

private:
    AIUsageTool tool_;
    std::string root_;
    Seconds latency_;
};

// Readable bytes after every chunk handed to a subclass, as simdjson asks for.
inline constexpr size_t aiUsageReadPadding = 64;

class AIUsageLogCounter : public AIUsageTokenCounter {
public:
    using AIUsageTokenCounter::AIUsageTokenCounter;
    AIUsageTokenUse count(const AIUsageWindows& windows) final;
    void reset() override;
    // Files read in the last count, for diagnostics and tests.
    [[nodiscard]] size_t filesOpened() const { return filesOpened_; }

    struct Mark {
        uint64_t offset = 0;
        AIUsageFileStamp stamp;
    };

protected:
    // Whole files, for the formats that are not one record a line.
    enum class Reading { lines, wholeFile };
    [[nodiscard]] virtual Reading reading(std::string_view /*path*/) const { return Reading::lines; }
    // A chunk of whole lines of one file, each ending in '\n'; `readable` bytes from its start
    // may be read (the padding included).
    virtual void consume(const std::string& path, std::string_view lines, size_t readable, const AIUsageWindows& windows) = 0;
    // The file is read again from its start: drop what was taken from it.
    virtual void forget(const std::string& /*path*/) {}
    [[nodiscard]] virtual AIUsageTokenUse totals(const AIUsageWindows& windows) = 0;

    AIUsageReplies replies_;
    bool hasCounted_ = false;

private:
    // False when the file could not be opened.
    bool readFile(const std::string& path, const AIUsageFileStamp& stamp, const AIUsageWindows& windows);
    void grow(size_t capacity);

    std::map<std::string, Mark> marks_;
    size_t filesOpened_ = 0;
    std::unique_ptr<char[]> buffer_;
    size_t capacity_ = 0;
};

// Blocking: lists the regular files of a tree (symbolic links are not followed) that pass the filter.
void listFiles(const std::string& root, const std::function<bool(std::string_view)>& filter,
               const std::function<void(const std::string&, const AIUsageFileStamp&)>& visit);

[[nodiscard]] bool endsWith(std::string_view text, std::string_view suffix);

} // namespace kestrune
