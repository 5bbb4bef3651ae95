// The displays-asleep pause on a real X server: its screen saver forced on and off (as DPMS does
// when it powers the displays down and up) raises and lowers the reason.

#include <cstdlib>

#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include "KestruneDock/Desktop/DisplaySleepWatch.h"
#include "KestruneKit/DevTools/KestruneActivity.h"
#include "tests/helpers/TestSupport.h"
#include "tests/helpers/XSession.h"

namespace kestrune {
namespace {

using test::XSession;

TEST(DisplaySleepWatch, TheScreenSaverComingOnPausesAndGoingOffResumes)
{
    XSession session(XSession::WindowManager::openbox);
    if (!session.available())
        GTEST_SKIP() << session.problem();
    xcb_connection_t* c = xcb_connect(session.display().c_str(), nullptr);
    ASSERT_FALSE(xcb_connection_has_error(c));
    KestruneActivity activity;
    auto pump = [&](DisplaySleepWatch& watch, bool asleep) {
        return test::eventually([&] {
            while (xcb_generic_event_t* event = xcb_poll_for_event(c)) {
                watch.handle(event);
                std::free(event);
            }
            return activity.isRaised(KestruneActivity::PauseReason::displaysSleep) == asleep;
        }, 10);
    };
    {
        DisplaySleepWatch watch(activity, c);
        ASSERT_TRUE(watch.isWatching()) << "the server has no MIT-SCREEN-SAVER";
        EXPECT_FALSE(activity.isPaused());
        xcb_force_screen_saver(c, XCB_SCREEN_SAVER_ACTIVE);
        xcb_flush(c);
        EXPECT_TRUE(pump(watch, true)) << "the saver came on and nothing paused";
        xcb_force_screen_saver(c, XCB_SCREEN_SAVER_RESET);
        xcb_flush(c);
        EXPECT_TRUE(pump(watch, false)) << "the saver went off and the pause stayed";

        // Started while the saver is on, it pauses at once; gone, it leaves no pause behind.
        xcb_force_screen_saver(c, XCB_SCREEN_SAVER_ACTIVE);
        xcb_flush(c);
        EXPECT_TRUE(pump(watch, true));
    }
    EXPECT_FALSE(activity.isPaused());
    KestruneActivity another;
    {
        DisplaySleepWatch watch(another, c);
        EXPECT_TRUE(another.isRaised(KestruneActivity::PauseReason::displaysSleep));
    }
    EXPECT_FALSE(another.isPaused());
    xcb_disconnect(c);
}

} // namespace
} // namespace kestrune
