#include "KestruneDock/DesktopWidgets/SpacesWidget.h"

#include <cmath>

#include <QListWidget>
#include <QPainter>
#include <QVBoxLayout>

#include "KestruneDock/Desktop/X11Desktops.h"

namespace kestrune {

namespace {

constexpr int mostShown = 9;
const QString unavailable = QStringLiteral("Spaces can’t be read without an X11 session");

// Room for each desktop's square and the gap after it.
double cellWidth(double size)
{
    return size * 0.5;
}

} // namespace

SpacesWidget::SpacesWidget(WidgetInstance instance, WidgetMonitors& monitors) : WidgetTile(std::move(instance)), monitors_(monitors)
{
    watch_ = monitors_.addObserver(WidgetMonitors::Source::desktops, [this] { tellChanged(); });
}

SpacesWidget::~SpacesWidget()
{
    monitors_.removeObserver(WidgetMonitors::Source::desktops, watch_);
    if (shown_)
        monitors_.setDesktopsWanted(instance_.id.toString(), false);
}

void SpacesWidget::shownChanged()
{
    monitors_.setDesktopsWanted(instance_.id.toString(), shown_);
}

double SpacesWidget::length(double iconSize) const
{
    const X11Desktops& desktops = monitors_.desktops();
    if (!desktops.isAvailable() || desktops.count() == 0)
        return std::clamp(widgetface::linesLength(iconSize, QStringLiteral("Spaces"), unavailable, false), iconSize * 2, std::max(iconSize * 4, 120.0));
    int shown = std::min(desktops.count(), mostShown);
    return std::ceil(std::max(iconSize, widgetface::inset(iconSize) * 2 + shown * cellWidth(iconSize) - iconSize * 0.1));
}

void SpacesWidget::paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const
{
    widgetface::paintPlate(painter, tile, context);
    const X11Desktops& desktops = monitors_.desktops();
    if (!desktops.isAvailable() || desktops.count() == 0) {
        widgetface::paintLines(painter, tile, QStringLiteral("Spaces"), desktops.isAvailable() ? QStringLiteral("No desktops") : unavailable);
        return;
    }
    double size = tile.height();
    double square = cellWidth(size) - size * 0.1;
    double left = tile.left() + (tile.width() - (std::min(desktops.count(), mostShown) * cellWidth(size) - size * 0.1)) / 2;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    QFont font;
    font.setPixelSize(std::max(6, static_cast<int>(std::lround(square * 0.55))));
    font.setWeight(QFont::DemiBold);
    painter.setFont(font);
    for (int desktop = 0; desktop < std::min(desktops.count(), mostShown); ++desktop) {
        QRectF box(left + desktop * cellWidth(size), tile.center().y() - square / 2, square, square);
        bool current = desktop == desktops.current();
        painter.setPen(current ? Qt::NoPen : QPen(QColor(255, 255, 255, 110), std::max(1.0, size * 0.025)));
        painter.setBrush(current ? QColor(0x64, 0xd2, 0xff) : QColor(255, 255, 255, 20));
        painter.drawRoundedRect(box, square * 0.2, square * 0.2);
        if (size >= 28) {
            painter.setPen(current ? QColor(0, 0, 0, 200) : QColor(255, 255, 255, 200));
            painter.drawText(box, Qt::AlignCenter, QString::number(desktop + 1));
        }
    }
    painter.restore();
}

std::string SpacesWidget::accessibleText() const
{
    const X11Desktops& desktops = monitors_.desktops();
    if (!desktops.isAvailable())
        return "Spaces, " + unavailable.toStdString();
    std::vector<std::string> names = desktops.names();
    if (names.empty())
        return "Spaces, no desktops";
    return "Spaces, " + names[static_cast<size_t>(std::clamp(desktops.current(), 0, static_cast<int>(names.size()) - 1))] + " of "
        + std::to_string(names.size());
}

bool SpacesWidget::pressed(QPointF within)
{
    X11Desktops& desktops = monitors_.desktops();
    int shown = std::min(desktops.count(), mostShown);
    if (!desktops.isAvailable() || shown == 0)
        return false;
    int desktop = std::clamp(static_cast<int>(within.x() * shown), 0, shown - 1);
    desktops.switchTo(desktop);
    return true;
}

QWidget* SpacesWidget::makeCard()
{
    X11Desktops& desktops = monitors_.desktops();
    auto* card = new QWidget;
    auto* layout = new QVBoxLayout(card);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* list = new QListWidget;
    list->setAccessibleName(QStringLiteral("Desktops"));
    std::vector<std::string> names = desktops.names();
    std::vector<std::vector<std::string>> windows = desktops.windows();
    for (size_t desktop = 0; desktop < names.size(); ++desktop) {
        auto* heading = new QListWidgetItem(QString::fromStdString(names[desktop]) + (static_cast<int>(desktop) == desktops.current() ? QStringLiteral(" (current)") : QString()), list);
        QFont bold = heading->font();
        bold.setBold(true);
        heading->setFont(bold);
        heading->setData(Qt::UserRole, static_cast<int>(desktop));
        for (const std::string& title : desktop < windows.size() ? windows[desktop] : std::vector<std::string> {}) {
            auto* item = new QListWidgetItem(QStringLiteral("    ") + QString::fromStdString(title), list);
            item->setData(Qt::UserRole, static_cast<int>(desktop));
        }
    }
    if (names.empty())
        list->addItem(desktops.isAvailable() ? QStringLiteral("The window manager lists no desktops") : unavailable);
    QObject::connect(list, &QListWidget::itemActivated, card, [&desktops](QListWidgetItem* item) {
        QVariant desktop = item->data(Qt::UserRole);
        if (desktop.isValid())
            desktops.switchTo(desktop.toInt());
    });
    layout->addWidget(list);
    return card;
}

} // namespace kestrune
