#include <gtest/gtest.h>

#include "KestruneDock/Widgets/WidgetPaging.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

TEST(WidgetPageCut, GapRunsAndGreedyCount)
{
    EXPECT_NEAR(WidgetPageCut::gap(52), 8.6667, 1e-4);
    EXPECT_EQ(WidgetPageCut::gap(48), 8.0);
    const std::vector<double> lengths { 50, 60, 70 };
    EXPECT_EQ(WidgetPageCut::runLength(lengths, 0, 0, 8), 0.0);
    EXPECT_EQ(WidgetPageCut::runLength(lengths, 1, 2, 8), 60.0);
    EXPECT_EQ(WidgetPageCut::runLength(lengths, 0, 3, 8), 196.0);

    EXPECT_EQ(WidgetPageCut::pageCount({}, 100, 8), 1u);
    EXPECT_EQ(WidgetPageCut::pageCount(lengths, 196, 8), 1u) << "a run exactly as long as the room fits";
    EXPECT_EQ(WidgetPageCut::pageCount(lengths, 195.9, 8), 2u);
    EXPECT_EQ(WidgetPageCut::pageCount(lengths, 10, 8), 3u) << "every widget too long: one page each";

    const std::vector<double> wide { 40, 500, 40, 40 };
    auto runs = WidgetPageCut::cut(wide, 100, 8);
    EXPECT_EQ(runs, (std::vector<std::pair<size_t, size_t>> { { 0, 1 }, { 1, 2 }, { 2, 4 } }))
        << "the long widget stands alone and is never dropped";
    EXPECT_EQ(WidgetPageCut::pageCount(wide, 100, 8), runs.size());
}

class WidgetPagingTest : public ::testing::Test {
protected:
    test::TemporaryFolder folder;
    JSONFilePreferences preferences { folder.file("app.quillane.dock.json") };
    WidgetStore store { preferences };

    std::vector<Uuid> row(size_t count)
    {
        store.apply(WidgetPreset { "t", "", "", std::vector<WidgetKind>(count, WidgetKind::note) });
        std::vector<Uuid> ids;
        for (const auto& instance : store.instances())
            ids.push_back(instance.id);
        return ids;
    }
};

TEST_F(WidgetPagingTest, EmptyAndFittingRowsNeedNoExtraTile)
{
    row(0);
    WidgetPaging paging(store, preferences);
    EXPECT_EQ(paging.iconSize(), 52.0);
    paging.setAvailable(500);
    EXPECT_EQ(paging.pages(), (std::vector<std::vector<Uuid>> { {} }));
    EXPECT_FALSE(paging.showsPagesTile());
    EXPECT_FALSE(paging.showsStackTile());
    EXPECT_EQ(paging.rest(), 500.0);

    auto ids = row(3);
    for (const auto& id : ids)
        paging.setMeasurement(id, 100);
    ASSERT_EQ(paging.pages().size(), 1u);
    EXPECT_EQ(paging.shown(), ids);
    EXPECT_FALSE(paging.showsPagesTile());
    EXPECT_NEAR(paging.rest(), 500 - 300 - 2 * 52.0 / 6, 1e-9);
}

