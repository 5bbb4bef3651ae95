#include "KestruneDock/App/WidgetsPane.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDateEdit>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPainter>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalBlocker>
#include <QStackedWidget>
#include <QTabWidget>
#include <QVBoxLayout>

#include "KestruneDock/DevGit/GitWidget.h"
#include "KestruneDock/TimeWidgets/ClockWidget.h"
#include "KestruneDock/TimeWidgets/CountdownWidget.h"
#include "KestruneDock/WidgetViews/SummaryTile.h"
#include "KestruneDock/WidgetViews/WidgetTile.h"
#include "KestruneDock/Widgets/WidgetPaging.h"
#include "KestruneKit/Calendar/CivilTime.h"
#include "KestruneKit/Preferences/Preferences.h"

namespace kestrune {

namespace {

constexpr int idRole = Qt::UserRole + 1;
constexpr int kindRole = Qt::UserRole + 2;

QString text(std::string_view words) { return QString::fromUtf8(words.data(), static_cast<qsizetype>(words.size())); }

// The options pages, by what the selected widget can set.
enum OptionsPage { noOptions, gitOptions, devServersOptions, endpointsOptions, clockOptions, countdownOptions };

} // namespace

WidgetPreview::WidgetPreview(WidgetMonitors& monitors) : monitors_(monitors)
{
    setAccessibleName(QStringLiteral("Preview"));
    setMinimumHeight(static_cast<int>(iconSize + 2 * margin));
}

WidgetPreview::~WidgetPreview() = default;

void WidgetPreview::setInstance(const WidgetInstance* instance)
{
    if (!instance) {
        tile_.reset();
    } else if (tile_ && tile_->instance().id == instance->id && tile_->instance().kind == instance->kind) {
        tile_->setInstance(*instance);
    } else {
        tile_ = makeWidgetTile(*instance, monitors_);
        tile_->changed = [this] { update(); };
        tile_->setShown(isVisible());
    }
    setAccessibleDescription(tile_ ? QString::fromStdString(tile_->accessibleText()) : QString());
    update();
}

QImage WidgetPreview::render(double devicePixelRatio) const
{
    QImage image((size() * devicePixelRatio), QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(devicePixelRatio);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    paintInto(painter, devicePixelRatio);
    return image;
}

void WidgetPreview::paintInto(QPainter& painter, double devicePixelRatio) const
{
    painter.setRenderHint(QPainter::Antialiasing);
    if (!tile_)
        return;
    double length = tile_->length(iconSize);
    // On a piece of the dock's bar, as it is seen there.
    QRectF bar(0, 0, length + 2 * margin, iconSize + 2 * margin);
    bar.moveCenter(QRectF(rect()).center());
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(28, 30, 34, 230));
    painter.drawRoundedRect(bar, 12, 12);
    tile_->paint(painter, bar.adjusted(margin, margin, -margin, -margin), WidgetPaintContext { devicePixelRatio, true });
}

void WidgetPreview::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    paintInto(painter, devicePixelRatioF());
}

void WidgetPreview::showEvent(QShowEvent*)
{
    if (tile_)
        tile_->setShown(true);
}

void WidgetPreview::hideEvent(QHideEvent*)
{
    if (tile_)
        tile_->setShown(false);
}

