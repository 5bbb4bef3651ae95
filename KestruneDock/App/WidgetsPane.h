#pragma once
// The settings window's "Widgets" pane: the widgets in the dock in their order, to move, remove,
// give another face or set their options (a Git widget's folder, the ports Dev Servers leaves
// out); the gallery by category with an add button per kind; the presets, each replacing the row
// with its widgets; and what happens when the row does not fit. Every change goes through the
// widget store at once, and the pane follows changes made elsewhere (`kestrune widgets …`).
//
//   auto* pane = new WidgetsPane(widgetStore, preferences);
//
// Main thread only.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include <QWidget>

#include "KestruneDock/Widgets/WidgetStore.h"

class QComboBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QListWidget;
class QPlainTextEdit;
class QPushButton;
class QStackedWidget;

namespace kestrune {

class Preferences;

class WidgetsPane final : public QWidget {
public:
    WidgetsPane(WidgetStore& store, Preferences& preferences);
    ~WidgetsPane() override;

    // Asks for a Git widget's folder; a dialog unless a test answers.
    std::function<std::optional<std::string>(const std::string& current)> chooseFolder;

    // The row's widget selected in the list, if any.
    [[nodiscard]] std::optional<Uuid> selected() const;
    void select(const Uuid& id);

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
    QFormLayout* form_ = nullptr;
    QPushButton* folder_ = nullptr;
    QLabel* folderShown_ = nullptr;
    QLineEdit* ignoredPorts_ = nullptr;
    QPlainTextEdit* addresses_ = nullptr;
    QPushButton* addressesSave_ = nullptr;
    QStackedWidget* options_ = nullptr;
    QComboBox* category_ = nullptr;
    QListWidget* gallery_ = nullptr;
    QComboBox* overflow_ = nullptr;
};

} // namespace kestrune
