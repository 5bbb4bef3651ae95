#pragma once
// OVERVIEW
// When a pointer at the screen edge calls a hidden dock back: it has stayed on a short stretch of
// the edge for a moment, as a hand pushing against the edge does. A pointer passing along the
// edge, or across it on its way to a window, keeps moving and calls nothing.
//
// TYPICAL USAGE
//   if (dwell.sample(axis, now)) reveal();          // each pointer move in the edge strip
//   else if (auto due = dwell.due()) lookAgainAt(*due);   // a still pointer sends no moves
//   dwell.reset();                                  // the pointer left the strip
//
// Pure; time is given.

#include <optional>

#include "KestruneKit/Core/Runtime.h"

namespace kestrune {

class DockEdgeDwell {
public:
    static constexpr double defaultSeconds = 0.25;
    static constexpr double defaultStretch = 24;

    explicit DockEdgeDwell(double seconds = defaultSeconds, double stretch = defaultStretch) : seconds_(seconds), stretch_(stretch) {}

    // The pointer is at the edge, at `axis` along it. True once it has stayed long enough.
    bool sample(double axis, Date now);
    // When the pointer, if it stays where it was last seen, will have stayed long enough.
    [[nodiscard]] std::optional<Date> due() const;
    void reset() { since_.reset(); }

private:
    double seconds_;
    double stretch_;
    double anchor_ = 0;
    std::optional<Date> since_;
};

} // namespace kestrune