WidgetsPane::WidgetsPane(WidgetStore& store, Preferences& preferences, WidgetMonitors* monitors) : store_(store), preferences_(preferences)
{
    chooseFolder = [this](const std::string& current) -> std::optional<std::string> {
        QString chosen = QFileDialog::getExistingDirectory(this, QStringLiteral("Choose a Project Folder"), QString::fromStdString(current));
        if (chosen.isEmpty())
            return std::nullopt;
        return chosen.toStdString();
    };
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* tabs = new QTabWidget;
    layout->addWidget(tabs);

    // In the Dock: the row, and what the selected widget can change.
    auto* inDock = new QWidget;
    auto* inDockLayout = new QVBoxLayout(inDock);
    row_ = new QListWidget;
    row_->setAccessibleName(QStringLiteral("Widgets in the Dock"));
    QObject::connect(row_, &QListWidget::currentRowChanged, this, [this] { showSelection(); });
    up_ = new QPushButton(QStringLiteral("Move Up"));
    down_ = new QPushButton(QStringLiteral("Move Down"));
    remove_ = new QPushButton(QStringLiteral("Remove from the Dock"));
    QObject::connect(up_, &QPushButton::clicked, this, [this] {
        if (auto id = selected())
            store_.moveUp(*id);
    });
    QObject::connect(down_, &QPushButton::clicked, this, [this] {
        if (auto id = selected())
            store_.moveDown(*id);
    });
    QObject::connect(remove_, &QPushButton::clicked, this, [this] {
        if (auto id = selected())
            store_.remove(*id);
    });
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(up_);
    buttons->addWidget(down_);
    buttons->addStretch();
    buttons->addWidget(remove_);
    auto* form = new QFormLayout;
    form_ = form;
    face_ = new QComboBox;
    face_->setAccessibleName(QStringLiteral("Face"));
    QObject::connect(face_, &QComboBox::activated, this, [this](int index) {
        if (auto id = selected())
            store_.setStyle(*id, face_->itemData(index).toString().toStdString());
    });
    form->addRow(QStringLiteral("Face"), face_);
    if (monitors) {
        preview_ = new WidgetPreview(*monitors);
        form->addRow(QStringLiteral("Preview"), preview_);
    }
    options_ = new QStackedWidget;
    options_->addWidget(new QWidget);
    auto* gitPage = new QWidget;
    auto* gitLayout = new QHBoxLayout(gitPage);
    gitLayout->setContentsMargins(0, 0, 0, 0);
    folderShown_ = new QLabel;
    folderShown_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    folder_ = new QPushButton(QStringLiteral("Choose…"));
    folder_->setAccessibleName(QStringLiteral("Project folder"));
    QObject::connect(folder_, &QPushButton::clicked, this, [this] {
        auto id = selected();
        const WidgetInstance* instance = id ? store_.instance(*id) : nullptr;
        if (!instance || !chooseFolder)
            return;
        auto found = instance->options.find(std::string(GitWidget::folderOption));
        if (auto chosen = chooseFolder(found == instance->options.end() ? std::string() : found->second))
            store_.setOption(*id, std::string(GitWidget::folderOption), *chosen);
    });
    gitLayout->addWidget(folderShown_, 1);
    gitLayout->addWidget(folder_);
    options_->addWidget(gitPage);
    ignoredPorts_ = new QLineEdit;
    ignoredPorts_->setAccessibleName(QStringLiteral("Ports to ignore"));
    ignoredPorts_->setPlaceholderText(QStringLiteral("5432, 6379"));
    QObject::connect(ignoredPorts_, &QLineEdit::editingFinished, this, [this] {
        if (auto id = selected())
            store_.setOption(*id, std::string(SummaryTile::ignoredPortsOption), ignoredPorts_->text().toStdString());
    });
    options_->addWidget(ignoredPorts_);
    addresses_ = new QPlainTextEdit;
    addresses_->setAccessibleName(QStringLiteral("Addresses to check"));
    addresses_->setPlaceholderText(QStringLiteral("https://example.com/health\nhttp://localhost:8080/ready"));
    addresses_->setMaximumHeight(80);
    addressesSave_ = new QPushButton(QStringLiteral("Check These"));
    QObject::connect(addressesSave_, &QPushButton::clicked, this, [this] {
        if (auto id = selected())
            store_.setOption(*id, std::string(SummaryTile::addressesOption), addresses_->toPlainText().toStdString());
    });
    auto* endpointsPage = new QWidget;
    auto* endpointsLayout = new QHBoxLayout(endpointsPage);
    endpointsLayout->setContentsMargins(0, 0, 0, 0);
    endpointsLayout->addWidget(addresses_, 1);
    endpointsLayout->addWidget(addressesSave_, 0, Qt::AlignTop);
    options_->addWidget(endpointsPage);
    auto setSelected = [this](std::string_view key, const std::string& value) {
        if (auto id = selected())
            store_.setOption(*id, std::string(key), value);
    };
    auto* clockPage = new QWidget;
    auto* clockLayout = new QVBoxLayout(clockPage);
    clockLayout->setContentsMargins(0, 0, 0, 0);
    clockSeconds_ = new QCheckBox(QStringLiteral("Show seconds"));
    clockHours24_ = new QCheckBox(QStringLiteral("24-hour clock"));
    clockZones_ = new QLineEdit;
    clockZones_->setAccessibleName(QStringLiteral("Time zones"));
    clockZones_->setPlaceholderText(QStringLiteral("America/New_York Europe/London Asia/Tokyo"));
    clockZones_->setToolTip(QStringLiteral("The World face's zones, by their IANA names"));
    QObject::connect(clockSeconds_, &QCheckBox::clicked, this, [setSelected](bool on) {
        setSelected(ClockWidget::secondsOption, on ? "true" : "false");
    });
    QObject::connect(clockHours24_, &QCheckBox::clicked, this, [setSelected](bool on) {
        setSelected(ClockWidget::hours24Option, on ? "true" : "false");
    });
    QObject::connect(clockZones_, &QLineEdit::editingFinished, this, [this, setSelected] {
        setSelected(ClockWidget::zonesOption, clockZones_->text().trimmed().toStdString());
    });
    clockLayout->addWidget(clockSeconds_);
    clockLayout->addWidget(clockHours24_);
    clockLayout->addWidget(clockZones_);
    options_->addWidget(clockPage);
    auto* countdownPage = new QWidget;
    auto* countdownLayout = new QHBoxLayout(countdownPage);
    countdownLayout->setContentsMargins(0, 0, 0, 0);
    countdownTitle_ = new QLineEdit;
    countdownTitle_->setAccessibleName(QStringLiteral("Title"));
    countdownTitle_->setPlaceholderText(QStringLiteral("Countdown"));
    countdownDate_ = new QDateEdit;
    countdownDate_->setAccessibleName(QStringLiteral("Date"));
    countdownDate_->setCalendarPopup(true);
    countdownDate_->setDisplayFormat(QStringLiteral("yyyy-MM-dd"));
    QObject::connect(countdownTitle_, &QLineEdit::editingFinished, this, [this, setSelected] {
        setSelected(CountdownWidget::titleOption, countdownTitle_->text().trimmed().toStdString());
    });
    QObject::connect(countdownDate_, &QDateEdit::editingFinished, this, [this, setSelected] {
        setSelected(CountdownWidget::dateOption, countdownDate_->date().toString(Qt::ISODate).toStdString());
    });
    countdownLayout->addWidget(countdownTitle_, 1);
    countdownLayout->addWidget(countdownDate_);
    options_->addWidget(countdownPage);
    form->addRow(QStringLiteral("Options"), options_);
    inDockLayout->addWidget(row_, 1);
    inDockLayout->addLayout(buttons);
    inDockLayout->addLayout(form);
    overflow_ = new QComboBox;
    overflow_->setAccessibleName(QStringLiteral("When they don’t fit"));
    overflow_->addItem(QStringLiteral("Show them in pages"), QStringLiteral("pages"));
    overflow_->addItem(QStringLiteral("Put the rest in a stack"), QStringLiteral("stack"));
    QObject::connect(overflow_, &QComboBox::activated, this, [this](int index) {
        preferences_.set(WidgetPaging::overflowKey, overflow_->itemData(index).toString().toStdString());
    });
    form->addRow(QStringLiteral("When they don’t fit"), overflow_);
    tabs->addTab(inDock, QStringLiteral("In the Dock"));

    // The gallery: a category, its kinds, and an add button.
    auto* gallery = new QWidget;
    auto* galleryLayout = new QVBoxLayout(gallery);
    category_ = new QComboBox;
    category_->setAccessibleName(QStringLiteral("Category"));
    category_->addItem(text(allWidgetsTitle), -1);
    for (WidgetCategory category : allWidgetCategories)
        category_->addItem(text(title(category)), static_cast<int>(category));
    QObject::connect(category_, &QComboBox::currentIndexChanged, this, [this] { showGallery(); });
    gallery_ = new QListWidget;
    gallery_->setAccessibleName(QStringLiteral("Widgets to add"));
    gallery_->setWordWrap(true);
    auto* add = new QPushButton(QStringLiteral("Add to the Dock"));
    QObject::connect(add, &QPushButton::clicked, this, [this] {
        if (QListWidgetItem* item = gallery_->currentItem())
            select(store_.add(static_cast<WidgetKind>(item->data(kindRole).toInt())));
    });
    QObject::connect(gallery_, &QListWidget::itemDoubleClicked, add, &QPushButton::click);
    auto* addRow = new QHBoxLayout;
    addRow->addStretch();
    addRow->addWidget(add);
    galleryLayout->addWidget(category_);
    galleryLayout->addWidget(gallery_, 1);
    galleryLayout->addLayout(addRow);
    tabs->addTab(gallery, QStringLiteral("Add Widgets"));

    // Presets: each replaces the row; the first entry is the row as it is.
    auto* presets = new QWidget;
    auto* presetsLayout = new QVBoxLayout(presets);
    auto* current = new QLabel;
    current->setWordWrap(true);
    current->setObjectName(QStringLiteral("currentWidgets"));
    presetsLayout->addWidget(new QLabel(QStringLiteral("<b>%1</b>").arg(text(currentWidgetsTitle))));
    presetsLayout->addWidget(current);
    for (const WidgetPreset& preset : allWidgetPresets()) {
        auto* entry = new QHBoxLayout;
        auto* words = new QLabel(QStringLiteral("<b>%1</b><br>%2").arg(text(preset.title), text(preset.subtitle)));
        auto* use = new QPushButton(QString::fromStdString(preset.buttonTitle()));
        const WidgetPreset* chosen = &preset;
        QObject::connect(use, &QPushButton::clicked, this, [this, chosen] { store_.apply(*chosen); });
        entry->addWidget(words, 1);
        entry->addWidget(use);
        presetsLayout->addLayout(entry);
    }
    presetsLayout->addStretch();
    tabs->addTab(presets, QStringLiteral("Presets"));

    storeWatch_ = store_.addObserver([this, current](const std::vector<WidgetInstance>& instances) {
        QStringList names;
        for (const WidgetInstance& instance : instances)
            names << text(title(instance.kind));
        current->setText(names.isEmpty() ? QStringLiteral("No widgets") : names.join(QStringLiteral(", ")));
        showRow();
    });
    preferencesWatch_ = preferences_.addObserver([this](const std::string& key) {
        if (key == WidgetPaging::overflowKey)
            readOverflow();
    });
    QStringList names;
    for (const WidgetInstance& instance : store_.instances())
        names << text(title(instance.kind));
    current->setText(names.isEmpty() ? QStringLiteral("No widgets") : names.join(QStringLiteral(", ")));
    showRow();
    showGallery();
    readOverflow();
}

