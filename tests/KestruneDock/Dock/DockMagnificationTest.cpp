#include <cmath>

#include <gtest/gtest.h>

#include "KestruneDock/Dock/DockMagnification.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

TEST(DockMagnification, FollowsTheBellAndSnapsFarTilesToOne)
{
    DockPreferences preferences;
    preferences.iconSize = 48;
    preferences.magnifiedSize = 96;
    DockMagnification magnification;
    magnification.setPreferences(preferences);
    DockSlotGeometry geometry;
    for (size_t slot = 0; slot < 20; ++slot)
        geometry.setCenter(slot, 24.0 + 48.0 * static_cast<double>(slot));

    EXPECT_EQ(magnification.scale(48, 0, geometry), 1.0) << "no pointer, no growth";
    magnification.setPointer(24.0);
    EXPECT_DOUBLE_EQ(magnification.scale(48, 0, geometry), 2.0);
    DockSlotGeometry offset;
    offset.setCenter(0, 24.0 + 1.3 * 48);
    EXPECT_NEAR(magnification.scale(48, 0, offset), 1 + std::exp(-0.5), 1e-12);
    EXPECT_NEAR(magnification.scale(48, 0, offset), 1.607, 1e-3);

    // Growth falls below a twentieth of a point between 4 and 5 slots away: exactly 1 from there.
    std::vector<double> scales(20);
    magnification.scales(48, geometry, scales);
    for (size_t slot = 0; slot < scales.size(); ++slot) {
        EXPECT_EQ(scales[slot], magnification.scale(48, slot, geometry));
        double growth = 48 * (scales[slot] - 1);
        EXPECT_TRUE(scales[slot] == 1.0 || growth >= 0.05) << slot;
    }
    EXPECT_GT(scales[4], 1.0);
    EXPECT_EQ(scales[5], 1.0);
    EXPECT_EQ(magnification.scale(48, 25, geometry), 1.0) << "a slot with no centre yet";

    // The shortcut past the bell's reach never changes a scale: the rule written out in full.
    auto rule = [](double d, double w) {
        double scale = 1 + (2.0 - 1) * std::exp(-d * d / (2 * (1.3 * w) * (1.3 * w)));
        return w * (scale - 1) < 0.05 ? 1.0 : scale;
    };
    for (double pointer = -300; pointer < 1300; pointer += 0.37) {
        magnification.setPointer(pointer);
        magnification.scales(48, geometry, scales);
        for (size_t slot = 0; slot < scales.size(); ++slot)
            ASSERT_EQ(scales[slot], rule(pointer - *geometry.center(slot), 48)) << pointer << " " << slot;
    }
    magnification.setPointer(24.0);
    geometry.forget(0);
    EXPECT_EQ(magnification.scale(48, 0, geometry), 1.0);
}

TEST(DockMagnification, OffSwitchesStillnessAndTheExcludedStretch)
{
    DockPreferences preferences;
    preferences.iconSize = 48;
    preferences.magnifiedSize = 40;
    DockMagnification magnification;
    magnification.setPreferences(preferences);
    DockSlotGeometry geometry;
    geometry.setCenter(0, 100);
    magnification.setPointer(100);
    EXPECT_EQ(magnification.peak(), 1.0);
    EXPECT_EQ(magnification.scale(48, 0, geometry), 1.0) << "a smaller magnified size never shrinks";

    preferences.magnifiedSize = 96;
    preferences.iconSize = 0.5;
    magnification.setPreferences(preferences);
    EXPECT_EQ(magnification.peak(), 96.0) << "a size of 1 or less is no divisor";

    preferences.iconSize = 48;
    preferences.magnification = false;
    magnification.setPreferences(preferences);
    EXPECT_EQ(magnification.scale(48, 0, geometry), 1.0);
    preferences.magnification = true;
    magnification.setPreferences(preferences);
    EXPECT_EQ(magnification.scale(48, 0, geometry), 2.0);

    magnification.setHeldStill(true);
    EXPECT_EQ(magnification.scale(48, 0, geometry), 1.0);
    magnification.setHeldStill(false);

    magnification.setExcluded(DockExcludedInterval { 90, 100 });
    EXPECT_EQ(magnification.scale(48, 0, geometry), 1.0) << "both ends are inside";
    magnification.setExcluded(DockExcludedInterval { 90, 100, false });
    EXPECT_EQ(magnification.scale(48, 0, geometry), 2.0) << "a stretch switched off excludes nothing";
    magnification.setExcluded(DockExcludedInterval { 100.5, 200 });
    EXPECT_EQ(magnification.scale(48, 0, geometry), 2.0);
}

TEST(DockPreferences, ReadsTheDockKeysWithFallbacks)
{
    test::TemporaryFolder folder;
    JSONFilePreferences preferences(folder.file("d.json"));
    auto defaults = DockPreferences::read(preferences);
    EXPECT_EQ(defaults.edge, DockEdge::bottom);
    EXPECT_TRUE(defaults.showRecents);

    preferences.set("iconSize", int64_t(40));
    preferences.set("magnifiedSize", -3.0);
    preferences.set("edge", std::string("top"));
    preferences.set("autohide", true);
    preferences.set("showRecents", std::string("no"));
    auto read = DockPreferences::read(preferences);
    EXPECT_EQ(read.iconSize, 40.0);
    EXPECT_EQ(read.magnifiedSize, defaults.magnifiedSize);
    EXPECT_EQ(read.edge, DockEdge::bottom) << "the dock never goes to the top";
    EXPECT_TRUE(read.autohide);
    EXPECT_TRUE(read.showRecents);
    preferences.set("edge", std::string("left"));
    EXPECT_EQ(DockPreferences::read(preferences).edge, DockEdge::left);
    EXPECT_TRUE(DockPreferences::isDockKey("minimizeIntoApp"));
    EXPECT_FALSE(DockPreferences::isDockKey("widgets"));
}

} // namespace
} // namespace kestrune
