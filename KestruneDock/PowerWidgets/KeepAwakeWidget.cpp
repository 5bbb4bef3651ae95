#include "KestruneDock/PowerWidgets/KeepAwakeWidget.h"

#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

#include "KestruneDock/Desktop/DesktopBus.h"
#include "KestruneDock/PowerWidgets/KeepAwakeCenter.h"

namespace kestrune {

KeepAwakeWidget::KeepAwakeWidget(WidgetInstance instance, WidgetMonitors& monitors) : LinesTile(std::move(instance), 4), monitors_(monitors)
{
    watch_ = monitors_.addObserver(WidgetMonitors::Source::keepAwake, [this] { tellChanged(); });
}

KeepAwakeWidget::~KeepAwakeWidget()
{
    monitors_.removeObserver(WidgetMonitors::Source::keepAwake, watch_);
}

WidgetLines KeepAwakeWidget::lines() const
{
    const KeepAwakeCenter& awake = monitors_.keepAwake();
    if (!awake.problem().isEmpty())
        return { QStringLiteral("Keep Awake"), QStringLiteral("Not kept awake"), stateColour::trouble(), awake.problem() };
    if (!awake.isOn())
        return { QStringLiteral("Keep Awake"), QStringLiteral("Off"), stateColour::unknown() };
    return { QStringLiteral("Keep Awake"), QStringLiteral("On"), stateColour::good() };
}

bool KeepAwakeWidget::pressed(QPointF)
{
    monitors_.keepAwake().setOn(!monitors_.keepAwake().isOn());
    return true;
}

QWidget* KeepAwakeWidget::makeCard()
{
    auto* card = new QWidget;
    auto* layout = new QVBoxLayout(card);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* said = new QLabel;
    said->setAccessibleName(QStringLiteral("Status"));
    said->setWordWrap(true);
    auto* toggle = new QPushButton;
    auto show = [&monitors = monitors_, said, toggle] {
        const KeepAwakeCenter& awake = monitors.keepAwake();
        said->setText(!awake.problem().isEmpty() ? awake.problem()
                      : awake.isOn()             ? QStringLiteral("Your computer won’t go to sleep or start the screen saver while this is on.")
                                                 : QStringLiteral("Your computer sleeps as its settings say."));
        toggle->setText(awake.isOn() ? QStringLiteral("Turn Off") : QStringLiteral("Turn On"));
    };
    QObject::connect(toggle, &QPushButton::clicked, card, [&monitors = monitors_] { monitors.keepAwake().setOn(!monitors.keepAwake().isOn()); });
    uint64_t watch = monitors_.addObserver(WidgetMonitors::Source::keepAwake, show);
    QObject::connect(card, &QObject::destroyed, [&monitors = monitors_, watch] { monitors.removeObserver(WidgetMonitors::Source::keepAwake, watch); });
    show();
    layout->addWidget(said);
    layout->addWidget(toggle, 0, Qt::AlignLeft);
    return card;
}

namespace {

void paintPadlock(QPainter& painter, const QRectF& box, const QColor& colour)
{
    double stroke = std::max(1.0, box.width() * 0.12);
    QRectF body(box.left(), box.top() + box.height() * 0.45, box.width(), box.height() * 0.55);
    QRectF shackle(box.left() + box.width() * 0.2, box.top() + stroke / 2, box.width() * 0.6, box.height() * 0.8);
    painter.setPen(QPen(colour, stroke, Qt::SolidLine, Qt::RoundCap));
    painter.setBrush(Qt::NoBrush);
    painter.drawArc(shackle, 0, 180 * 16);
    painter.drawLine(QPointF(shackle.left(), shackle.center().y()), QPointF(shackle.left(), body.top()));
    painter.drawLine(QPointF(shackle.right(), shackle.center().y()), QPointF(shackle.right(), body.top()));
    painter.setPen(Qt::NoPen);
    painter.setBrush(colour);
    painter.drawRoundedRect(body, stroke, stroke);
}

void paintMoonGlyph(QPainter& painter, const QRectF& box, const QColor& colour)
{
    QPainterPath disc;
    disc.addEllipse(box);
    QPainterPath bite;
    bite.addEllipse(box.translated(box.width() * 0.38, -box.height() * 0.22));
    painter.setPen(Qt::NoPen);
    painter.setBrush(colour);
    painter.drawPath(disc.subtracted(bite));
}

} // namespace

void LockSleepWidget::paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const
{
    widgetface::paintPlate(painter, tile, context);
    double size = tile.height();
    double glyph = size * 0.42;
    QColor colour(255, 255, 255, 230);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    QRectF left(tile.left(), tile.top(), tile.width() / 2, size);
    QRectF right(tile.center().x(), tile.top(), tile.width() / 2, size);
    paintPadlock(painter, QRectF(left.center().x() - glyph * 0.4, left.center().y() - glyph / 2, glyph * 0.8, glyph), colour);
    paintMoonGlyph(painter, QRectF(right.center().x() - glyph / 2, right.center().y() - glyph / 2, glyph, glyph), colour);
    painter.setPen(QPen(QColor(255, 255, 255, 40), 1));
    painter.drawLine(QPointF(tile.center().x(), tile.top() + size * 0.25), QPointF(tile.center().x(), tile.bottom() - size * 0.25));
    painter.restore();
}

std::string LockSleepWidget::accessibleText() const
{
    return failure_.isEmpty() ? "Lock & Sleep" : "Lock & Sleep, " + failure_.toStdString();
}

bool LockSleepWidget::pressed(QPointF within)
{
    // logind may answer after the tile is gone.
    auto done = [this, alive = std::weak_ptr<bool>(alive_)](const QString& failure) {
        if (alive.expired())
            return;
        failure_ = failure;
        tellChanged();
    };
    if (within.x() < 0.5)
        lockScreen(systemServicesBus(), done);
    else
        suspendMachine(systemServicesBus(), done);
    return true;
}

QWidget* LockSleepWidget::makeCard()
{
    auto* card = new QWidget;
    auto* layout = new QVBoxLayout(card);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* status = new QLabel(failure_);
    status->setAccessibleName(QStringLiteral("Status"));
    status->setWordWrap(true);
    auto* lock = new QPushButton(QStringLiteral("Lock Screen"));
    auto* sleep = new QPushButton(QStringLiteral("Sleep"));
    QPointer<QLabel> shown(status);
    auto report = [shown](const QString& failure) {
        if (shown)
            shown->setText(failure);
    };
    QObject::connect(lock, &QPushButton::clicked, card, [report] { lockScreen(systemServicesBus(), report); });
    QObject::connect(sleep, &QPushButton::clicked, card, [report] { suspendMachine(systemServicesBus(), report); });
    layout->addWidget(lock);
    layout->addWidget(sleep);
    layout->addWidget(status);
    return card;
}

} // namespace kestrune
