#include <gtest/gtest.h>

#include "KestruneDock/Dock/DockBadge.h"

namespace kestrune {
namespace {

TEST(DockBadge, NamesTheAppFromItsUriAndWritesTheCountShort)
{
    EXPECT_EQ(desktopIdFromAppUri("application://org.gnome.Nautilus.desktop"), "org.gnome.Nautilus");
    EXPECT_EQ(desktopIdFromAppUri("application://firefox"), "firefox");
    EXPECT_EQ(desktopIdFromAppUri("file:///usr/share/applications/x.desktop"), std::nullopt);
    EXPECT_EQ(desktopIdFromAppUri("application://../../etc/x.desktop"), std::nullopt) << "no paths through the id";
    EXPECT_EQ(desktopIdFromAppUri("application://"), std::nullopt);
    EXPECT_EQ(badgeText(7), "7");
    EXPECT_EQ(badgeText(9999), "9999");
    EXPECT_EQ(badgeText(10000), "9999+");
    EXPECT_EQ(badgeText(0), std::nullopt);
    EXPECT_EQ(badgeText(-3), std::nullopt);
}

} // namespace
} // namespace kestrune
