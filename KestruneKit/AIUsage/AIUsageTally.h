#pragma once
// OVERVIEW
// What every token counter shares: the windows a count is made over, the set of replies already
// counted, and the running sums that turn replies into an AIUsageTokenUse.
//
// TYPICAL USAGE
//   AIUsageWindows windows = aiUsageWindows(runtime.now(), localeFirstWeekday());
//   replies.note(messageId + requestId, timeMs, tokens);   // again with a larger figure: raised
//   AIUsageTokenUse use = replies.tally(windows);
//
// Times are milliseconds since 1970 throughout: the logs say them so, and integer arithmetic
// keeps the sums exact.

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "KestruneKit/AIUsage/AIUsageModel.h"

namespace kestrune {

inline constexpr int64_t aiUsageBlockMillis = 5 * 3600 * 1000;

[[nodiscard]] int64_t millisSince1970(Date date);
// Times from other tools' files are held within what a Date can hold (about the years 1678 to
// 2262), so a garbled one is a far-off date rather than an overflow.
[[nodiscard]] Date dateFromMillis(int64_t millis);
[[nodiscard]] Date dateFromSeconds(double seconds);

// "2025-06-02T22:40:37.397Z", with or without fraction, "Z" or an offset such as "+02:00";
// also "2026-03-01 10:00:00" (taken as UTC).
[[nodiscard]] std::optional<int64_t> parseISODate(std::string_view text);

// The first weekday of the user's calendar, 0 for Sunday to 6 for Saturday.
[[nodiscard]] int localeFirstWeekday();

struct AIUsageWindows {
    int64_t now = 0;
    // Local midnight of this week's first day, and the starts of its seven days and of the next
    // week's first day.
    int64_t weekStart = 0;
    std::array<int64_t, 8> dayStarts {};
    // Nothing older is read. Blocks are reckoned from replies of the last 24 hours, so that a
    // block begun late on the week's last day still opens at the right moment.
    int64_t earliest = 0;
};
[[nodiscard]] AIUsageWindows aiUsageWindows(Date now, int firstWeekday);

// Running sums over replies given in any order.
class AIUsageTally {
public:
    explicit AIUsageTally(const AIUsageWindows& windows);
    void add(int64_t time, int64_t tokens);
    [[nodiscard]] AIUsageTokenUse finish();

private:
    AIUsageWindows windows_;
    AIUsageTokenUse use_;
    std::optional<int64_t> lastUsed_;
    // Replies of the last 24 hours, ordered only at the end to find the open block.
    std::vector<std::pair<int64_t, int64_t>> recent_;
};

// Replies already counted, by identity, each at the largest figure seen for it.
class AIUsageReplies {
public:
    // False when the identity was known at this figure or a larger one.
    bool note(std::string_view identity, int64_t time, int64_t tokens);
    // Forgets replies older than the earliest window start.
    void prune(int64_t earliest);
    [[nodiscard]] AIUsageTokenUse tally(const AIUsageWindows& windows) const;
    [[nodiscard]] size_t size() const { return replies_.size(); }
    void clear();

private:
    struct Reply {
        int64_t time = 0;
        int64_t tokens = 0;
    };
    struct Hash {
        using is_transparent = void;
        size_t operator()(std::string_view text) const { return std::hash<std::string_view> {}(text); }
    };
    // The figures sit together in one array, so that a tally after each change walks contiguous
    // memory rather than a hundred thousand map nodes; the map only finds a reply's place.
    std::unordered_map<std::string, uint32_t, Hash, std::equal_to<>> index_;
    std::vector<Reply> replies_;
    int64_t oldest_ = INT64_MAX;
};

// A fixed needle found quickly in large buffers: two of its bytes are compared sixteen
// positions at a time, and only where both match is the whole needle compared.
class AIUsageByteSearch {
public:
    explicit AIUsageByteSearch(std::string_view needle);
    // The offset of the first occurrence at or after `from`, or npos.
    [[nodiscard]] size_t find(std::string_view haystack, size_t from = 0) const;
    [[nodiscard]] std::string_view needle() const { return needle_; }

private:
    std::string needle_;
    size_t first_ = 0;
    size_t second_ = 0;
};

// Calls visit(start, length) for each whole line of `lines` that holds any of the needles, in
// order, each line once. Lines end with '\n' or at the end of `lines`.
template<typename Visit>
void forEachLineHolding(std::string_view lines, std::initializer_list<const AIUsageByteSearch*> searches, Visit&& visit)
{
    const char* data = lines.data();
    size_t from = 0;
    while (from < lines.size()) {
        size_t at = std::string_view::npos;
        for (const auto* search : searches)
            at = std::min(at, search->find(lines, from));
        if (at == std::string_view::npos)
            return;
        const auto* newline = static_cast<const char*>(::memrchr(data + from, '\n', at - from));
        size_t start = newline ? static_cast<size_t>(newline - data) + 1 : from;
        const auto* end = static_cast<const char*>(std::memchr(data + at, '\n', lines.size() - at));
        size_t stop = end ? static_cast<size_t>(end - data) : lines.size();
        visit(start, stop - start);
        from = stop + 1;
    }
}

} // namespace kestrune
