#include "KestruneDock/App/SettingsWindow.h"

#include <algorithm>
#include <cmath>

#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSlider>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "KestruneDock/App/LoginItem.h"
#include "KestruneDock/App/WidgetsPane.h"
#include "KestruneDock/Dock/DockPreferences.h"
#include "KestruneDock/Dock/DockRowLayout.h"
#include "KestruneDock/Dock/DockStore.h"
#include "KestruneDock/Panel/FailureAlert.h"
#include "KestruneKit/Preferences/Preferences.h"

namespace kestrune {

namespace {

QString text(std::string_view view) { return QString::fromUtf8(view.data(), static_cast<qsizetype>(view.size())); }

// A row of tiles magnified under a pointer at its middle, as the dock would draw it with these
// settings, scaled down when it would not fit.
class MagnificationPreview final : public QWidget {
public:
    explicit MagnificationPreview(Preferences& preferences) : preferences_(preferences)
    {
        setMinimumHeight(150);
        setAccessibleName(QStringLiteral("Magnification preview"));
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        DockPreferences values = DockPreferences::read(preferences_);
        values.edge = DockEdge::bottom;
        DockRowLayout layout;
        layout.setPreferences(values);
        layout.setSlots(std::vector<DockRowSlot>(7, DockRowSlot { DockSlotKind::app }));
        layout.setPointer(layout.restingLength() / 2);
        DockRowRect bar = layout.bar();
        double depth = std::max(layout.metrics().thickness(), layout.raisedDepth());
        double scale = std::min({ 1.0, (width() - 16) / std::max(1.0, bar.axisLength), (height() - 8) / std::max(1.0, depth) });
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.translate(width() / 2.0 - (bar.axis + bar.axisLength / 2) * scale, height() - 4);
        painter.scale(scale, scale);
        auto rect = [](const DockRowRect& row) { return QRectF(row.axis, -row.depthEnd(), row.axisLength, row.depthLength); };
        QPainterPath barPath;
        barPath.addRoundedRect(rect(bar), 12, 12);
        painter.fillPath(barPath, QColor(28, 30, 34, 220));
        for (const DockSlotFrame& frame : layout.frames()) {
            QRectF tile = rect(frame.tile);
            QLinearGradient fill(tile.topLeft(), tile.bottomLeft());
            fill.setColorAt(0, QColor(0x5b, 0x9c, 0xf0));
            fill.setColorAt(1, QColor(0x2f, 0x6b, 0xc4));
            QPainterPath path;
            path.addRoundedRect(tile, tile.width() * 0.22, tile.width() * 0.22);
            painter.fillPath(path, fill);
        }
    }

private:
    Preferences& preferences_;
};

QLabel* heading(const QString& title)
{
    auto* label = new QLabel(title);
    QFont font = label->font();
    font.setBold(true);
    label->setFont(font);
    return label;
}

// A pane with its title at the top of its column, where what goes in it follows.
QWidget* titledPane(const QString& title)
{
    auto* pane = new QWidget;
    (new QVBoxLayout(pane))->addWidget(heading(title));
    return pane;
}

QVBoxLayout* column(QWidget* pane) { return static_cast<QVBoxLayout*>(pane->layout()); }

} // namespace

SettingsWindow::SettingsWindow(Preferences& preferences, Setup setup) : preferences_(preferences), setup_(std::move(setup))
{
    setWindowTitle(QStringLiteral("Kestrune Dock Settings"));
    setAttribute(Qt::WA_QuitOnClose, false);
    resize(680, 500);
    auto* layout = new QHBoxLayout(this);
    pages_ = new QListWidget;
    pages_->setAccessibleName(QStringLiteral("Settings pages"));
    for (const char* title : { "General", "Dock", "Widgets", "About" })
        pages_->addItem(QString::fromUtf8(title));
    pages_->setFixedWidth(150);
    stack_ = new QStackedWidget;
    stack_->addWidget(makeGeneral());
    stack_->addWidget(makeDock());
    stack_->addWidget(makeWidgets());
    stack_->addWidget(makeAbout());
    layout->addWidget(pages_);
    layout->addWidget(stack_, 1);
    QObject::connect(pages_, &QListWidget::currentRowChanged, stack_, &QStackedWidget::setCurrentIndex);
    pages_->setCurrentRow(0);

    preferencesWatch_ = preferences_.addObserver([this](const std::string& key) {
        if (DockPreferences::isDockKey(key) || key == showMenuBarIconKey)
            refresh();
    });
    // The login item may be switched by the desktop's own startup settings.
    loginWatch_ = new QFileSystemWatcher(this);
    QString autostart = QFileInfo(QString::fromStdString(setup_.loginEntryPath)).absolutePath();
    if (QFileInfo::exists(autostart))
        loginWatch_->addPath(autostart);
    QObject::connect(loginWatch_, &QFileSystemWatcher::directoryChanged, this, [this] { refresh(); });
    refresh();
}

SettingsWindow::~SettingsWindow() { preferences_.removeObserver(preferencesWatch_); }

void SettingsWindow::showPage(Page page)
{
    pages_->setCurrentRow(static_cast<int>(page));
    show();
    raise();
    activateWindow();
}

SettingsWindow::Page SettingsWindow::page() const { return static_cast<Page>(stack_->currentIndex()); }

QWidget* SettingsWindow::makeGeneral()
{
    QWidget* pane = titledPane(QStringLiteral("General"));
    QVBoxLayout* layout = column(pane);
    login_ = new QCheckBox(QStringLiteral("Open at login"));
    QObject::connect(login_, &QCheckBox::toggled, this, [this](bool on) { setLoginItem(on); });
    menuBarIcon_ = new QCheckBox(QStringLiteral("Show icon in the menu bar"));
    QObject::connect(menuBarIcon_, &QCheckBox::toggled, this, [this](bool on) { preferences_.set(showMenuBarIconKey, on); });
    auto* reset = new QPushButton(QStringLiteral("Reset the Dock…"));
    QObject::connect(reset, &QPushButton::clicked, this, [this] { askToReset(); });
    layout->addWidget(login_);
    layout->addWidget(menuBarIcon_);
    layout->addSpacing(12);
    auto* row = new QHBoxLayout;
    row->addWidget(reset);
    row->addStretch();
    layout->addLayout(row);
    layout->addStretch();
    return pane;
}

QWidget* SettingsWindow::makeDock()
{
    QWidget* pane = titledPane(QStringLiteral("Dock"));
    QVBoxLayout* layout = column(pane);
    preview_ = new MagnificationPreview(preferences_);
    layout->addWidget(preview_);
    auto* form = new QFormLayout;
    auto slider = [this](int low, int high, QLabel*& value, std::string_view key) {
        auto* control = new QSlider(Qt::Horizontal);
        control->setRange(low, high);
        value = new QLabel;
        value->setMinimumWidth(44);
        QLabel* shown = value;
        QObject::connect(control, &QSlider::valueChanged, this, [this, key, shown](int size) {
            shown->setText(QStringLiteral("%1 pt").arg(size));
            preferences_.set(key, static_cast<double>(size));
        });
        auto* row = new QHBoxLayout;
        row->addWidget(control, 1);
        row->addWidget(value);
        return std::pair(control, row);
    };
    auto [size, sizeRow] = slider(16, 128, sizeValue_, DockPreferences::iconSizeKey);
    size_ = size;
    size_->setAccessibleName(QStringLiteral("Size"));
    form->addRow(QStringLiteral("Size"), sizeRow);
    magnification_ = new QCheckBox(QStringLiteral("Magnification"));
    QObject::connect(magnification_, &QCheckBox::toggled, this, [this](bool on) { preferences_.set(DockPreferences::magnificationKey, on); });
    auto [magnified, magnifiedRow] = slider(16, 128, magnifiedValue_, DockPreferences::magnifiedSizeKey);
    magnifiedSize_ = magnified;
    magnifiedSize_->setAccessibleName(QStringLiteral("Magnified size"));
    form->addRow(magnification_, magnifiedRow);
    // A choice stored by raw name: each entry's title and name.
    auto choice = [this, form](const QString& title, std::string_view key, std::initializer_list<std::pair<const char*, const char*>> entries) {
        auto* box = new QComboBox;
        box->setAccessibleName(title);
        for (auto [shown, raw] : entries)
            box->addItem(QString::fromUtf8(shown), QString::fromUtf8(raw));
        QObject::connect(box, &QComboBox::currentIndexChanged, this, [this, box, key](int index) {
            preferences_.set(key, box->itemData(index).toString().toStdString());
        });
        form->addRow(title, box);
        return box;
    };
    edge_ = choice(QStringLiteral("Position on screen"), DockPreferences::edgeKey,
                   { { "Left", "left" }, { "Bottom", "bottom" }, { "Right", "right" } });
    screen_ = choice(QStringLiteral("Show on"), DockPreferences::screenKey,
                     { { "Main screen", "primary" }, { "Screen with the pointer", "pointer" } });
    layout->addLayout(form);
    auto toggle = [this, layout](const char* title, std::string_view key) {
        auto* box = new QCheckBox(QString::fromUtf8(title));
        QObject::connect(box, &QCheckBox::toggled, this, [this, key](bool on) { preferences_.set(key, on); });
        layout->addWidget(box);
        return box;
    };
    autohide_ = toggle("Automatically hide and show the Dock", DockPreferences::autohideKey);
    animateLaunch_ = toggle("Animate opening applications", DockPreferences::animateLaunchKey);
    indicators_ = toggle("Show indicators for open applications", DockPreferences::showIndicatorsKey);
    recents_ = toggle("Show suggested and recent apps in Dock", DockPreferences::showRecentsKey);
    minimizeIntoApp_ = toggle("Minimize windows into application icon", DockPreferences::minimizeIntoAppKey);
    layout->addStretch();
    return pane;
}

QWidget* SettingsWindow::makeWidgets()
{
    QWidget* pane = titledPane(QStringLiteral("Widgets"));
    QVBoxLayout* layout = column(pane);
    if (setup_.widgets) {
        widgetsPane_ = new WidgetsPane(*setup_.widgets, preferences_, setup_.widgetMonitors);
        layout->addWidget(widgetsPane_, 1);
    } else {
        layout->addStretch();
    }
    return pane;
}

QWidget* SettingsWindow::makeAbout()
{
    auto* pane = new QWidget;
    auto* layout = new QVBoxLayout(pane);
    layout->addStretch();
    auto* icon = new QLabel;
    icon->setPixmap(QIcon(QStringLiteral(":/kestrune/app.svg")).pixmap(96, 96));
    icon->setAlignment(Qt::AlignCenter);
    auto* name = heading(QStringLiteral("Kestrune Dock"));
    name->setAlignment(Qt::AlignCenter);
    auto* version = new QLabel(QStringLiteral("Version %1").arg(QCoreApplication::applicationVersion()));
    version->setAlignment(Qt::AlignCenter);
    auto* blurb = new QLabel(QStringLiteral("A dock with live widgets for developers: your apps, and what your "
                                            "repositories, containers and AI tools are doing, at the edge of the screen."));
    blurb->setWordWrap(true);
    blurb->setAlignment(Qt::AlignCenter);
    for (QWidget* widget : std::initializer_list<QWidget*> { icon, name, version, blurb })
        layout->addWidget(widget);
    layout->addStretch();
    return pane;
}

void SettingsWindow::refresh()
{
    DockPreferences values = DockPreferences::read(preferences_);
    auto set = [](QCheckBox* box, bool on) {
        QSignalBlocker quiet(box);
        box->setChecked(on);
    };
    set(login_, LoginItem::isRegistered(setup_.loginEntryPath));
    set(menuBarIcon_, preferences_.boolValue(showMenuBarIconKey).value_or(true));
    {
        QSignalBlocker quiet(size_);
        size_->setValue(static_cast<int>(std::lround(values.iconSize)));
        sizeValue_->setText(QStringLiteral("%1 pt").arg(size_->value()));
    }
    set(magnification_, values.magnification);
    {
        QSignalBlocker quiet(magnifiedSize_);
        magnifiedSize_->setValue(static_cast<int>(std::lround(values.magnifiedSize)));
        magnifiedValue_->setText(QStringLiteral("%1 pt").arg(magnifiedSize_->value()));
    }
    magnifiedSize_->setEnabled(values.magnification);
    auto pick = [](QComboBox* box, std::string_view raw) {
        QSignalBlocker quiet(box);
        box->setCurrentIndex(box->findData(text(raw)));
    };
    pick(edge_, toString(values.edge));
    pick(screen_, dockScreenChoiceNames.name(values.screen));
    set(autohide_, values.autohide);
    set(animateLaunch_, values.animateLaunch);
    set(indicators_, values.showIndicators);
    set(recents_, values.showRecents);
    set(minimizeIntoApp_, values.minimizeIntoApp);
    preview_->update();
}

void SettingsWindow::setLoginItem(bool registered)
{
    auto problem = LoginItem::setRegistered(setup_.loginEntryPath, setup_.executable, registered);
    if (!problem.empty())
        showFailure(registered ? QStringLiteral("Couldn’t open Kestrune Dock at login.")
                               : QStringLiteral("Couldn’t stop Kestrune Dock opening at login."),
                    problem);
    // The folder may be new: watch it from now on.
    QString autostart = QFileInfo(QString::fromStdString(setup_.loginEntryPath)).absolutePath();
    if (!loginWatch_->directories().contains(autostart) && QFileInfo::exists(autostart))
        loginWatch_->addPath(autostart);
    refresh();
    if (setup_.notify)
        setup_.notify("kestrune.loginItemChanged");
}

void SettingsWindow::askToReset()
{
    if (question_) {
        question_->raise();
        return;
    }
    question_ = new QMessageBox(QMessageBox::Warning, QStringLiteral("Kestrune Dock"), QStringLiteral("Reset the Dock?"),
                                QMessageBox::NoButton, this);
    question_->setInformativeText(QStringLiteral("Your kept apps, stacks and the Dock’s settings go back to how they were "
                                                 "at first start. Your widgets stay as they are."));
    QPushButton* reset = question_->addButton(QStringLiteral("Reset"), QMessageBox::DestructiveRole);
    QPushButton* cancel = question_->addButton(QMessageBox::Cancel);
    question_->setDefaultButton(cancel);
    question_->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(question_, &QMessageBox::finished, this, [this, reset] {
        bool confirmed = question_ && question_->clickedButton() == reset;
        question_ = nullptr;
        if (!confirmed)
            return;
        for (std::string_view key : { DockStore::pinnedKey, DockStore::recentsKey, DockStore::stacksKey, DockStore::stackOptionsKey,
                                      DockPreferences::iconSizeKey, DockPreferences::magnifiedSizeKey, DockPreferences::magnificationKey,
                                      DockPreferences::edgeKey, DockPreferences::autohideKey, DockPreferences::animateLaunchKey,
                                      DockPreferences::showIndicatorsKey, DockPreferences::showRecentsKey, DockPreferences::minimizeIntoAppKey,
                                      DockPreferences::screenKey })
            preferences_.remove(key);
        preferences_.synchronize();
    });
    question_->show();
}

} // namespace kestrune
