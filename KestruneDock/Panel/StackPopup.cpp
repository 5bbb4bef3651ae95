#include "KestruneDock/Panel/StackPopup.h"

#include <algorithm>

#include <QCollator>
#include <QDesktopServices>
#include <QDir>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QMimeData>
#include <QPushButton>
#include <QScreen>
#include <QUrl>
#include <QVBoxLayout>

#include "KestruneDock/Panel/StackFans.h"
#include "KestruneDock/WidgetViews/WidgetCard.h"

namespace kestrune {

namespace {

constexpr int pathRole = Qt::UserRole + 1;

// Items dragged out of the popup carry their files, as a file manager's do.
class StackItems final : public QListWidget {
protected:
    QMimeData* mimeData(const QList<QListWidgetItem*>& items) const override
    {
        auto* data = new QMimeData;
        QList<QUrl> urls;
        for (const QListWidgetItem* item : items)
            urls.push_back(QUrl::fromLocalFile(item->data(pathRole).toString()));
        data->setUrls(urls);
        return data;
    }
};

} // namespace

StackPopup::StackPopup(std::string folder, std::map<std::string, std::string> options, QRect tile, DockEdge edge,
                       std::function<void()> closed)
    : QFrame(nullptr, Qt::Popup), folder_(std::move(folder)), options_(std::move(options)), closed_(std::move(closed))
{
    setAttribute(Qt::WA_DeleteOnClose);
    setFrameShape(QFrame::StyledPanel);
    QString name = QFileInfo(QString::fromStdString(folder_)).fileName();
    setAccessibleName(name);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(10, 8, 10, 8);
    auto* title = new QLabel(name);
    QFont font = title->font();
    font.setBold(true);
    title->setFont(font);
    items_ = new StackItems;
    items_->setAccessibleName(QStringLiteral("Items in %1").arg(name));
    items_->setDragEnabled(true);
    items_->setDragDropMode(QAbstractItemView::DragOnly);
    items_->setFrameShape(QFrame::NoFrame);
    bool grid = options_["view"] != "list";
    if (grid) {
        items_->setViewMode(QListView::IconMode);
        items_->setIconSize(QSize(48, 48));
        items_->setGridSize(QSize(96, 84));
        items_->setResizeMode(QListView::Adjust);
        items_->setMovement(QListView::Static);
        items_->setWordWrap(true);
    } else {
        items_->setIconSize(QSize(20, 20));
    }
    QObject::connect(items_, &QListWidget::itemActivated, this, [this](QListWidgetItem* item) {
        QDesktopServices::openUrl(QUrl::fromLocalFile(item->data(pathRole).toString()));
        close();
    });
    QObject::connect(items_, &QListWidget::itemClicked, items_, &QListWidget::itemActivated);
    empty_ = new QLabel(QStringLiteral("No items"));
    empty_->setAlignment(Qt::AlignCenter);
    auto* open = new QPushButton(QStringLiteral("Open in Files"));
    QObject::connect(open, &QPushButton::clicked, this, [this] {
        QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(folder_)));
        close();
    });
    auto* footer = new QHBoxLayout;
    footer->addStretch();
    footer->addWidget(open);
    layout->addWidget(title);
    layout->addWidget(items_, 1);
    layout->addWidget(empty_, 1);
    layout->addLayout(footer);
    resize(grid ? 420 : 300, 360);

    watcher_ = new QFileSystemWatcher(this);
    watcher_->addPath(QString::fromStdString(folder_));
    QObject::connect(watcher_, &QFileSystemWatcher::directoryChanged, this, [this] { reload(); });
    reload();
    placeBy(tile, edge);
}

StackPopup::~StackPopup()
{
    if (auto closed = std::exchange(closed_, nullptr))
        closed();
}

void StackPopup::hideEvent(QHideEvent* event)
{
    QFrame::hideEvent(event);
    if (auto closed = std::exchange(closed_, nullptr))
        closed();
}

void StackPopup::reload()
{
    QDir folder(QString::fromStdString(folder_));
    QFileInfoList entries = folder.entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot, QDir::NoSort);
    std::string sort = options_.count("sort") ? options_.at("sort") : "name";
    // As a file manager orders names: "file 2" before "file 10", letters whatever their case.
    QCollator collator;
    collator.setNumericMode(true);
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    auto byName = [&collator](const QFileInfo& a, const QFileInfo& b) { return collator.compare(a.fileName(), b.fileName()) < 0; };
    // Newest first for dates, as a stack of papers has the last one on top.
    std::stable_sort(entries.begin(), entries.end(), [&](const QFileInfo& a, const QFileInfo& b) {
        if (sort == "added" && addedTime(a) != addedTime(b))
            return addedTime(a) > addedTime(b);
        if (sort == "modified" && a.lastModified() != b.lastModified())
            return a.lastModified() > b.lastModified();
        if (sort == "kind") {
            if (a.isDir() != b.isDir())
                return a.isDir();
            int kind = QString::compare(a.suffix(), b.suffix(), Qt::CaseInsensitive);
            if (kind != 0)
                return kind < 0;
        }
        return byName(a, b);
    });
    if (entries.size() > itemLimit)
        entries.resize(itemLimit);
    QFileIconProvider icons;
    items_->clear();
    for (const QFileInfo& entry : entries) {
        auto* item = new QListWidgetItem(icons.icon(entry), entry.fileName());
        item->setData(pathRole, entry.absoluteFilePath());
        item->setToolTip(entry.fileName());
        items_->addItem(item);
    }
    items_->setVisible(!entries.isEmpty());
    empty_->setVisible(entries.isEmpty());
    if (!folder.exists())
        empty_->setText(QStringLiteral("The folder is no longer there."));
}

std::vector<std::string> StackPopup::names() const
{
    std::vector<std::string> names;
    for (int row = 0; row < items_->count(); ++row)
        names.push_back(items_->item(row)->text().toStdString());
    return names;
}

void StackPopup::placeBy(QRect tile, DockEdge edge)
{
    placeBesideTile(*this, tile, edge);
}

} // namespace kestrune
