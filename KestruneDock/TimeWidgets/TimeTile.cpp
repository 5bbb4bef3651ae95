#include "KestruneDock/TimeWidgets/TimeTile.h"

#include <chrono>

namespace kestrune {

namespace {

Seconds intoUnit(Date moment, std::chrono::seconds unit)
{
    auto since = moment.time_since_epoch();
    auto whole = std::chrono::floor<std::chrono::seconds>(since);
    auto inUnit = whole.count() % unit.count();
    return std::chrono::duration_cast<Seconds>(since - whole) + Seconds(static_cast<double>(inUnit));
}

} // namespace

void TimeTile::setInstance(WidgetInstance instance)
{
    WidgetTile::setInstance(std::move(instance));
    // An option may change how often the tile changes (a clock that now shows seconds).
    if (shown_)
        armNext();
}

std::string TimeTile::option(std::string_view key, std::string_view fallback) const
{
    return widgetOption(instance_, key, fallback);
}

std::string widgetOption(const WidgetInstance& instance, std::string_view key, std::string_view fallback)
{
    auto found = instance.options.find(std::string(key));
    return found == instance.options.end() || found->second.empty() ? std::string(fallback) : found->second;
}

QDateTime TimeTile::localNow() const
{
    return localDateTime(runtime_.now());
}

void TimeTile::shownChanged()
{
    if (!shown_) {
        tick_.cancel();
        return;
    }
    tellChanged();
    armNext();
}

void TimeTile::armNext()
{
    // A few milliseconds past the change, so that a timer a hair early still finds it made.
    Seconds wait = untilChange(runtime_.now()) + Seconds(0.004);
    tick_ = runtime_.schedule(wait, TimerRepeat::once, tolerance(), [this] {
        tellChanged();
        armNext();
    });
}

CivilTime civilTime(const QDateTime& time)
{
    QDate date = time.date();
    QTime clock = time.time();
    return CivilTime { date.year(), date.month(), date.day(), clock.hour(), clock.minute(), clock.second() + clock.msec() / 1000.0 };
}

QDateTime localDateTime(Date moment)
{
    auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(moment.time_since_epoch()).count();
    return QDateTime::fromMSecsSinceEpoch(milliseconds);
}

Seconds untilNextSecond(Date moment)
{
    return Seconds(1) - intoUnit(moment, std::chrono::seconds(1));
}

Seconds untilNextMinute(Date moment)
{
    // Zones are whole minutes off UTC nowadays, so the minute turns with UTC's.
    return Seconds(60) - intoUnit(moment, std::chrono::seconds(60));
}

Seconds untilMidnight(Date moment)
{
    QDateTime now = localDateTime(moment);
    QDateTime midnight = now.date().addDays(1).startOfDay();
    return Seconds(std::max<qint64>(now.msecsTo(midnight), 1) / 1000.0);
}

} // namespace kestrune
