#include "KestruneKit/DevTools/KestruneActivity.h"

#include <array>
#include <utility>

namespace kestrune {

namespace {
using Reason = KestruneActivity::PauseReason;
constexpr std::array<std::pair<Reason, std::string_view>, 3> reasonNames { {
    { Reason::systemSleep, "systemSleep" },
    { Reason::displaysSleep, "displaysSleep" },
    { Reason::sessionInactive, "sessionInactive" },
} };
}

KestruneActivity& KestruneActivity::shared()
{
    static KestruneActivity activity;
    return activity;
}

void KestruneActivity::raise(PauseReason reason) { reasons_.insert(reason); }

void KestruneActivity::lower(PauseReason reason) { reasons_.erase(reason); }

bool KestruneActivity::perform(const std::function<void()>& work) const
{
    if (isPaused())
        return false;
    work();
    return true;
}

std::string_view toString(KestruneActivity::PauseReason reason)
{
    for (const auto& [value, name] : reasonNames)
        if (value == reason)
            return name;
    return "systemSleep";
}

std::optional<KestruneActivity::PauseReason> pauseReasonFromString(std::string_view raw)
{
    for (const auto& [value, name] : reasonNames)
        if (name == raw)
            return value;
    return std::nullopt;
}

} // namespace kestrune
