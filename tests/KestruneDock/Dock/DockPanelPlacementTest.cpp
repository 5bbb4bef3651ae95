#include <gtest/gtest.h>

#include "KestruneDock/Dock/DockPanelPlacement.h"

namespace kestrune {
namespace {

DockPanelPlacement placement(DockEdge edge)
{
    // The right-hand monitor of two, 1920 wide each, the left one taller.
    return { { 1920, 0, 1920, 1080 }, { 0, 0, 3840, 1200 }, edge, 400, 60, 90, 160 };
}

TEST(DockPanelPlacement, CentresTheRestingBarOnItsEdgeAndRaisesFromTheSameBase)
{
    auto bottom = placement(DockEdge::bottom);
    EXPECT_EQ(bottom.window(DockPanelRaise::resting), (DockScreenRect { 1920 + 760, 1020, 400, 60 }));
    EXPECT_EQ(bottom.window(DockPanelRaise::raised), (DockScreenRect { 1920 + 670, 920, 580, 160 }));
    auto left = placement(DockEdge::left);
    EXPECT_EQ(left.window(DockPanelRaise::resting), (DockScreenRect { 1920, 340, 60, 400 }));
    auto right = placement(DockEdge::right);
    EXPECT_EQ(right.window(DockPanelRaise::raised), (DockScreenRect { 3840 - 160, 250, 160, 580 }));

    // A row longer than the screen is held inside it.
    auto crowded = placement(DockEdge::bottom);
    crowded.length = 1900;
    EXPECT_EQ(crowded.window(DockPanelRaise::raised), (DockScreenRect { 1920, 920, 1920, 160 }));

    // Row points land on the same desktop pixel in both windows, on every edge, and come back.
    for (DockEdge edge : { DockEdge::bottom, DockEdge::left, DockEdge::right }) {
        auto place = placement(edge);
        for (DockPanelRaise raise : { DockPanelRaise::resting, DockPanelRaise::raised }) {
            DockScreenRect window = place.window(raise);
            auto [x, y] = place.toWindow(window, 37, 12);
            auto [axis, depth] = place.toRow(window, x, y);
            EXPECT_DOUBLE_EQ(axis, 37);
            EXPECT_DOUBLE_EQ(depth, 12);
            DockScreenRect resting = place.window(DockPanelRaise::resting);
            auto [rx, ry] = place.toWindow(resting, 37, 12);
            EXPECT_DOUBLE_EQ(window.x + x, resting.x + rx) << static_cast<int>(edge);
            EXPECT_DOUBLE_EQ(window.y + y, resting.y + ry) << static_cast<int>(edge);
        }
    }
    // Depth grows away from the edge: up on the bottom edge, rightward on the left one.
    DockScreenRect window = bottom.window(DockPanelRaise::resting);
    EXPECT_EQ(bottom.toWindow(window, DockRowRect { 10, 5, 40, 50 }), (DockScreenRect { 10, 5, 40, 50 }));
    window = right.window(DockPanelRaise::resting);
    EXPECT_EQ(right.toWindow(window, DockRowRect { 10, 5, 40, 50 }), (DockScreenRect { 5, 10, 50, 40 }));
}

TEST(DockPanelPlacement, ReservesOnlyTheRestingBarMeasuredFromTheWholeDesktop)
{
    // Bottom of a monitor shorter than the desktop: the strut counts from the desktop's bottom.
    auto bottom = placement(DockEdge::bottom).strut(1);
    std::array<uint32_t, 12> expected {};
    expected[3] = 1200 - 1020;
    expected[10] = 2680;
    expected[11] = 2680 + 400 - 1;
    EXPECT_EQ(bottom, expected);

    auto right = placement(DockEdge::right).strut(2);
    expected = {};
    expected[1] = 2 * 60;
    expected[6] = 2 * 340;
    expected[7] = 2 * 740 - 1;
    EXPECT_EQ(right, expected);

    auto left = placement(DockEdge::left);
    left.screen = { 0, 0, 1920, 1200 };
    expected = {};
    expected[0] = 60;
    expected[4] = 400;
    expected[5] = 799;
    EXPECT_EQ(left.strut(1), expected);
}

} // namespace
} // namespace kestrune

#include "KestruneDock/Dock/DockEdgeDwell.h"

namespace kestrune {
namespace {

TEST(DockEdgeStrip, IsTheEdgesOutermostPixelsAlongTheRestingBar)
{
    DockPanelPlacement placement { { 0, 0, 1280, 800 }, { 0, 0, 1280, 800 }, DockEdge::bottom, 400, 66, 30, 140 };
    DockScreenRect resting = placement.window(DockPanelRaise::resting);
    DockScreenRect strip = placement.edgeStrip();
    EXPECT_EQ(strip.x, resting.x);
    EXPECT_EQ(strip.width, resting.width);
    EXPECT_EQ(strip.y, 799);
    EXPECT_EQ(strip.height, 1);
    placement.edge = DockEdge::right;
    strip = placement.edgeStrip(2);
    EXPECT_EQ(strip.x, 1278);
    EXPECT_EQ(strip.width, 2);
    EXPECT_EQ(strip.height, placement.window(DockPanelRaise::resting).height);
    placement.edge = DockEdge::left;
    EXPECT_EQ(placement.edgeStrip().x, 0);
}

TEST(DockEdgeDwell, AStillPointerCallsTheDockAPassingOneDoesNot)
{
    Date start = Date {} + std::chrono::hours(1000);
    auto at = [&](double seconds) { return start + std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(seconds)); };
    DockEdgeDwell dwell;
    EXPECT_FALSE(dwell.sample(500, at(0)));
    EXPECT_EQ(dwell.due(), at(DockEdgeDwell::defaultSeconds));
    EXPECT_FALSE(dwell.sample(510, at(0.1))) << "too soon";
    EXPECT_TRUE(dwell.sample(505, at(0.3))) << "it stayed on a short stretch";

    // Passing along the edge: every move leaves the stretch, so the wait starts again each time.
    dwell.reset();
    EXPECT_FALSE(dwell.due());
    for (int step = 0; step < 20; ++step)
        EXPECT_FALSE(dwell.sample(100 + 30.0 * step, at(1 + 0.05 * step))) << step;
    // Once it stops, it is called after the wait.
    EXPECT_FALSE(dwell.sample(700, at(2.1)));
    EXPECT_TRUE(dwell.sample(700, at(2.1 + DockEdgeDwell::defaultSeconds)));
}

} // namespace
} // namespace kestrune
