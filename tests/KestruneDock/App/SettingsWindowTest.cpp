// The settings and welcome windows offscreen: what each control writes, that the controls follow
// changes made elsewhere, and pictures of both at 1× and 2×.

#include <filesystem>

#include <QAbstractButton>
#include <QCheckBox>
#include <QComboBox>
#include <QImage>
#include <QLineEdit>
#include <QListWidget>
#include <QTabWidget>
#include <QMessageBox>
#include <QPainter>
#include <QPushButton>
#include <QSlider>
#include <gtest/gtest.h>

#include "KestruneDock/App/LoginItem.h"
#include "KestruneDock/App/QtRuntime.h"
#include "KestruneDock/App/SettingsWindow.h"
#include "KestruneDock/App/WelcomeWindow.h"
#include "KestruneDock/App/WidgetsPane.h"
#include "KestruneDock/WidgetViews/WidgetMonitors.h"
#include "KestruneDock/WidgetViews/WidgetTile.h"
#include "KestruneDock/Widgets/WidgetPaging.h"
#include "KestruneKit/Preferences/Preferences.h"
#include "tests/helpers/QtSpin.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

void saveAt(QWidget& window, const std::string& name)
{
    std::filesystem::create_directories(KESTRUNE_SCREENS);
    for (int scale : { 1, 2 }) {
        QImage image(window.size() * scale, QImage::Format_ARGB32_Premultiplied);
        image.setDevicePixelRatio(scale);
        image.fill(Qt::white);
        window.render(&image);
        image.save(QString::fromStdString(std::string(KESTRUNE_SCREENS) + "/" + name + "-" + std::to_string(scale) + "x.png"));
    }
}

template <typename T>
T* named(QWidget& window, const QString& text)
{
    for (T* widget : window.findChildren<T*>()) {
        if constexpr (std::is_base_of_v<QAbstractButton, T>) {
            if (widget->text() == text)
                return widget;
        } else if (widget->accessibleName() == text) {
            return widget;
        }
    }
    return nullptr;
}

