#pragma once
// The settings window: one per process, brought forward when asked for again. Its panes are
// "General" (login item, menu-bar icon, reset), "Dock" (size, magnification with a preview,
// position and behaviour), "Widgets" and "About". Every control writes the app's preferences at
// once, where the dock and `kestrune` read them, and follows a change made by either of them.
//
// TYPICAL USAGE
//   SettingsWindow settings(preferences, { loginEntryPath, executable, notify });
//   settings.showPage(SettingsWindow::Page::dock);
//
// Main thread only.

#include <functional>
#include <string>

#include <QWidget>

class QCheckBox;
class QComboBox;
class QFileSystemWatcher;
class QLabel;
class QListWidget;
class QMessageBox;
class QSlider;
class QStackedWidget;

namespace kestrune {

class Preferences;
class WidgetMonitors;
class WidgetStore;
class WidgetsPane;

class SettingsWindow final : public QWidget {
public:
    enum class Page { general, dock, widgets, about };
    static constexpr const char* showMenuBarIconKey = "showMenuBarIcon";

    struct Setup {
        // Our XDG autostart entry, and what it starts.
        std::string loginEntryPath;
        std::string executable;
        // In-process notifications ("kestrune.loginItemChanged").
        std::function<void(const std::string& name)> notify;
        // The dock's widgets, for the Widgets pane; none leaves the pane empty.
        WidgetStore* widgets = nullptr;
        // Their monitors, for the pane's live preview of a tile.
        WidgetMonitors* widgetMonitors = nullptr;
    };

    SettingsWindow(Preferences& preferences, Setup setup);
    ~SettingsWindow() override;

    // Shows the window on that page and brings it forward.
    void showPage(Page page);
    [[nodiscard]] Page page() const;
    // Reads every control's value again: the preferences or the login item changed elsewhere.
    void refresh();
    // The reset's question, while it is open.
    [[nodiscard]] QMessageBox* openQuestion() const { return question_; }
    // The Widgets pane, when the window was given the widgets.
    [[nodiscard]] WidgetsPane* widgetsPane() const { return widgetsPane_; }

private:
    QWidget* makeGeneral();
    QWidget* makeDock();
    QWidget* makeWidgets();
    QWidget* makeAbout();
    void setLoginItem(bool registered);
    void askToReset();

    Preferences& preferences_;
    Setup setup_;
    WidgetsPane* widgetsPane_ = nullptr;
    uint64_t preferencesWatch_ = 0;
    QListWidget* pages_ = nullptr;
    QStackedWidget* stack_ = nullptr;
    QCheckBox* login_ = nullptr;
    QCheckBox* menuBarIcon_ = nullptr;
    QSlider* size_ = nullptr;
    QLabel* sizeValue_ = nullptr;
    QCheckBox* magnification_ = nullptr;
    QSlider* magnifiedSize_ = nullptr;
    QLabel* magnifiedValue_ = nullptr;
    QWidget* preview_ = nullptr;
    QComboBox* edge_ = nullptr;
    QComboBox* screen_ = nullptr;
    QCheckBox* autohide_ = nullptr;
    QCheckBox* animateLaunch_ = nullptr;
    QCheckBox* indicators_ = nullptr;
    QCheckBox* recents_ = nullptr;
    QCheckBox* minimizeIntoApp_ = nullptr;
    QFileSystemWatcher* loginWatch_ = nullptr;
    QMessageBox* question_ = nullptr;
};

} // namespace kestrune
