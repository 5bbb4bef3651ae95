#include <gtest/gtest.h>

#include "KestruneKit/AIUsage/AIUsageModel.h"
#include "tests/KestruneKit/AIUsage/AIUsageTestSupport.h"

namespace kestrune {
namespace {

TEST(AIUsageLimit, LabelsByNameThenWindowLength)
{
    std::vector<std::pair<std::optional<int64_t>, std::string>> table { { 10080, "This week" }, { 2880, "2 days" }, { 120, "2 hours" },
                                                                        { 90, "90 minutes" }, { 60, "1 hour" },      { 300, "5 hours" },
                                                                        { 1440, "24 hours" }, { std::nullopt, "Usage" } };
    for (const auto& [minutes, label] : table)
        EXPECT_EQ((AIUsageLimit { 10, minutes, std::nullopt, std::nullopt }.label()), label) << minutes.value_or(-1);
    EXPECT_EQ((AIUsageLimit { 10, 300, std::nullopt, "Opus" }.label()), "Opus");

    Date now = test::fixtureNow();
    EXPECT_TRUE((AIUsageLimit { 10, 300, now, std::nullopt }.hasExpired(now))) << "a reset at this very moment has happened";
    EXPECT_FALSE((AIUsageLimit { 10, 300, dateAfter(now, Seconds(1)), std::nullopt }.hasExpired(now)));
    EXPECT_FALSE((AIUsageLimit { 10, 300, std::nullopt, std::nullopt }.hasExpired(now)));
}

TEST(AIUsageLimit, PaceAndLevel)
{
    Date now = test::fixtureNow();
    // Half of a 5-hour window has passed.
    auto limit = [&](double used) { return AIUsageLimit { used, 300, dateAfter(now, Seconds(150 * 60)), std::nullopt }; };
    EXPECT_EQ(aiUsagePace(limit(80), now), AIUsagePace::ahead);
    EXPECT_EQ(aiUsagePace(limit(52), now), AIUsagePace::onPace);
    EXPECT_EQ(aiUsagePace(limit(20), now), AIUsagePace::behind);
    EXPECT_EQ(aiUsagePace({ 20, std::nullopt, dateAfter(now, Seconds(60)), std::nullopt }, now), std::nullopt);
    EXPECT_EQ(aiUsageLevel(69.9), AIUsageLevel::plenty);
    EXPECT_EQ(aiUsageLevel(70), AIUsageLevel::low);
    EXPECT_EQ(aiUsageLevel(90), AIUsageLevel::nearlyGone);
}

TEST(AIUsageTally, ParsesTheLogsDateForms)
{
    EXPECT_EQ(parseISODate("1970-01-01T00:00:00Z"), 0);
    EXPECT_EQ(parseISODate("2025-06-02T22:40:37.397Z"), 1748904037397);
    EXPECT_EQ(parseISODate("2026-08-20T04:49:59.665+00:00"), parseISODate("2026-08-20T04:49:59.665Z"));
    EXPECT_EQ(parseISODate("2026-08-20T06:49:59+02:00"), parseISODate("2026-08-20T04:49:59Z"));
    EXPECT_EQ(parseISODate("2026-03-01 10:00:00"), parseISODate("2026-03-01T10:00:00Z"));
    for (const char* bad : { "", "2026-08-20", "2026-13-01T00:00:00Z", "20260820T000000Z", "2026-08-20T0a:00:00Z" })
        EXPECT_EQ(parseISODate(bad), std::nullopt) << bad;
}

TEST(AIUsageTally, WeeksStartOnTheLocalesFirstDayAndBlocksOnTheFirstReplyAfterTheLast)
{
    auto sunday = test::fixtureWindows();
    EXPECT_EQ(sunday.weekStart, parseISODate("2026-08-16T00:00:00Z"));
    auto monday = aiUsageWindows(test::fixtureNow(), 1);
    EXPECT_EQ(monday.weekStart, parseISODate("2026-08-17T00:00:00Z"));
    EXPECT_EQ(monday.dayStarts[7], parseISODate("2026-08-24T00:00:00Z"));

    auto at = [](const char* time) { return *parseISODate(time); };
    AIUsageTally tally(sunday);
    tally.add(at("2026-08-19T01:00:00Z"), 1);  // opens a block that ends at 06:00
    tally.add(at("2026-08-19T05:59:59Z"), 2);
    tally.add(at("2026-08-19T08:00:00Z"), 4);  // opens the block that holds noon
    tally.add(at("2026-08-19T11:00:00Z"), 8);
    tally.add(at("2026-08-15T23:00:00Z"), 16); // the week before
    auto use = tally.finish();
    EXPECT_EQ(use.windowStart, dateFromMillis(at("2026-08-19T08:00:00Z")));
    EXPECT_EQ(use.window, 12);
    EXPECT_EQ(use.week, 15);
    EXPECT_EQ(use.days[3], 15);

    AIUsageTally ended(aiUsageWindows(dateFromMillis(at("2026-08-19T13:00:00Z")), 0));
    ended.add(at("2026-08-19T08:00:00Z"), 4);
    EXPECT_EQ(ended.finish().windowStart, std::nullopt) << "the block ended at 13:00";
}

TEST(AIUsageByteSearch, FindsEveryOccurrenceAndNoFalseOne)
{
    AIUsageByteSearch search("\"type\":\"assistant\"");
    std::string haystack(1000, 'x');
    for (size_t at : { 0u, 18u, 500u, 982u })
        haystack.replace(at, 18, "\"type\":\"assistant\"");
    haystack.replace(300, 18, "\"type\":\"assistanT\"");
    std::vector<size_t> found;
    for (size_t at = 0; (at = search.find(haystack, at)) != std::string_view::npos; ++at)
        found.push_back(at);
    EXPECT_EQ(found, (std::vector<size_t> { 0, 18, 500, 982 }));
    EXPECT_EQ(search.find("\"type\":\"assistan"), std::string_view::npos);
}

} // namespace
} // namespace kestrune