WidgetsPane::~WidgetsPane()
{
    store_.removeObserver(storeWatch_);
    preferences_.removeObserver(preferencesWatch_);
}

std::optional<Uuid> WidgetsPane::selected() const
{
    QListWidgetItem* item = row_->currentItem();
    if (!item)
        return std::nullopt;
    return Uuid::fromString(item->data(idRole).toString().toStdString());
}

void WidgetsPane::select(const Uuid& id)
{
    for (int index = 0; index < row_->count(); ++index)
        if (row_->item(index)->data(idRole).toString().toStdString() == id.toString())
            row_->setCurrentRow(index);
}

void WidgetsPane::showRow()
{
    std::optional<Uuid> keep = selected();
    {
        QSignalBlocker quiet(row_);
        row_->clear();
        for (const WidgetInstance& instance : store_.instances()) {
            QString label = text(title(instance.kind));
            for (const WidgetStyle& style : faces(instance.kind))
                if (style.identifier == instance.style && !instance.style.empty())
                    label += QStringLiteral(" · ") + QString::fromStdString(style.title);
            auto* item = new QListWidgetItem(label);
            item->setData(idRole, QString::fromStdString(instance.id.toString()));
            row_->addItem(item);
        }
    }
    if (keep)
        select(*keep);
    showSelection();
}

