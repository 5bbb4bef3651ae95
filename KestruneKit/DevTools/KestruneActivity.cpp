#include "KestruneKit/DevTools/KestruneActivity.h"

#include "KestruneKit/Core/RawNames.h"

namespace kestrune {

namespace {
using Reason = KestruneActivity::PauseReason;
constexpr RawNames<Reason, 3> reasonNames { { {
    { Reason::systemSleep, "systemSleep" },
    { Reason::displaysSleep, "displaysSleep" },
    { Reason::sessionInactive, "sessionInactive" },
} } };
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

std::string_view toString(KestruneActivity::PauseReason reason) { return reasonNames.name(reason); }

std::optional<KestruneActivity::PauseReason> pauseReasonFromString(std::string_view raw)
{
    return reasonNames.value(raw);
}

} // namespace kestrune
