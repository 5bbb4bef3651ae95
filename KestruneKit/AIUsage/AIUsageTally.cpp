#include "KestruneKit/AIUsage/AIUsageTally.h"

#include <algorithm>
#include <cstring>
#include <ctime>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace kestrune {

namespace {

// Days from 1970-01-01 to a civil date (proleptic Gregorian).
int64_t daysFromCivil(int64_t year, unsigned month, unsigned day)
{
    year -= month <= 2;
    int64_t era = (year >= 0 ? year : year - 399) / 400;
    auto yearOfEra = static_cast<unsigned>(year - era * 400);
    unsigned dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    unsigned dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + static_cast<int64_t>(dayOfEra) - 719468;
}

bool digits(std::string_view text, size_t at, size_t count, int& value)
{
    if (at + count > text.size())
        return false;
    value = 0;
    for (size_t i = at; i < at + count; ++i) {
        if (text[i] < '0' || text[i] > '9')
            return false;
        value = value * 10 + (text[i] - '0');
    }
    return true;
}

int64_t localMidnight(std::tm day)
{
    day.tm_hour = day.tm_min = day.tm_sec = 0;
    day.tm_isdst = -1;
    return static_cast<int64_t>(std::mktime(&day)) * 1000;
}

// Rough commonness of a byte in JSON logs, to pick the two bytes the search compares.
int commonness(char c)
{
    if (c == '"' || c == ' ' || c == ':' || c == ',' || std::strchr("etaoinsr", c))
        return 3;
    return c >= 'a' && c <= 'z' ? 2 : 1;
}

} // namespace

int64_t millisSince1970(Date date)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(date.time_since_epoch()).count();
}

namespace {
constexpr int64_t dateLimitMillis = std::chrono::duration_cast<std::chrono::milliseconds>(Date::duration::max()).count() - 1;
}

Date dateFromMillis(int64_t millis)
{
    millis = std::clamp(millis, -dateLimitMillis, dateLimitMillis);
    return Date(std::chrono::duration_cast<Date::duration>(std::chrono::milliseconds(millis)));
}

Date dateFromSeconds(double seconds)
{
    double millis = seconds * 1000;
    if (!(millis > -double(dateLimitMillis)))
        return dateFromMillis(-dateLimitMillis);
    if (!(millis < double(dateLimitMillis)))
        return dateFromMillis(dateLimitMillis);
    return dateFromMillis(static_cast<int64_t>(millis));
}

std::optional<int64_t> parseISODate(std::string_view text)
{
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (!digits(text, 0, 4, year) || text.size() < 19 || text[4] != '-' || !digits(text, 5, 2, month) || text[7] != '-'
        || !digits(text, 8, 2, day) || (text[10] != 'T' && text[10] != ' ') || !digits(text, 11, 2, hour) || text[13] != ':'
        || !digits(text, 14, 2, minute) || text[16] != ':' || !digits(text, 17, 2, second))
        return std::nullopt;
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60)
        return std::nullopt;
    size_t at = 19;
    int64_t millis = 0;
    if (at < text.size() && text[at] == '.') {
        int64_t scale = 100;
        for (++at; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at, scale /= 10)
            millis += (text[at] - '0') * scale;
    }
    int64_t offsetMinutes = 0;
    if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
        int hours = 0, minutes = 0;
        if (!digits(text, at + 1, 2, hours))
            return std::nullopt;
        size_t minutesAt = at + 3 < text.size() && text[at + 3] == ':' ? at + 4 : at + 3;
        if (minutesAt < text.size() && !digits(text, minutesAt, 2, minutes))
            return std::nullopt;
        offsetMinutes = (hours * 60 + minutes) * (text[at] == '-' ? -1 : 1);
    }
    int64_t seconds = daysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day)) * 86400 + hour * 3600
        + minute * 60 + second - offsetMinutes * 60;
    return seconds * 1000 + millis;
}

AIUsageWindows aiUsageWindows(Date now, int firstWeekday)
{
    AIUsageWindows windows;
    windows.now = millisSince1970(now);
    std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    std::tm today {};
    localtime_r(&seconds, &today);
    std::tm first = today;
    first.tm_mday -= (today.tm_wday - firstWeekday + 7) % 7;
    for (int day = 0; day < 8; ++day) {
        std::tm start = first;
        start.tm_mday += day;
        windows.dayStarts[static_cast<size_t>(day)] = localMidnight(start);
    }
    windows.weekStart = windows.dayStarts[0];
    windows.earliest = std::min(windows.weekStart, windows.now - 24 * 3600 * 1000);
    return windows;
}

AIUsageTally::AIUsageTally(const AIUsageWindows& windows) : windows_(windows)
{
    use_.weekStart = dateFromMillis(windows.weekStart);
    use_.days.assign(7, 0);
}

