#pragma once
// OVERVIEW
// The desktop's windows as a pager sees them: the window manager's client list and active
// window, followed through property changes on the root window (no polling), each normal window
// with the facts that tie it to an application. Brings a window forward and closes one the way a
// pager asks the window manager to.
//
// TYPICAL USAGE
//   X11WindowList windows([&] { running.update(windows.clients()); });
//   windows.activate(window, eventTime);
//
// Main thread only; X events arrive through Qt's own connection.

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <QAbstractNativeEventFilter>

#include "KestruneDock/Desktop/DesktopApplications.h"

namespace kestrune {

class X11WindowList final : public QAbstractNativeEventFilter {
public:
    explicit X11WindowList(std::function<void()> changed);
    ~X11WindowList() override;
    X11WindowList(const X11WindowList&) = delete;
    X11WindowList& operator=(const X11WindowList&) = delete;

    // False where there is no X11 connection (another platform plugin).
    [[nodiscard]] bool isWatching() const { return watching_; }
    // Normal windows of other processes, in the window manager's order (oldest first).
    [[nodiscard]] const std::vector<DesktopWindow>& clients() const { return clients_; }
    [[nodiscard]] std::optional<uint32_t> activeWindow() const { return active_; }
    // The windows most recently active first; a window never active keeps its list place after them.
    [[nodiscard]] std::vector<uint32_t> byRecentUse() const;

    // The window's own icon (_NET_WM_ICON) as 0xAARRGGBB pixels, the size nearest above
    // `atLeast`, else its largest; none when it has none or its data does not hold together.
    struct Icon {
        int width = 0;
        int height = 0;
        std::vector<uint32_t> pixels;
    };
    [[nodiscard]] static std::optional<Icon> icon(uint32_t window, int atLeast);

    // The window's title (_NET_WM_NAME, else WM_NAME).
    [[nodiscard]] static std::string title(uint32_t window);

    // Asks the window manager, as a pager, to bring the window forward.
    void activate(uint32_t window, uint32_t timestamp);
    void close(uint32_t window, uint32_t timestamp);

    // The X time of the user's last click on the dock, for the requests it leads to.
    static void noteUserTime(uint32_t timestamp);
    [[nodiscard]] static uint32_t userTime();

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;

private:
    void readClientList();
    void readActiveWindow();
    void readStates(DesktopWindow& client);
    [[nodiscard]] std::optional<DesktopWindow> readClient(uint32_t window);

    std::function<void()> changed_;
    bool watching_ = false;
    uint32_t root_ = 0;
    std::vector<DesktopWindow> clients_;
    std::map<uint32_t, DesktopWindow> known_;
    std::optional<uint32_t> active_;
    // Window to the moment it was last seen active, counted in activations.
    std::map<uint32_t, uint64_t> lastActive_;
    uint64_t activations_ = 0;
};

} // namespace kestrune