TEST_F(WidgetPagingTest, PagesStepRoundAndTheCutHoldsWithinHalfAPoint)
{
    auto ids = row(3);
    WidgetPaging paging(store, preferences);
    paging.setIconSize(48);  // gap 8; the pages tile keeps 24 + 8
    paging.setAvailable(200);
    int heard = 0;
    paging.addObserver([&] { ++heard; });
    paging.setMeasurement(ids[0], 80.3);
    paging.setMeasurement(ids[1], 80);
    paging.setMeasurement(ids[2], 80);
    // 80.3 + 8 + 80 is just over the 168 left beside the pages tile.
    ASSERT_EQ(paging.pages(), (std::vector<std::vector<Uuid>> { { ids[0] }, { ids[1], ids[2] } }));
    EXPECT_TRUE(paging.showsPagesTile());
    EXPECT_EQ(paging.shown(), (std::vector { ids[0] }));
    EXPECT_GT(heard, 0);

    paging.showNextPage();
    EXPECT_EQ(paging.page(), 1u);
    EXPECT_EQ(paging.shown(), (std::vector { ids[1], ids[2] }));
    EXPECT_EQ(paging.transition(), WidgetPageTransition::forward);
    paging.showNextPage();
    EXPECT_EQ(paging.page(), 0u) << "after the last page comes the first";
    paging.showPreviousPage();
    EXPECT_EQ(paging.page(), 1u);
    EXPECT_EQ(paging.transition(), WidgetPageTransition::backward);

    // Shrinking by 0.4 would let the first two share a page, but the cut stays put.
    paging.setMeasurement(ids[0], 79.9);
    EXPECT_EQ(paging.pages().size(), 2u);
    EXPECT_EQ(paging.pages()[0], (std::vector { ids[0] }));
    // 0.6 is past the tolerance: a new cut.
    paging.setMeasurement(ids[0], 79.7);
    EXPECT_EQ(paging.pages(), (std::vector<std::vector<Uuid>> { { ids[0], ids[1] }, { ids[2] } }));
    EXPECT_EQ(paging.page(), 1u);

    // A widget longer than the whole room has a page to itself.
    paging.setMeasurement(ids[1], 500);
    EXPECT_EQ(paging.pages(), (std::vector<std::vector<Uuid>> { { ids[0] }, { ids[1] }, { ids[2] } }));

    // A move changes the order, and the pages follow it even though no length moved.
    store.move(ids[2], ids[0]);
    EXPECT_EQ(paging.pages(), (std::vector<std::vector<Uuid>> { { ids[2], ids[0] }, { ids[1] } }));
    EXPECT_EQ(WidgetPaging::accessibilityLabel(paging.page(), paging.pages().size()), "Widgets, page 2 of 2")
        << "the page shown stays within the new cut";
    EXPECT_EQ(WidgetPaging::pagesHelp(), "More widgets · ⌥-click for the ones before");
}

TEST_F(WidgetPagingTest, TheStackTakesWhatDoesNotFitAndThePolicyFollowsThePreference)
{
    auto ids = row(5);
    preferences.set(WidgetPaging::overflowKey, std::string("stack"));
    WidgetPaging paging(store, preferences);
    paging.setIconSize(48);
    paging.setAvailable(300);
    for (const auto& id : ids)
        paging.setMeasurement(id, 60);
    // Room beside the stack tile: 268; three widgets are 196, four 264.
    EXPECT_EQ(paging.overflow(), WidgetOverflow::stack);
    EXPECT_EQ(paging.shown(), (std::vector(ids.begin(), ids.begin() + 4)));
    EXPECT_EQ(paging.stacked(), (std::vector { ids[4] }));
    EXPECT_TRUE(paging.showsStackTile());
    EXPECT_FALSE(paging.showsPagesTile());
    EXPECT_EQ(WidgetPaging::stackTitle(1), "1 more widget");
    EXPECT_EQ(WidgetPaging::stackHelp(3), "3 more widgets · Click to show them, or drag a widget here to put it in");
    EXPECT_EQ(WidgetPaging::stackedLabel("Clock"), "In the stack · Clock");

    preferences.set(WidgetPaging::overflowKey, std::string("carousel"));
    EXPECT_EQ(paging.overflow(), WidgetOverflow::pages) << "an unknown policy is pages";
    EXPECT_TRUE(paging.stacked().empty());
    EXPECT_EQ(paging.pages().size(), 2u);
    preferences.remove(WidgetPaging::overflowKey);
    EXPECT_EQ(paging.overflow(), WidgetOverflow::pages);
}

TEST_F(WidgetPagingTest, WatchesTheRowByIdsAndClosesCardsOfWidgetsThatLeave)
{
    auto ids = row(2);
    WidgetPaging paging(store, preferences);
    paging.setAvailable(1000);
    int heard = 0;
    paging.addObserver([&] { ++heard; });

    store.setStyle(ids[0], "x");
    store.setOption(ids[1], "k", "v");
    EXPECT_EQ(heard, 0) << "a face or an option moves no tile";

    paging.present(ids[1], ids[1]);
    EXPECT_EQ(paging.presented(), ids[1]);
    EXPECT_EQ(heard, 1);
    paging.present(Uuid::random());
    EXPECT_EQ(paging.presented(), ids[1]) << "a widget not in the row has no card";

    auto added = store.add(WidgetKind::clock);
    EXPECT_EQ(paging.order().back(), added);
    EXPECT_EQ(heard, 2);

    store.apply(allWidgetPresets()[3]);
    EXPECT_EQ(paging.presented(), std::nullopt) << "new ids: the old card closes";
    EXPECT_EQ(paging.presentedFrom(), std::nullopt);
    EXPECT_EQ(paging.order().size(), 6u);
    EXPECT_TRUE(paging.measurements().empty());
}

} // namespace
} // namespace kestrune
