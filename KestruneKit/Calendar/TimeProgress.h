#pragma once
// OVERVIEW
// The sums behind the time widgets: how much of the year, month, week or day is gone, and when
// the next whole step of it will be (so that a tile wakes only when its figure changes); the
// days to a date and their words; the time in words.
//
// TYPICAL USAGE
//   double gone = progressGone(ProgressSpan::year, now);                 // 0.8913…
//   Seconds wait = untilProgressStep(ProgressSpan::year, now, 100);     // to the next whole percent
//   countdownText(daysBetween(today, target));                         // "12 days", "Today"
//   clockWords(16, 14);                                               // "quarter past four"
//
// Pure functions; any thread.

#include <optional>
#include <string>
#include <string_view>

#include "KestruneKit/Calendar/CivilTime.h"
#include "KestruneKit/Core/Runtime.h"

namespace kestrune {

enum class ProgressSpan { year, month, week, day };

[[nodiscard]] std::string_view toString(ProgressSpan span);
[[nodiscard]] std::optional<ProgressSpan> progressSpanFromString(std::string_view raw);

// The share gone, 0 at the span's first moment, below 1 at its last. Weeks start on Monday
// unless `firstWeekday` (0 Monday … 6 Sunday) says otherwise.
[[nodiscard]] double progressGone(ProgressSpan span, const CivilTime& time, int firstWeekday = 0);
// How long until floor(gone × steps) next changes: at the next step, or at the span's end.
[[nodiscard]] Seconds untilProgressStep(ProgressSpan span, const CivilTime& time, int steps, int firstWeekday = 0);

// "12 days", "1 day", "Today", "Yesterday", "3 days ago".
[[nodiscard]] std::string countdownText(long days);

// The time as people say it, to the nearest five minutes: "ten past four", "half past eleven",
// "twenty-five to one", "four o’clock", "noon", "midnight".
[[nodiscard]] std::string clockWords(int hour, int minute);

} // namespace kestrune
