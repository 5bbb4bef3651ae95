#include <cmath>

#include <gtest/gtest.h>

#include "KestruneDock/Dock/DockRowLayout.h"

namespace kestrune {
namespace {

DockPreferences sizes(double icon, double magnified)
{
    DockPreferences preferences;
    preferences.iconSize = icon;
    preferences.magnifiedSize = magnified;
    return preferences;
}

std::vector<DockRowSlot> appsDividerTrash(size_t apps)
{
    std::vector<DockRowSlot> slots(apps, DockRowSlot { DockSlotKind::app });
    slots.push_back({ DockSlotKind::divider });
    slots.push_back({ DockSlotKind::trash });
    return slots;
}

TEST(DockRowLayout, LaysTheRowOutAtRestWithPaddingGapsAndDividers)
{
    DockRowLayout layout;
    layout.setPreferences(sizes(48, 96));
    const DockRowMetrics& m = layout.metrics();
    layout.setSlots({ { DockSlotKind::app }, { DockSlotKind::divider }, { DockSlotKind::widget, 120 }, { DockSlotKind::trash } });

    ASSERT_EQ(layout.frames().size(), 4u);
    EXPECT_DOUBLE_EQ(layout.frames()[0].tile.axis, m.padding);
    EXPECT_DOUBLE_EQ(layout.frames()[1].tile.axis, m.padding + 48 + m.gap);
    EXPECT_DOUBLE_EQ(layout.frames()[1].tile.axisLength, m.dividerLength);
    EXPECT_DOUBLE_EQ(layout.frames()[2].tile.axisLength, 120);
    EXPECT_DOUBLE_EQ(layout.restingLength(), 2 * m.padding + 48 + m.dividerLength + 120 + 48 + 3 * m.gap);
    EXPECT_EQ(layout.bar(), (DockRowRect { 0, 0, layout.restingLength(), m.thickness() }));
    for (const auto& frame : layout.frames()) {
        EXPECT_EQ(frame.scale, 1.0);
        EXPECT_DOUBLE_EQ(frame.tile.axisCenter(), frame.restingCenter);
    }
    EXPECT_DOUBLE_EQ(layout.frames()[0].tile.depth, m.padding) << "tiles rest on the bar's padding";
    EXPECT_LE(layout.frames()[0].tile.depthEnd(), m.thickness());

    // An empty dock is still a bar that can be found and clicked.
    layout.setSlots({});
    EXPECT_DOUBLE_EQ(layout.restingLength(), m.thickness());

    // Sizes nobody could use are brought back into range instead of making a screen-wide dock.
    layout.setPreferences(sizes(5000, NAN));
    EXPECT_EQ(layout.metrics().iconSize, 128);
    layout.setPreferences(sizes(2, 2));
    EXPECT_EQ(layout.metrics().iconSize, 16);
}

TEST(DockRowLayout, GrowsTowardThePointerAndPushesNeighboursOutward)
{
    DockRowLayout layout;
    layout.setPreferences(sizes(48, 96));
    layout.setSlots(appsDividerTrash(9));
    std::vector<DockSlotFrame> rest = layout.frames();

    // The pointer on the centre of the fifth tile: it doubles, stays centred under the pointer, and
    // every tile before it moves toward the start, every tile after it toward the end.
    double pointer = rest[4].restingCenter;
    layout.setPointer(pointer);
    const auto& frames = layout.frames();
    EXPECT_DOUBLE_EQ(frames[4].scale, 2.0);
    EXPECT_NEAR(frames[4].tile.axisCenter(), pointer, 1e-9);
    EXPECT_DOUBLE_EQ(frames[4].tile.depthLength, 96);
    EXPECT_NEAR(frames[3].scale, 1 + std::exp(-std::pow(48 + layout.metrics().gap, 2) / (2 * std::pow(1.3 * 48, 2))), 1e-12);
    for (size_t index = 0; index < 4; ++index)
        EXPECT_LT(frames[index].tile.axis, rest[index].tile.axis) << index;
    for (size_t index = 5; index < frames.size(); ++index)
        EXPECT_GT(frames[index].tile.axis, rest[index].tile.axis) << index;
    EXPECT_EQ(frames[9].scale, 1.0) << "the divider is only space";
    EXPECT_DOUBLE_EQ(frames[9].tile.axisLength, layout.metrics().dividerLength);
    EXPECT_NEAR(layout.bar().axis, frames[0].tile.axis - layout.metrics().padding, 1e-9);
    EXPECT_DOUBLE_EQ(layout.bar().depthLength, layout.metrics().thickness()) << "the bar keeps to its edge";

    // Tiles never overlap, and whatever the pointer does the row stays within its spread and the
    // tiles within the raised depth: the hover window can be sized once.
    for (double at = -80; at < layout.restingLength() + 80; at += 0.7) {
        layout.setPointer(at);
        double end = -1e9;
        for (const auto& frame : layout.frames()) {
            ASSERT_GE(frame.tile.axis, end + layout.metrics().gap - 1e-9) << at;
            end = frame.tile.axisEnd();
            ASSERT_LE(frame.tile.depthEnd() + layout.metrics().labelRoom, layout.raisedDepth() + 1e-9);
        }
        ASSERT_GE(layout.bar().axis, -layout.spread()) << at;
        ASSERT_LE(layout.bar().axisEnd(), layout.restingLength() + layout.spread()) << at;
        // The point under the pointer stays under it while it is on the row.
        if (at >= rest.front().tile.axis && at <= rest.back().tile.axisEnd()) {
            auto slot = layout.hit(at, 1);
            ASSERT_TRUE(slot.has_value()) << at;
        }
    }

    layout.setPointer(std::nullopt);
    for (size_t index = 0; index < rest.size(); ++index)
        EXPECT_DOUBLE_EQ(layout.frames()[index].tile.axis, rest[index].tile.axis);

    // Held still (a reorder, an open menu) nothing grows even under the pointer.
    layout.setPointer(pointer);
    layout.setHeldStill(true);
    EXPECT_EQ(layout.frames()[4].scale, 1.0);
}

TEST(DockRowLayout, WidgetsHoldTheirSizeAndCalmTheRowWhileThePointerIsOnThem)
{
    DockRowLayout layout;
    layout.setPreferences(sizes(48, 96));
    std::vector<DockRowSlot> slots(3, DockRowSlot { DockSlotKind::app });
    slots.push_back({ DockSlotKind::divider });
    slots.push_back({ DockSlotKind::widget, 100 });
    slots.push_back({ DockSlotKind::widget, 60 });
    slots.push_back({ DockSlotKind::widgetPages });
    slots.push_back({ DockSlotKind::trash });
    layout.setSlots(slots);
    auto interval = layout.widgetInterval();
    ASSERT_TRUE(interval.has_value());
    EXPECT_DOUBLE_EQ(interval->lower, layout.frames()[4].tile.axis);
    EXPECT_DOUBLE_EQ(interval->upper, layout.frames()[6].tile.axisEnd());

    layout.setPointer(layout.frames()[5].restingCenter);
    for (const auto& frame : layout.frames())
        EXPECT_EQ(frame.scale, 1.0);

    // On the app next to the widgets: the widgets move aside but keep their length and height.
    layout.setPointer(layout.frames()[2].restingCenter);
    EXPECT_GT(layout.frames()[2].scale, 1.9);
    EXPECT_DOUBLE_EQ(layout.frames()[4].tile.axisLength, 100);
    EXPECT_DOUBLE_EQ(layout.frames()[4].tile.depthLength, 48);
    EXPECT_EQ(layout.frames()[4].scale, 1.0);
    EXPECT_EQ(layout.frames()[7].scale, 1.0) << "the trash is far past the widgets";
    layout.setPointer(layout.frames()[7].restingCenter);
    EXPECT_DOUBLE_EQ(layout.frames()[7].scale, 2.0) << "the trash grows like an app";
}

TEST(DockRowLayout, HitsSlotsWithoutDeadSpotsAndFindsDropPlacesOnTheRestingRow)
{
    DockRowLayout layout;
    layout.setPreferences(sizes(48, 96));
    layout.setSlots(appsDividerTrash(3));
    const DockRowMetrics& m = layout.metrics();
    const auto& frames = layout.frames();

    EXPECT_EQ(layout.hit(0, 10), 0u) << "the bar's padding belongs to the first tile";
    EXPECT_EQ(layout.hit(frames[0].tile.axisEnd() + m.gap / 2 - 0.01, 10), 0u);
    EXPECT_EQ(layout.hit(frames[0].tile.axisEnd() + m.gap / 2 + 0.01, 10), 1u);
    EXPECT_EQ(layout.hit(frames[3].restingCenter, 10), 3u) << "the divider is hit (its menu is the dock's)";
    EXPECT_EQ(layout.hit(layout.restingLength(), 10), 4u);
    EXPECT_EQ(layout.hit(layout.restingLength() + 1, 10), std::nullopt);
    EXPECT_EQ(layout.hit(-1, 10), std::nullopt);
    EXPECT_EQ(layout.hit(frames[1].restingCenter, -1), std::nullopt);
    EXPECT_EQ(layout.hit(frames[1].restingCenter, m.thickness() + 1), std::nullopt) << "above the resting bar";

    // Magnified, the tile under the pointer reaches higher, and so does its hit area.
    layout.setPointer(frames[1].restingCenter);
    EXPECT_EQ(layout.hit(*layout.pointer(), m.padding + 90), 1u);
    EXPECT_EQ(layout.hit(*layout.pointer(), m.padding + 97), std::nullopt);

    EXPECT_EQ(layout.insertionIndex(-5), 0u);
    EXPECT_EQ(layout.insertionIndex(frames[0].restingCenter + 1), 1u);
    EXPECT_EQ(layout.insertionIndex(1e6), frames.size());
}

} // namespace
} // namespace kestrune