void WidgetsPane::showSelection()
{
    auto id = selected();
    const WidgetInstance* instance = id ? store_.instance(*id) : nullptr;
    int index = row_->currentRow();
    up_->setEnabled(instance && index > 0);
    down_->setEnabled(instance && index + 1 < row_->count());
    remove_->setEnabled(instance != nullptr);
    const std::vector<WidgetStyle>& styles = instance ? faces(instance->kind) : faces(WidgetKind::note);
    {
        QSignalBlocker quiet(face_);
        face_->clear();
        for (const WidgetStyle& style : styles)
            face_->addItem(QString::fromStdString(style.title), QString::fromStdString(style.identifier));
        if (instance) {
            std::string shown = instance->style.empty() ? defaultStyle(instance->kind) : instance->style;
            face_->setCurrentIndex(std::max(0, face_->findData(QString::fromStdString(shown))));
        }
    }
    form_->setRowVisible(face_, !styles.empty());
    if (preview_) {
        preview_->setInstance(instance);
        form_->setRowVisible(preview_, instance != nullptr);
    }
    auto option = [&](std::string_view key) {
        auto found = instance ? instance->options.find(std::string(key)) : std::map<std::string, std::string>::const_iterator();
        return instance && found != instance->options.end() ? QString::fromStdString(found->second) : QString();
    };
    if (instance && instance->kind == WidgetKind::git) {
        QString folder = option(GitWidget::folderOption);
        folderShown_->setText(folder.isEmpty() ? QStringLiteral("No folder chosen") : folder);
        options_->setCurrentIndex(gitOptions);
    } else if (instance && instance->kind == WidgetKind::endpoints) {
        addresses_->setPlainText(option(SummaryTile::addressesOption));
        options_->setCurrentIndex(endpointsOptions);
    } else if (instance && instance->kind == WidgetKind::devServers) {
        ignoredPorts_->setText(option(SummaryTile::ignoredPortsOption));
        options_->setCurrentIndex(devServersOptions);
    } else if (instance && instance->kind == WidgetKind::clock) {
        const ClockSettings settings = ClockWidget::settingsOf(*instance);
        clockSeconds_->setChecked(settings.seconds);
        clockHours24_->setChecked(settings.hours24);
        clockZones_->setText(option(ClockWidget::zonesOption));
        options_->setCurrentIndex(clockOptions);
    } else if (instance && instance->kind == WidgetKind::countdown) {
        countdownTitle_->setText(option(CountdownWidget::titleOption));
        auto day = parseDay(option(CountdownWidget::dateOption).toStdString());
        countdownDate_->setDate(day ? QDate(day->year, day->month, day->day) : QDate::currentDate().addDays(30));
        options_->setCurrentIndex(countdownOptions);
    } else {
        options_->setCurrentIndex(noOptions);
    }
    form_->setRowVisible(options_, options_->currentIndex() != noOptions);
}

void WidgetsPane::showGallery()
{
    int chosen = category_->currentData().toInt();
    std::vector<WidgetKind> kinds;
    if (chosen < 0) {
        for (WidgetKind kind : allWidgetKinds())
            if (!isRetired(kind))
                kinds.push_back(kind);
    } else {
        kinds = WidgetStore::kindsInCategory(static_cast<WidgetCategory>(chosen));
    }
    gallery_->clear();
    for (WidgetKind kind : kinds) {
        auto* item = new QListWidgetItem(QStringLiteral("%1 — %2").arg(text(title(kind)), text(blurb(kind))));
        item->setData(kindRole, static_cast<int>(kind));
        gallery_->addItem(item);
    }
}

void WidgetsPane::readOverflow()
{
    QSignalBlocker quiet(overflow_);
    WidgetOverflow overflow = widgetOverflowFromPreference(preferences_.stringValue(WidgetPaging::overflowKey));
    overflow_->setCurrentIndex(overflow == WidgetOverflow::stack ? 1 : 0);
}

} // namespace kestrune