TEST(SettingsWindow, TheWidgetsPaneArrangesTheRowAddsFromTheGalleryAppliesPresetsAndSetsOptions)
{
    test::TemporaryFolder folder;
    JSONFilePreferences preferences(folder.file("config/app.quillane.dock.json"));
    WidgetStore widgets(preferences);
    QtRuntime runtime;
    WidgetMonitors monitors(runtime);
    SettingsWindow window(preferences, { folder.file("autostart.desktop"), "/bin/true", {}, &widgets, &monitors });
    window.showPage(SettingsWindow::Page::widgets);
    WidgetsPane* pane = window.widgetsPane();
    ASSERT_TRUE(pane);
    auto kinds = [&] {
        std::vector<WidgetKind> row;
        for (const WidgetInstance& instance : widgets.instances())
            row.push_back(instance.kind);
        return row;
    };
    auto* row = named<QListWidget>(window, QStringLiteral("Widgets in the Dock"));
    ASSERT_EQ(row->count(), 3) << "a first start's three widgets";

    // "Use the Developer widgets", then the row rearranged by its buttons.
    named<QPushButton>(window, QStringLiteral("Use the Developer widgets"))->click();
    EXPECT_EQ(kinds(), allWidgetPresets()[1].kinds);
    EXPECT_EQ(row->count(), 9) << "the list did not follow the store";
    Uuid git = widgets.instances()[0].id;
    pane->select(git);
    EXPECT_FALSE(named<QPushButton>(window, QStringLiteral("Move Up"))->isEnabled());
    named<QPushButton>(window, QStringLiteral("Move Down"))->click();
    EXPECT_EQ(widgets.instances()[1].id, git);
    EXPECT_EQ(pane->selected(), git) << "the moved widget lost the selection";

    // The Git widget's folder, chosen as the dialog would.
    pane->chooseFolder = [&](const std::string&) { return std::optional<std::string>(folder.path()); };
    named<QPushButton>(window, QStringLiteral("Choose…"))->click();
    EXPECT_EQ(widgets.instance(git)->options.at("folder"), folder.path());
    // The preview is the selected widget's own tile, live: the folder shows at once.
    ASSERT_TRUE(pane->preview() && pane->preview()->tile());
    EXPECT_EQ(pane->preview()->tile()->instance().id, git);
    std::string folderName = std::filesystem::path(folder.path()).filename().string();
    EXPECT_EQ(pane->preview()->tile()->accessibleText().rfind(folderName, 0), 0U) << pane->preview()->tile()->accessibleText();
    for (int scale : { 1, 2 })
        pane->preview()->render(scale).save(QString::fromStdString(std::string(KESTRUNE_SCREENS) + "/settings-widgets-preview-"
                                                                    + std::to_string(scale) + "x.png"));
    // Dev Servers' ignored ports.
    Uuid servers = widgets.instances()[2].id;
    ASSERT_EQ(widgets.instance(servers)->kind, WidgetKind::devServers);
    pane->select(servers);
    auto* ports = named<QLineEdit>(window, QStringLiteral("Ports to ignore"));
    ports->setText(QStringLiteral("5432"));
    Q_EMIT ports->editingFinished();
    EXPECT_EQ(widgets.instance(servers)->options.at("ignoredPorts"), "5432");
    named<QPushButton>(window, QStringLiteral("Remove from the Dock"))->click();
    EXPECT_EQ(widgets.instance(servers), nullptr);

    // The gallery by category: Developer offers its eight, retired kinds never; Add appends.
    auto* category = named<QComboBox>(window, QStringLiteral("Category"));
    category->setCurrentIndex(category->findText(QStringLiteral("Developer")));
    auto* gallery = named<QListWidget>(window, QStringLiteral("Widgets to add"));
    EXPECT_EQ(gallery->count(), 8);
    category->setCurrentIndex(category->findText(QStringLiteral("All widgets")));
    EXPECT_EQ(gallery->count(), 47) << "the three retired kinds are offered";
    gallery->setCurrentRow(1);
    named<QPushButton>(window, QStringLiteral("Add to the Dock"))->click();
    EXPECT_EQ(kinds().back(), WidgetKind::clock);

    // A face from the picker; the overflow policy both ways.
    pane->select(widgets.instances().back().id);
    auto* face = named<QComboBox>(window, QStringLiteral("Face"));
    face->setCurrentIndex(face->findText(QStringLiteral("Analog")));
    Q_EMIT face->activated(face->currentIndex());
    EXPECT_EQ(widgets.instances().back().style, "analog");
    EXPECT_EQ(pane->preview()->tile()->instance().style, "analog") << "the preview kept the face before";
    // The clock's seconds, written at once and shown by the preview.
    named<QCheckBox>(window, QStringLiteral("Show seconds"))->click();
    EXPECT_EQ(widgets.instances().back().options.at("seconds"), "true");
    EXPECT_EQ(pane->preview()->tile()->instance().options.at("seconds"), "true");
    auto* overflow = named<QComboBox>(window, QStringLiteral("When they don’t fit"));
    overflow->setCurrentIndex(1);
    Q_EMIT overflow->activated(1);
    EXPECT_EQ(preferences.stringValue("widgetOverflow"), "stack");
    preferences.set("widgetOverflow", std::string("pages"));
    EXPECT_EQ(overflow->currentIndex(), 0);
    window.resize(760, 560);
    saveAt(window, "settings-widgets");
}

