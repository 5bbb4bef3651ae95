#include <cstdlib>

#include <gtest/gtest.h>

#include "KestruneKit/Widgets/DockWidgetRecord.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

TEST(DockWidgetRecord, ReadsKindsAndOptionsAndNothingElse)
{
    test::TemporaryFolder folder;
    JSONFilePreferences dock(folder.file("app.quillane.dock.json"));
    JSONFilePreferences reader(folder.file("app.quillane.dock.json"));

    EXPECT_TRUE(DockWidgetRecord::read(reader).widgets.empty()) << "no row yet";

    dock.set("widgets", PreferenceData { R"([{"id":"11111111-1111-4111-8111-111111111111","kind":"pomodoro","style":"x","options":{"goal":"8"}},)"
                                         R"({"id":"bad","kind":"hologram","style":"","options":{}}])" });
    auto record = DockWidgetRecord::read(reader);
    ASSERT_EQ(record.widgets.size(), 2u) << "read as soon as the dock wrote it";
    EXPECT_EQ(record.widgets[0], (DockWidgetRecord::Slot { "pomodoro", { { "goal", "8" } } }));
    EXPECT_EQ(record.widgets[1].kind, "hologram") << "a kind from a newer dock is kept as it is";

    for (const char* bad : { "[{\"kind\":\"clock\"}]", "[{\"kind\":3,\"options\":{}}]", "{}", "[{\"kind\":\"clock\",\"options\":{\"a\":[]}}]" }) {
        dock.set("widgets", PreferenceData { bad });
        EXPECT_TRUE(DockWidgetRecord::read(reader).widgets.empty()) << bad;
    }
    dock.set("widgets", std::string(R"([{"kind":"clock","options":{}}])"));
    EXPECT_TRUE(DockWidgetRecord::read(reader).widgets.empty()) << "text is not data";
}

TEST(DayStamp, WritesTheLocalDayAndReadsLenientForms)
{
    setenv("TZ", "Pacific/Auckland", 1);
    tzset();
    // 2026-11-20T12:30:00Z is already the 21st in Auckland.
    auto moment = std::chrono::system_clock::time_point(std::chrono::seconds(1795177800));
    EXPECT_EQ(DayStamp::of(moment), "2026-11-21");
    EXPECT_EQ(DayStamp::of(CalendarDay { 7, 3, 9 }), "0007-03-09");
    unsetenv("TZ");
    tzset();

    struct Case {
        const char* text;
        std::optional<std::string> day;
    };
    const Case cases[] {
        { "2026-11-21", "2026-11-21" },
        { " 2026-1-5\n", "2026-01-05" },
        { "2026/02/29", std::nullopt },
        { "2024/02/29", "2024-02-29" },
        { "2026.12.31", "2026-12-31" },
        { "2026-11-21T08:00:00Z", "2026-11-21" },
        { "2026-11-21 08:00", "2026-11-21" },
        { "2026-04-31", std::nullopt },
        { "2026-13-01", std::nullopt },
        { "2026-11/21", std::nullopt },
        { "26-11-21", std::nullopt },
        { "2026-011-21", std::nullopt },
        { "2026-11-21x", std::nullopt },
        { "", std::nullopt },
    };
    for (const auto& [text, day] : cases)
        EXPECT_EQ(DayLenient::normalized(text), day) << '"' << text << '"';
}

} // namespace
} // namespace kestrune