void AIUsageTally::add(int64_t time, int64_t tokens)
{
    if (time < windows_.earliest)
        return;
    if (!lastUsed_ || time > *lastUsed_)
        lastUsed_ = time;
    if (time >= windows_.weekStart && time < windows_.dayStarts[7]) {
        use_.week += tokens;
        auto day = std::upper_bound(windows_.dayStarts.begin(), windows_.dayStarts.end(), time) - windows_.dayStarts.begin() - 1;
        use_.days[static_cast<size_t>(day)] += tokens;
    }
    if (time >= windows_.now - 24 * 3600 * 1000 && time <= windows_.now)
        recent_.emplace_back(time, tokens);
}

AIUsageTokenUse AIUsageTally::finish()
{
    // A block opens with the first reply after the previous block ended and lasts five hours.
    std::sort(recent_.begin(), recent_.end());
    std::optional<int64_t> blockStart;
    int64_t blockTokens = 0;
    for (auto [time, tokens] : recent_) {
        if (!blockStart || time >= *blockStart + aiUsageBlockMillis) {
            blockStart = time;
            blockTokens = 0;
        }
        blockTokens += tokens;
    }
    if (blockStart && windows_.now < *blockStart + aiUsageBlockMillis) {
        use_.windowStart = dateFromMillis(*blockStart);
        use_.window = blockTokens;
    }
    if (lastUsed_)
        use_.lastUsed = dateFromMillis(*lastUsed_);
    return std::move(use_);
}

bool AIUsageReplies::note(std::string_view identity, int64_t time, int64_t tokens)
{
    auto found = index_.find(identity);
    if (found == index_.end()) {
        index_.emplace(std::string(identity), static_cast<uint32_t>(replies_.size()));
        replies_.push_back({ time, tokens });
        oldest_ = std::min(oldest_, time);
        return true;
    }
    auto& reply = replies_[found->second];
    if (tokens <= reply.tokens)
        return false;
    reply.tokens = tokens;
    return true;
}

void AIUsageReplies::prune(int64_t earliest)
{
    if (earliest <= oldest_)
        return;
    std::vector<Reply> kept;
    oldest_ = INT64_MAX;
    for (auto entry = index_.begin(); entry != index_.end();) {
        const auto& reply = replies_[entry->second];
        if (reply.time < earliest) {
            entry = index_.erase(entry);
            continue;
        }
        entry->second = static_cast<uint32_t>(kept.size());
        kept.push_back(reply);
        oldest_ = std::min(oldest_, reply.time);
        ++entry;
    }
    replies_ = std::move(kept);
}

void AIUsageReplies::clear()
{
    index_.clear();
    replies_.clear();
    oldest_ = INT64_MAX;
}

AIUsageTokenUse AIUsageReplies::tally(const AIUsageWindows& windows) const
{
    AIUsageTally tally(windows);
    for (const auto& reply : replies_)
        tally.add(reply.time, reply.tokens);
    return tally.finish();
}

AIUsageByteSearch::AIUsageByteSearch(std::string_view needle) : needle_(needle)
{
    if (needle_.size() < 2)
        return;
    // The rarest byte of the first half and of the second half, as far apart as that allows.
    size_t half = needle_.size() / 2;
    for (size_t i = 1; i < half; ++i)
        if (commonness(needle_[i]) < commonness(needle_[first_]))
            first_ = i;
    second_ = needle_.size() - 1;
    for (size_t i = needle_.size() - 1; i-- > half;)
        if (commonness(needle_[i]) < commonness(needle_[second_]))
            second_ = i;
}

size_t AIUsageByteSearch::find(std::string_view haystack, size_t from) const
{
    size_t n = needle_.size();
    if (n == 0)
        return from <= haystack.size() ? from : std::string_view::npos;
    if (haystack.size() < n || from > haystack.size() - n)
        return std::string_view::npos;
    const char* data = haystack.data();
    size_t last = haystack.size() - n;
    size_t at = from;
#if defined(__SSE2__)
    if (n >= 2) {
        const __m128i a = _mm_set1_epi8(needle_[first_]);
        const __m128i b = _mm_set1_epi8(needle_[second_]);
        for (; at + 16 <= last + 1; at += 16) {
            __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + at + first_));
            __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + at + second_));
            auto mask = static_cast<unsigned>(_mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi8(x, a), _mm_cmpeq_epi8(y, b))));
            while (mask) {
                auto bit = static_cast<size_t>(__builtin_ctz(mask));
                if (std::memcmp(data + at + bit, needle_.data(), n) == 0)
                    return at + bit;
                mask &= mask - 1;
            }
        }
    }
#endif
    const void* found = ::memmem(data + at, haystack.size() - at, needle_.data(), n);
    return found ? static_cast<size_t>(static_cast<const char*>(found) - data) : std::string_view::npos;
}

} // namespace kestrune