TEST(SettingsWindow, EachControlWritesThePreferencesAndFollowsChangesMadeElsewhere)
{
    test::TemporaryFolder folder;
    JSONFilePreferences preferences(folder.file("config/app.quillane.dock.json"));
    preferences.set("pinnedApps", std::vector<std::string> { "/usr/share/applications/a.desktop" });
    std::vector<std::string> told;
    SettingsWindow window(preferences, { folder.file("config/autostart/app.quillane.dock.desktop"), "/opt/Kestrune Dock/kestrune-dock",
                                         [&](const std::string& name) { told.push_back(name); } });
    window.showPage(SettingsWindow::Page::dock);
    EXPECT_EQ(window.page(), SettingsWindow::Page::dock);

    auto* size = named<QSlider>(window, QStringLiteral("Size"));
    ASSERT_TRUE(size);
    EXPECT_EQ(size->value(), 52) << "the dock's own default";
    size->setValue(70);
    EXPECT_EQ(preferences.doubleValue("iconSize"), 70);
    named<QCheckBox>(window, QStringLiteral("Automatically hide and show the Dock"))->click();
    EXPECT_EQ(preferences.boolValue("autohide"), true);
    auto* edge = named<QComboBox>(window, QStringLiteral("Position on screen"));
    edge->setCurrentIndex(edge->findText(QStringLiteral("Left")));
    EXPECT_EQ(preferences.stringValue("edge"), "left");
    named<QCheckBox>(window, QStringLiteral("Magnification"))->click();
    EXPECT_EQ(preferences.boolValue("magnification"), false);
    EXPECT_FALSE(named<QSlider>(window, QStringLiteral("Magnified size"))->isEnabled());
    saveAt(window, "settings-dock");

    // Written by `kestrune` or another window: the controls follow.
    preferences.set("iconSize", 40.0);
    preferences.set("edge", std::string("right"));
    preferences.set("dockScreen", std::string("pointer"));
    EXPECT_EQ(size->value(), 40);
    EXPECT_EQ(edge->currentText(), QStringLiteral("Right"));
    EXPECT_EQ(named<QComboBox>(window, QStringLiteral("Show on"))->currentText(), QStringLiteral("Screen with the pointer"));

    // The login item: an autostart entry that starts us with --at-login, and a notice.
    window.showPage(SettingsWindow::Page::general);
    named<QCheckBox>(window, QStringLiteral("Open at login"))->click();
    std::string entry = folder.file("config/autostart/app.quillane.dock.desktop");
    EXPECT_TRUE(LoginItem::isRegistered(entry));
    EXPECT_NE(test::readFile(entry).find("Exec=\"/opt/Kestrune Dock/kestrune-dock\" --at-login\n"), std::string::npos) << test::readFile(entry);
    EXPECT_EQ(told, std::vector<std::string> { "kestrune.loginItemChanged" });
    // Switched off by the desktop's own startup settings, the box follows.
    std::filesystem::remove(entry);
    EXPECT_TRUE(test::spinUntil([&] { return !named<QCheckBox>(window, QStringLiteral("Open at login"))->isChecked(); }));
    saveAt(window, "settings-general");

    // "Reset the Dock…" asks first; Cancel keeps everything, Reset puts the dock back to its defaults.
    named<QPushButton>(window, QStringLiteral("Reset the Dock…"))->click();
    ASSERT_TRUE(window.openQuestion());
    EXPECT_EQ(window.openQuestion()->defaultButton(), window.openQuestion()->button(QMessageBox::Cancel));
    window.openQuestion()->button(QMessageBox::Cancel)->click();
    EXPECT_TRUE(test::spinUntil([&] { return !window.openQuestion(); }));
    EXPECT_EQ(preferences.doubleValue("iconSize"), 40);
    named<QPushButton>(window, QStringLiteral("Reset the Dock…"))->click();
    ASSERT_TRUE(window.openQuestion());
    for (QAbstractButton* button : window.openQuestion()->buttons())
        if (button->text() == QStringLiteral("Reset"))
            button->click();
    EXPECT_TRUE(test::spinUntil([&] { return !window.openQuestion(); }));
    EXPECT_EQ(preferences.value("iconSize"), std::nullopt);
    EXPECT_EQ(preferences.value("pinnedApps"), std::nullopt);
    EXPECT_EQ(size->value(), 52);
}

TEST(WelcomeWindow, GetStartedOrClosingFinishesItOnce)
{
    int started = 0;
    WelcomeWindow welcome([&] { ++started; });
    welcome.show();
    saveAt(welcome, "welcome");
    auto* start = named<QPushButton>(welcome, QStringLiteral("Get Started"));
    ASSERT_TRUE(start);
    EXPECT_TRUE(start->hasFocus() || start->isDefault());
    start->click();
    EXPECT_EQ(started, 1);
    welcome.show();
    welcome.close();
    EXPECT_EQ(started, 1) << "finished once";
}

} // namespace
} // namespace kestrune
