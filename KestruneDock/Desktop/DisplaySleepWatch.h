#pragma once
// OVERVIEW
// "Displays asleep" on X11: the server's screen saver. The X server starts its saver whenever
// DPMS takes the displays below on (by its timeout or `xset dpms force off`) and stops it when
// they wake, so the MIT-SCREEN-SAVER extension's notify events tell both a blanked screen and
// screens powered down, without polling. Raises and lowers the displays-asleep pause reason.
//
// TYPICAL USAGE
//   DisplaySleepWatch watch(KestruneActivity::shared());    // Qt's X connection
//
// Main thread only. Without X or the extension nothing is ever paused for it.

#include <QAbstractNativeEventFilter>

struct xcb_connection_t;

namespace kestrune {

class KestruneActivity;

class DisplaySleepWatch final : public QAbstractNativeEventFilter {
public:
    // Follows Qt's own X connection, its events arriving through the application's filter.
    explicit DisplaySleepWatch(KestruneActivity& activity);
    // Follows another connection; its caller hands each of its events to `handle`.
    DisplaySleepWatch(KestruneActivity& activity, xcb_connection_t* connection);
    ~DisplaySleepWatch() override;
    DisplaySleepWatch(const DisplaySleepWatch&) = delete;
    DisplaySleepWatch& operator=(const DisplaySleepWatch&) = delete;

    [[nodiscard]] bool isWatching() const { return firstEvent_ >= 0; }
    // True when the event was the saver's (an xcb_generic_event_t).
    bool handle(const void* event);

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;

private:
    void start();
    void apply(bool asleep);

    KestruneActivity& activity_;
    xcb_connection_t* connection_ = nullptr;
    bool filtering_ = false;
    // The extension's first event code; negative when it is not there.
    int firstEvent_ = -1;
    bool asleep_ = false;
};

} // namespace kestrune
