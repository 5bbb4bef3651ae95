// The time widgets painted offscreen at a small and a large dock, saved for people to look at:
// every clock face, progress, moon and countdown; and when each tile wakes.

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>

#include <QDateEdit>
#include <QImage>
#include <QPainter>
#include <gtest/gtest.h>

#include "KestruneDock/TimeWidgets/ClockWidget.h"
#include "KestruneDock/TimeWidgets/CountdownWidget.h"
#include "KestruneDock/TimeWidgets/MoonWidget.h"
#include "KestruneDock/TimeWidgets/ProgressWidget.h"
#include "KestruneKit/Core/ManualRuntime.h"
#include "tests/helpers/WidgetImages.h"

namespace kestrune {
namespace {

using namespace std::chrono;

Date utc(int y, unsigned m, unsigned d, int hour, int minute, double second = 0)
{
    return Date(sys_days(year(y) / month(m) / day(d)) + hours(hour) + minutes(minute))
        + duration_cast<system_clock::duration>(Seconds(second));
}

// The process's local zone for one test.
class LocalZone {
public:
    explicit LocalZone(const char* zone)
    {
        setenv("TZ", zone, 1);
        tzset();
    }
    ~LocalZone()
    {
        unsetenv("TZ");
        tzset();
    }
};

const QColor background = test::barColour;

QImage render(const std::function<void(QPainter&, const QRectF&)>& paint, double length, double size, int scale)
{
    QImage image(QSize(static_cast<int>(std::ceil(length)) * scale, static_cast<int>(size) * scale), QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(scale);
    image.fill(background);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    paint(painter, QRectF(0, 0, length, size));
    return image;
}

QImage render(const WidgetTile& tile, double size, int scale)
{
    return render([&](QPainter& painter, const QRectF& rect) { tile.paint(painter, rect, WidgetPaintContext { double(scale), false }); },
                  tile.length(size), size, scale);
}

// Pixels clearly lighter than the bar behind them: what the face drew.
int inkPixels(const QImage& image)
{
    int ink = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (qGray(image.pixel(x, y)) > qGray(background.rgb()) + 60)
                ++ink;
    return ink;
}

int brightness(const QImage& image, double x, double y)
{
    return qGray(image.pixel(static_cast<int>(x * image.devicePixelRatio()), static_cast<int>(y * image.devicePixelRatio())));
}

TEST(TimeWidgets, EveryClockFaceDrawsTheTimeAtBothDockSizesAndKeepsItsLength)
{
    const QTimeZone london("Europe/London");
    ClockSettings settings;
    settings.zones = ClockWidget::zonesNamed("America/New_York, Europe/London Asia/Tokyo Not/AZone");
    ASSERT_EQ(settings.zones.size(), 3u) << "an unknown zone is left out";
    settings.place = GeoLocation { 51.5, -0.13 };
    // Two moments on different days, so that the faces that show only the date differ too.
    const QDateTime morning(QDate(2026, 11, 24), QTime(10, 10, 30), london);
    const QDateTime evening(QDate(2026, 11, 25), QTime(16, 45, 5), london);
    for (int index = 0; index <= static_cast<int>(ClockFace::week); ++index) {
        auto face = static_cast<ClockFace>(index);
        std::string name(toString(face));
        EXPECT_EQ(clockFaceFromString(name), face);
        for (double size : { 16.0, 96.0 }) {
            double length = clockFaceLength(face, size, settings);
            EXPECT_GE(length, size) << name;
            for (int scale : { 1, 2 }) {
                auto draw = [&](const QDateTime& now) {
                    return render([&](QPainter& painter, const QRectF& rect) { paintClockFace(face, painter, rect, settings, now); },
                                  length, size, scale);
                };
                QImage first = draw(morning);
                QImage second = draw(evening);
                test::saveWidgetImage(first, "clock-" + name + "-" + std::to_string(int(size)) + "-" + std::to_string(scale) + "x");
                EXPECT_GT(inkPixels(first), size * scale / 2) << name << " drew nothing at " << size;
                EXPECT_NE(first, second) << name << " at " << size << " shows the same for two times";
            }
        }
    }
    // With seconds and the twelve-hour clock the text faces grow to hold them, and say them.
    settings.seconds = true;
    settings.hours24 = false;
    EXPECT_GT(clockFaceLength(ClockFace::digital, 96, settings), clockFaceLength(ClockFace::digital, 96, ClockSettings {}));
    EXPECT_EQ(clockFaceText(ClockFace::digital, settings, evening), QStringLiteral("4:45:05 PM"));
    EXPECT_EQ(clockFaceText(ClockFace::words, settings, evening), QStringLiteral("quarter to five"));
    EXPECT_EQ(clockFaceText(ClockFace::world, settings, evening), QStringLiteral("New York 11:45 AM, London 4:45 PM, Tokyo 1:45 AM"));
    for (ClockFace face : { ClockFace::digital, ClockFace::analog, ClockFace::flip, ClockFace::ring })
        test::saveWidgetImage(render([&](QPainter& painter, const QRectF& rect) { paintClockFace(face, painter, rect, settings, evening); },
                    clockFaceLength(face, 48, settings), 48, 2),
             "clock-" + std::string(toString(face)) + "-seconds-48-2x");
    // Tokyo is a day ahead of London at that hour, and the face says so.
    QImage world = render([&](QPainter& painter, const QRectF& rect) { paintClockFace(ClockFace::world, painter, rect, settings, evening); },
                          clockFaceLength(ClockFace::world, 96, settings), 96, 1);
    EXPECT_GT(inkPixels(world), 200);
}

TEST(TimeWidgets, TheClockWakesOnlyWhenWhatItShowsChangesAndNeverWhileHidden)
{
    LocalZone zone("Europe/London");
    ManualRuntime runtime(utc(2026, 11, 24, 10, 10, 30.25));
    WidgetInstance instance = WidgetInstance::make(WidgetKind::clock);
    ClockWidget tile(instance, runtime);
    int drawn = 0;
    tile.changed = [&] { ++drawn; };
    EXPECT_TRUE(runtime.timers().empty());

    tile.setShown(true);
    ASSERT_EQ(runtime.timers().size(), 1u);
    EXPECT_NEAR(duration<double>(runtime.timers()[0].due - utc(2026, 11, 24, 10, 11)).count(), 0, 0.01) << "not on the minute";
    runtime.advance(Seconds(30));
    EXPECT_EQ(drawn, 2) << "shown, then the minute";
    EXPECT_NEAR(duration<double>(runtime.timers()[0].due - utc(2026, 11, 24, 10, 12)).count(), 0, 0.01);

    instance.options[std::string(ClockWidget::secondsOption)] = "true";
    tile.setInstance(instance);
    EXPECT_NEAR(duration<double>(runtime.timers()[0].due - utc(2026, 11, 24, 10, 11, 1)).count(), 0, 0.01) << "not on the second";
    drawn = 0;
    runtime.advance(Seconds(10));
    EXPECT_EQ(drawn, 10) << "not once a second";
    ASSERT_EQ(runtime.timers().size(), 1u) << "a tick left behind another";

    // The date alone changes at midnight, London's.
    instance.style = "date";
    tile.setInstance(instance);
    EXPECT_NEAR(duration<double>(runtime.timers()[0].due - utc(2026, 11, 25, 0, 0)).count(), 0, 0.01);

    tile.setShown(false);
    EXPECT_TRUE(runtime.timers().empty()) << "a hidden clock still wakes the process";

    // Progress wakes when its whole percent moves on: a day's every 14 min 24 s.
    WidgetInstance day = WidgetInstance::make(WidgetKind::progress);
    day.style = "day";
    ProgressWidget progress(day, runtime);
    progress.setShown(true);
    ASSERT_EQ(runtime.timers().size(), 1u);
    EXPECT_NEAR(duration<double>(runtime.timers()[0].due - utc(2026, 11, 24, 10, 19, 12)).count(), 0, 0.01);
}

TEST(TimeWidgets, TheMoonIsLitOnTheRightAsItWaxesAndOnTheLeftAsItWanes)
{
    auto moon = [](double cycle) {
        return render([&](QPainter& painter, const QRectF&) { paintMoon(painter, QRectF(0, 0, 100, 100), cycle); }, 100, 100, 1);
    };
    struct Expected {
        double cycle;
        bool leftLit;
        bool rightLit;
    };
    for (Expected expected : { Expected { 0.0, false, false }, Expected { 0.25, false, true }, Expected { 0.5, true, true },
                               Expected { 0.75, true, false }, Expected { 0.12, false, true }, Expected { 0.65, true, false } }) {
        QImage image = moon(expected.cycle);
        EXPECT_EQ(brightness(image, 20, 50) > 180, expected.leftLit) << expected.cycle;
        EXPECT_EQ(brightness(image, 90, 50) > 180, expected.rightLit) << expected.cycle;
    }
    // A crescent is lit at the limb, dark at the middle.
    QImage crescent = moon(0.1);
    EXPECT_LT(brightness(crescent, 50, 50), 120);

    LocalZone zone("UTC");
    ManualRuntime runtime(utc(2025, 3, 14, 6, 55));
    MoonWidget tile(WidgetInstance::make(WidgetKind::moon), runtime);
    EXPECT_EQ(tile.accessibleText(), "Moon, Full moon, 100\u2009% lit");
    runtime.advance(Seconds(7 * 86400));
    EXPECT_EQ(tile.accessibleText(), "Moon, Waning gibbous, 62\u2009% lit");
    for (double size : { 16.0, 96.0 })
        for (int scale : { 1, 2 })
            test::saveWidgetImage(render(tile, size, scale), "moon-" + std::to_string(int(size)) + "-" + std::to_string(scale) + "x");
    std::unique_ptr<QWidget> card(tile.makeCard());
    test::saveCardImages(*card, "card-moon", 380);

    // The clock's card: the dial, the date, the week, and the zones.
    WidgetInstance world = WidgetInstance::make(WidgetKind::clock);
    world.options["zones"] = "America/New_York Asia/Tokyo";
    ClockWidget clock(world, runtime);
    std::unique_ptr<QWidget> clockCard(clock.makeCard());
    test::saveCardImages(*clockCard, "card-clock", 380);
}

TEST(TimeWidgets, ProgressAndCountdownSayWhatIsGoneAndWhatIsLeft)
{
    LocalZone zone("Europe/London");
    // Noon on 1 July, summer time.
    ManualRuntime runtime(utc(2026, 7, 1, 11, 0));
    for (auto [style, said] : { std::pair { "day", "Today: 50 percent gone" }, std::pair { "year", "2026: 49 percent gone" },
                                std::pair { "month", "July: 1 percent gone" }, std::pair { "", "2026: 49 percent gone" } }) {
        WidgetInstance instance = WidgetInstance::make(WidgetKind::progress);
        instance.style = style;
        ProgressWidget tile(instance, runtime);
        EXPECT_EQ(tile.accessibleText(), said);
        for (double size : { 16.0, 96.0 })
            for (int scale : { 1, 2 })
                test::saveWidgetImage(render(tile, size, scale), "progress-" + std::string(*style ? style : "default") + "-" + std::to_string(int(size)) + "-"
                                                    + std::to_string(scale) + "x");
    }

    WidgetInstance instance = WidgetInstance::make(WidgetKind::countdown);
    CountdownWidget countdown(instance, runtime);
    EXPECT_EQ(countdown.accessibleText(), "Countdown: Set a date in Options");
    instance.options = { { "title", "Holidays" }, { "date", "2026-12-25" } };
    countdown.setInstance(instance);
    EXPECT_EQ(countdown.accessibleText(), "Holidays: 177 days");
    for (double size : { 16.0, 96.0 })
        for (int scale : { 1, 2 })
            test::saveWidgetImage(render(countdown, size, scale), "countdown-" + std::to_string(int(size)) + "-" + std::to_string(scale) + "x");
    runtime.advance(Seconds(177 * 86400.0));
    EXPECT_EQ(countdown.accessibleText(), "Holidays: Today");
    runtime.advance(Seconds(2 * 86400.0));
    EXPECT_EQ(countdown.accessibleText(), "Holidays: 2 days ago");

    // The card's date goes to the widget's options.
    std::map<std::string, std::string> written;
    countdown.setOption = [&](const std::string& key, const std::string& value) { written[key] = value; };
    std::unique_ptr<QWidget> card(countdown.makeCard());
    auto* date = card->findChild<QDateEdit*>();
    ASSERT_NE(date, nullptr);
    date->setDate(QDate(2027, 1, 1));
    EXPECT_EQ(written["date"], "2027-01-01");
}

} // namespace
} // namespace kestrune
