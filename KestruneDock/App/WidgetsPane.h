#pragma once
// The settings window's "Widgets" pane: the widgets in the dock in their order, to move, remove,
// give another face (seen at once in a live preview of the tile) or set their options (a Git widget's folder, the ports Dev Servers leaves
// out, a clock's seconds and zones, a countdown's date); the gallery by category with an add button per kind; the presets, each replacing the row
// with its widgets; and what happens when the row does not fit. Every change goes through the
// widget store at once, and the pane follows changes made elsewhere (`kestrune widgets …`).
//
//   auto* pane = new WidgetsPane(widgetStore, preferences, &monitors);
//
// Main thread only.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <QImage>
#include <QWidget>

#include "KestruneDock/Widgets/WidgetStore.h"

class QCheckBox;
class QComboBox;
class QDateEdit;
class QPainter;
class QFormLayout;
class QLabel;
class QLineEdit;
class QListWidget;
class QPlainTextEdit;
class QPushButton;
class QStackedWidget;

namespace kestrune {

class Preferences;
class WidgetMonitors;
class WidgetTile;

// One widget's tile, drawn on a piece of the dock's bar as the dock draws it, and live: while the
// preview shows, the tile ticks and holds its monitor as it would in the dock.
class WidgetPreview final : public QWidget {
public:
    static constexpr double iconSize = 48;
    static constexpr double margin = 6;

    explicit WidgetPreview(WidgetMonitors& monitors);
    ~WidgetPreview() override;

    // None shows nothing.
    void setInstance(const WidgetInstance* instance);
    [[nodiscard]] const WidgetTile* tile() const { return tile_.get(); }
    [[nodiscard]] QImage render(double devicePixelRatio) const;

protected:
    void paintEvent(QPaintEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void paintInto(QPainter& painter, double devicePixelRatio) const;

    WidgetMonitors& monitors_;
    std::unique_ptr<WidgetTile> tile_;
};

class WidgetsPane final : public QWidget {
public:
    // Without monitors there is no preview.
    WidgetsPane(WidgetStore& store, Preferences& preferences, WidgetMonitors* monitors = nullptr);
    ~WidgetsPane() override;

    // Asks for a Git widget's folder; a dialog unless a test answers.
    std::function<std::optional<std::string>(const std::string& current)> chooseFolder;

    // The row's widget selected in the list, if any.
    [[nodiscard]] std::optional<Uuid> selected() const;
    void select(const Uuid& id);
    // The selected widget's tile as the dock draws it, live; none without monitors.
    [[nodiscard]] WidgetPreview* preview() const { return preview_; }

private:
    void showRow();
    void showSelection();
    void showGallery();
    void readOverflow();

    WidgetStore& store_;
    Preferences& preferences_;
    uint64_t storeWatch_ = 0;
    uint64_t preferencesWatch_ = 0;
    QListWidget* row_ = nullptr;
    QPushButton* up_ = nullptr;
    QPushButton* down_ = nullptr;
    QPushButton* remove_ = nullptr;
    QComboBox* face_ = nullptr;
    WidgetPreview* preview_ = nullptr;
    QFormLayout* form_ = nullptr;
    QPushButton* folder_ = nullptr;
    QLabel* folderShown_ = nullptr;
    QLineEdit* ignoredPorts_ = nullptr;
    QPlainTextEdit* addresses_ = nullptr;
    QPushButton* addressesSave_ = nullptr;
    QCheckBox* clockSeconds_ = nullptr;
    QCheckBox* clockHours24_ = nullptr;
    QLineEdit* clockZones_ = nullptr;
    QLineEdit* countdownTitle_ = nullptr;
    QDateEdit* countdownDate_ = nullptr;
    QStackedWidget* options_ = nullptr;
    QComboBox* category_ = nullptr;
    QListWidget* gallery_ = nullptr;
    QComboBox* overflow_ = nullptr;
};

} // namespace kestrune
