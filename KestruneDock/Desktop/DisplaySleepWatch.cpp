#include "KestruneDock/Desktop/DisplaySleepWatch.h"

#include <cstdlib>
#include <memory>

#include <QCoreApplication>

#include <xcb/screensaver.h>
#include <xcb/xcb.h>

#include "KestruneDock/Desktop/X11Connection.h"
#include "KestruneKit/DevTools/KestruneActivity.h"

namespace kestrune {

namespace {

template<typename T>
using Reply = std::unique_ptr<T, decltype(&std::free)>;

} // namespace

DisplaySleepWatch::DisplaySleepWatch(KestruneActivity& activity) : activity_(activity), connection_(x11::connection())
{
    start();
    if (isWatching() && QCoreApplication::instance()) {
        QCoreApplication::instance()->installNativeEventFilter(this);
        filtering_ = true;
    }
}

DisplaySleepWatch::DisplaySleepWatch(KestruneActivity& activity, xcb_connection_t* connection)
    : activity_(activity), connection_(connection)
{
    start();
}

DisplaySleepWatch::~DisplaySleepWatch()
{
    if (filtering_ && QCoreApplication::instance())
        QCoreApplication::instance()->removeNativeEventFilter(this);
    // A watch that goes leaves no pause behind.
    apply(false);
}

void DisplaySleepWatch::start()
{
    if (!connection_)
        return;
    const xcb_query_extension_reply_t* extension = xcb_get_extension_data(connection_, &xcb_screensaver_id);
    if (!extension || !extension->present)
        return;
    firstEvent_ = extension->first_event;
    xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
    xcb_screensaver_select_input(connection_, root, XCB_SCREENSAVER_EVENT_NOTIFY_MASK);
    // The saver may already be on: a dock started on a blanked screen waits like any other.
    Reply<xcb_screensaver_query_info_reply_t> info(
        xcb_screensaver_query_info_reply(connection_, xcb_screensaver_query_info(connection_, root), nullptr), &std::free);
    xcb_flush(connection_);
    if (info)
        apply(info->state == XCB_SCREENSAVER_STATE_ON || info->state == XCB_SCREENSAVER_STATE_CYCLE);
}

bool DisplaySleepWatch::handle(const void* message)
{
    const auto* event = static_cast<const xcb_generic_event_t*>(message);
    if (firstEvent_ < 0 || (event->response_type & 0x7f) != firstEvent_ + XCB_SCREENSAVER_NOTIFY)
        return false;
    const auto* notify = static_cast<const xcb_screensaver_notify_event_t*>(message);
    apply(notify->state == XCB_SCREENSAVER_STATE_ON || notify->state == XCB_SCREENSAVER_STATE_CYCLE);
    return true;
}

bool DisplaySleepWatch::nativeEventFilter(const QByteArray& eventType, void* message, qintptr*)
{
    if (eventType == "xcb_generic_event_t")
        handle(message);
    return false;
}

void DisplaySleepWatch::apply(bool asleep)
{
    if (asleep == asleep_)
        return;
    asleep_ = asleep;
    if (asleep)
        activity_.raise(KestruneActivity::PauseReason::displaysSleep);
    else
        activity_.lower(KestruneActivity::PauseReason::displaysSleep);
}

} // namespace kestrune
