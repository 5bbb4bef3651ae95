#pragma once
// OVERVIEW
// The window manager's desktops as a pager sees them (_NET_NUMBER_OF_DESKTOPS,
// _NET_CURRENT_DESKTOP, _NET_DESKTOP_NAMES), followed through the root window's property changes
// on a connection of its own, read only while watched; a switch is asked of the window manager
// as a pager asks it. Each desktop's windows are read when asked for (a card opening).
//
// TYPICAL USAGE
//   X11Desktops desktops;
//   desktops.onChange = [&] { redraw(desktops.current()); };
//   desktops.setWatching(true);
//   desktops.switchTo(2);
//
// Main thread only.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <QObject>

struct xcb_connection_t;
class QSocketNotifier;

namespace kestrune {

class X11Desktops final : public QObject {
public:
    // `display`: which X display to talk to; empty for $DISPLAY.
    explicit X11Desktops(std::string display = {});
    ~X11Desktops() override;

    void setWatching(bool watching);
    // No X display to talk to (another platform, or none at all).
    [[nodiscard]] bool isAvailable() const { return connection_ != nullptr; }
    [[nodiscard]] int count() const { return count_; }
    [[nodiscard]] int current() const { return current_; }
    // The window manager's names; "Desktop 3" where it gives none.
    [[nodiscard]] std::vector<std::string> names() const;
    // Each desktop's windows' titles, in stacking order.
    [[nodiscard]] std::vector<std::vector<std::string>> windows() const;
    void switchTo(int desktop);

    std::function<void()> onChange;

private:
    void read();
    void drain();

    xcb_connection_t* connection_ = nullptr;
    uint32_t root_ = 0;
    std::unique_ptr<QSocketNotifier> notifier_;
    bool watching_ = false;
    int count_ = 0;
    int current_ = 0;
    std::vector<std::string> names_;
};

} // namespace kestrune
