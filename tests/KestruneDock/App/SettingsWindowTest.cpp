// The settings and welcome windows offscreen: what each control writes, that the controls follow
// changes made elsewhere, and pictures of both at 1× and 2×.

#include <filesystem>

#include <QAbstractButton>
#include <QCheckBox>
#include <QComboBox>
#include <QImage>
#include <QMessageBox>
#include <QPainter>
#include <QPushButton>
#include <QSlider>
#include <gtest/gtest.h>

#include "KestruneDock/App/LoginItem.h"
#include "KestruneDock/App/SettingsWindow.h"
#include "KestruneDock/App/WelcomeWindow.h"
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
