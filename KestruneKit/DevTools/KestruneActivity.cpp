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

void KestruneActivity::raise(PauseReason reason)
{
    if (reasons_.insert(reason).second)
        observers_.notify();
}

void KestruneActivity::lower(PauseReason reason)
{
    if (reasons_.erase(reason) > 0)
        observers_.notify();
}

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
