#pragma once
// The dock's presence beside the clock: a tray icon (StatusNotifierItem or XEmbed, whichever the
// desktop hosts) with the app's three commands. Where no tray is hosted there is simply no icon;
// the dock works the same.
//
// Main thread only.

#include <functional>
#include <memory>

class QMenu;
class QSystemTrayIcon;

namespace kestrune {

class MenuBarIcon {
public:
    struct Actions {
        std::function<void()> openSettings;
        std::function<void()> about;
        std::function<void()> quit;
    };

    explicit MenuBarIcon(Actions actions);
    ~MenuBarIcon();
    MenuBarIcon(const MenuBarIcon&) = delete;
    MenuBarIcon& operator=(const MenuBarIcon&) = delete;

    [[nodiscard]] bool isShown() const;
    [[nodiscard]] QMenu& menu() { return *menu_; }

private:
    Actions actions_;
    std::unique_ptr<QMenu> menu_;
    std::unique_ptr<QSystemTrayIcon> icon_;
};

} // namespace kestrune
