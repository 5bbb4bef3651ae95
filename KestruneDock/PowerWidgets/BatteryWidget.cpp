#include "KestruneDock/PowerWidgets/BatteryWidget.h"

#include <cmath>

#include <QFontMetricsF>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QProgressBar>
#include <QVBoxLayout>
#include <QFormLayout>

#include "KestruneKit/Core/RawNames.h"

namespace kestrune {

namespace {

constexpr RawNames<BatteryFace, 7> faceNames { { {
    { BatteryFace::ring, "ring" },
    { BatteryFace::classic, "classic" },
    { BatteryFace::capsule, "capsule" },
    { BatteryFace::numeral, "numeral" },
    { BatteryFace::timeLeft, "timeLeft" },
    { BatteryFace::power, "power" },
    { BatteryFace::dots, "dots" },
} } };

constexpr double detailFrom = 28;
const QColor ink(255, 255, 255, 240);
const QColor dim(255, 255, 255, 160);

QColor levelColour(const BatteryDevice& device)
{
    if (device.charging() || device.full())
        return stateColour::good();
    if (device.percentage <= 10)
        return stateColour::trouble();
    if (device.percentage <= 20)
        return stateColour::waiting();
    return stateColour::good();
}

QString percentText(double percentage)
{
    return QStringLiteral("%1\u2009%").arg(static_cast<int>(std::lround(percentage)));
}

QFont fontOf(double pixels, QFont::Weight weight = QFont::DemiBold)
{
    QFont font;
    font.setPixelSize(std::max(6, static_cast<int>(std::lround(pixels))));
    font.setWeight(weight);
    return font;
}

// A lightning bolt in `box`: drawn over a level while the battery charges.
void paintBolt(QPainter& painter, const QRectF& box, const QColor& colour)
{
    QPainterPath bolt;
    auto at = [&](double x, double y) { return QPointF(box.left() + x * box.width(), box.top() + y * box.height()); };
    bolt.moveTo(at(0.58, 0.0));
    bolt.lineTo(at(0.18, 0.56));
    bolt.lineTo(at(0.46, 0.56));
    bolt.lineTo(at(0.38, 1.0));
    bolt.lineTo(at(0.82, 0.42));
    bolt.lineTo(at(0.54, 0.42));
    bolt.closeSubpath();
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(QColor(0, 0, 0, 120), std::max(0.5, box.width() * 0.06)));
    painter.setBrush(colour);
    painter.drawPath(bolt);
    painter.restore();
}

void paintClassicGlyph(QPainter& painter, const QRectF& body, const BatteryDevice& device)
{
    double stroke = std::max(1.0, body.height() * 0.1);
    double radius = body.height() * 0.22;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(dim, stroke));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(body, radius, radius);
    QRectF nub(body.right() + stroke * 0.6, body.center().y() - body.height() * 0.18, stroke * 1.2, body.height() * 0.36);
    painter.setPen(Qt::NoPen);
    painter.setBrush(dim);
    painter.drawRoundedRect(nub, stroke * 0.5, stroke * 0.5);
    QRectF inside = body.adjusted(stroke * 1.5, stroke * 1.5, -stroke * 1.5, -stroke * 1.5);
    inside.setWidth(std::max(0.0, inside.width() * std::clamp(device.percentage / 100, 0.0, 1.0)));
    painter.setBrush(device.percentage > 20 && !device.charging() ? ink : levelColour(device));
    painter.drawRoundedRect(inside, radius * 0.5, radius * 0.5);
    painter.restore();
    if (device.charging())
        paintBolt(painter, QRectF(body.center().x() - body.height() * 0.35, body.top() + body.height() * 0.1, body.height() * 0.7, body.height() * 0.8),
                  Qt::white);
}

void paintRingGauge(QPainter& painter, const QRectF& circle, const BatteryDevice& device, double stroke, bool figure)
{
    QRectF ring = circle.adjusted(stroke / 2, stroke / 2, -stroke / 2, -stroke / 2);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(QColor(255, 255, 255, 45), stroke));
    painter.drawEllipse(ring);
    int span = -static_cast<int>(std::clamp(device.percentage / 100, 0.0, 1.0) * 360 * 16);
    painter.setPen(QPen(levelColour(device), stroke, Qt::SolidLine, Qt::RoundCap));
    if (span != 0)
        painter.drawArc(ring, 90 * 16, span);
    painter.restore();
    if (figure) {
        painter.save();
        painter.setFont(fontOf(circle.height() * 0.34));
        painter.setPen(ink);
        painter.drawText(circle, Qt::AlignCenter, QString::number(std::lround(device.percentage)));
        painter.restore();
    } else if (device.charging()) {
        paintBolt(painter, circle.adjusted(circle.width() * 0.3, circle.height() * 0.25, -circle.width() * 0.3, -circle.height() * 0.25), ink);
    }
}

// The devices the dots face shows: the machine's batteries, then accessories.
std::vector<BatteryDevice> everyDevice(const BatteryReading& reading)
{
    std::vector<BatteryDevice> all = reading.batteries;
    all.insert(all.end(), reading.accessories.begin(), reading.accessories.end());
    return all;
}

WidgetLines textLines(BatteryFace face, const BatteryShown& shown)
{
    if (!shown.device)
        return { shown.caption, widgetface::shortProblem(shown.status), {}, shown.status };
    const BatteryDevice& device = *shown.device;
    if (face == BatteryFace::timeLeft) {
        if (device.full())
            return { shown.caption, QStringLiteral("Charged"), {} };
        if (device.charging())
            return { QStringLiteral("Until full"), device.timeToFull ? hoursAndMinutesLeft(device.timeToFull) : QStringLiteral("Charging"), {} };
        if (!shown.onBattery && device.type == 2)
            return { shown.caption, QStringLiteral("Not charging"), {} };
        return { QStringLiteral("Time left"), device.timeToEmpty ? hoursAndMinutesLeft(device.timeToEmpty) : QStringLiteral("Estimating…"), {} };
    }
    // The power face: where the power comes from.
    if (device.type != 2)
        return { shown.caption, percentText(device.percentage), levelColour(device) };
    if (!shown.onBattery)
        return { QStringLiteral("Power"), device.charging() ? QStringLiteral("Charging") : QStringLiteral("Power adapter"), stateColour::good() };
    return { QStringLiteral("Power"), QStringLiteral("Battery ") + percentText(device.percentage), levelColour(device) };
}

} // namespace

std::optional<BatteryFace> batteryFaceFromString(std::string_view raw)
{
    return faceNames.value(raw);
}

QString hoursAndMinutesLeft(int64_t seconds)
{
    if (seconds <= 0)
        return {};
    int64_t minutes = (seconds + 30) / 60;
    return QStringLiteral("%1:%2").arg(minutes / 60).arg(minutes % 60, 2, 10, QLatin1Char('0'));
}

BatteryShown batteryShown(const BatteryReading& reading)
{
    BatteryShown shown;
    shown.onBattery = reading.onBattery;
    if (!reading.known)
        return { std::nullopt, QStringLiteral("Battery"), QStringLiteral("Reading…"), false };
    if (!reading.problem.isEmpty())
        return { std::nullopt, QStringLiteral("Battery"), reading.problem, false };
    if (!reading.batteries.empty()) {
        shown.device = reading.batteries.front();
        // Two batteries (some ThinkPads) read as one: their mean level.
        if (reading.batteries.size() > 1) {
            double sum = 0;
            for (const BatteryDevice& battery : reading.batteries)
                sum += battery.percentage;
            shown.device->percentage = sum / static_cast<double>(reading.batteries.size());
        }
        shown.caption = QStringLiteral("Battery");
    } else if (!reading.accessories.empty()) {
        // A desktop machine: the accessory that will run out first.
        shown.device = *std::min_element(reading.accessories.begin(), reading.accessories.end(),
                                         [](const BatteryDevice& a, const BatteryDevice& b) { return a.percentage < b.percentage; });
        shown.caption = shown.device->kindName();
    } else {
        return { std::nullopt, QStringLiteral("Battery"), QStringLiteral("No battery"), false };
    }
    const BatteryDevice& device = *shown.device;
    if (device.full())
        shown.status = QStringLiteral("Charged");
    else if (device.charging())
        shown.status = device.timeToFull ? hoursAndMinutesLeft(device.timeToFull) + QStringLiteral(" until full") : QStringLiteral("Charging");
    else if (device.type == 2 && !reading.onBattery)
        shown.status = QStringLiteral("On power adapter");
    else if (device.timeToEmpty)
        shown.status = hoursAndMinutesLeft(device.timeToEmpty) + QStringLiteral(" left");
    return shown;
}

double batteryFaceLength(BatteryFace face, double size, const BatteryReading& reading)
{
    BatteryShown shown = batteryShown(reading);
    double pad = widgetface::inset(size);
    if (!shown.device || face == BatteryFace::timeLeft || face == BatteryFace::power) {
        WidgetLines lines = textLines(face, shown);
        return std::clamp(widgetface::linesLength(size, lines.caption, lines.value, lines.state.has_value()), size * 1.4, std::max(size * 4.5, 120.0));
    }
    switch (face) {
    case BatteryFace::ring:
        return size;
    case BatteryFace::classic:
        if (size < detailFrom)
            return std::ceil(size * 1.3);
        return std::ceil(pad * 2 + size * 0.8 + size * 0.12 + QFontMetricsF(fontOf(size * 0.3)).horizontalAdvance(QStringLiteral("100\u2009%")));
    case BatteryFace::capsule:
        return std::ceil(size * 1.8);
    case BatteryFace::numeral:
        return std::ceil(std::max(size * 1.2, pad * 2 + QFontMetricsF(fontOf(size * 0.56, QFont::Bold)).horizontalAdvance(QStringLiteral("100"))
                                                         + QFontMetricsF(fontOf(size * 0.22)).horizontalAdvance(QStringLiteral("%"))));
    case BatteryFace::dots: {
        size_t count = std::max<size_t>(1, everyDevice(reading).size());
        return std::ceil(std::max(size, pad * 2 + count * size * 0.5 + (count - 1) * size * 0.12));
    }
    case BatteryFace::timeLeft:
    case BatteryFace::power:
        break;
    }
    return size;
}

void paintBatteryFace(BatteryFace face, QPainter& painter, const QRectF& tile, const BatteryReading& reading)
{
    BatteryShown shown = batteryShown(reading);
    double size = tile.height();
    double pad = widgetface::inset(size);
    if (!shown.device || face == BatteryFace::timeLeft || face == BatteryFace::power) {
        WidgetLines lines = textLines(face, shown);
        widgetface::paintLines(painter, tile, lines.caption, lines.value, lines.state);
        return;
    }
    const BatteryDevice& device = *shown.device;
    switch (face) {
    case BatteryFace::ring: {
        double diameter = size * 0.8;
        paintRingGauge(painter, QRectF(tile.center().x() - diameter / 2, tile.center().y() - diameter / 2, diameter, diameter), device,
                       std::max(1.5, size * 0.08), size >= detailFrom);
        if (size >= detailFrom && device.charging())
            paintBolt(painter, QRectF(tile.center().x() - size * 0.07, tile.bottom() - size * 0.3, size * 0.14, size * 0.2), levelColour(device));
        break;
    }
    case BatteryFace::classic: {
        double bodyWidth = size < detailFrom ? size * 1.0 : size * 0.8;
        QRectF body(tile.left() + (size < detailFrom ? (tile.width() - bodyWidth) / 2 - size * 0.05 : pad), tile.center().y() - size * 0.2, bodyWidth,
                    size * 0.4);
        paintClassicGlyph(painter, body, device);
        if (size >= detailFrom) {
            painter.save();
            painter.setFont(fontOf(size * 0.3));
            painter.setPen(ink);
            painter.drawText(QRectF(body.right() + size * 0.12, tile.top(), tile.right() - body.right(), size), Qt::AlignLeft | Qt::AlignVCenter,
                             percentText(device.percentage));
            painter.restore();
        }
        break;
    }
    case BatteryFace::capsule: {
        QRectF pill(tile.left() + size * 0.12, tile.center().y() - size * 0.28, tile.width() - size * 0.24, size * 0.56);
        double radius = pill.height() / 2;
        painter.save();
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(255, 255, 255, 40));
        painter.drawRoundedRect(pill, radius, radius);
        QPainterPath clip;
        clip.addRoundedRect(pill, radius, radius);
        painter.setClipPath(clip);
        painter.setBrush(levelColour(device));
        painter.drawRect(QRectF(pill.left(), pill.top(), pill.width() * std::clamp(device.percentage / 100, 0.0, 1.0), pill.height()));
        painter.restore();
        if (size >= detailFrom) {
            painter.save();
            painter.setFont(fontOf(pill.height() * 0.5, QFont::Bold));
            painter.setPen(QColor(0, 0, 0, 90));
            painter.drawText(pill.translated(0, 1), Qt::AlignCenter, percentText(device.percentage));
            painter.setPen(Qt::white);
            painter.drawText(pill, Qt::AlignCenter, percentText(device.percentage));
            painter.restore();
        }
        if (device.charging())
            paintBolt(painter, QRectF(pill.left() + radius * 0.4, pill.top() + pill.height() * 0.15, pill.height() * 0.55, pill.height() * 0.7), Qt::white);
        break;
    }
    case BatteryFace::numeral: {
        QFont big = fontOf(size * 0.56, QFont::Bold);
        QFont small = fontOf(size * 0.22);
        QString number = QString::number(std::lround(device.percentage));
        double width = QFontMetricsF(big).horizontalAdvance(number) + QFontMetricsF(small).horizontalAdvance(QStringLiteral("%"));
        double left = tile.center().x() - width / 2;
        painter.save();
        painter.setFont(big);
        painter.setPen(device.percentage <= 20 && !device.charging() ? levelColour(device) : ink);
        painter.drawText(QRectF(left, tile.top(), width, size), Qt::AlignLeft | Qt::AlignVCenter, number);
        painter.setFont(small);
        painter.setPen(dim);
        double numberWidth = QFontMetricsF(big).horizontalAdvance(number);
        painter.drawText(QRectF(left + numberWidth, tile.top() + size * 0.22, width, size * 0.3), Qt::AlignLeft | Qt::AlignVCenter, QStringLiteral("%"));
        painter.restore();
        if (device.charging())
            paintBolt(painter, QRectF(left + numberWidth, tile.top() + size * 0.52, size * 0.16, size * 0.24), stateColour::good());
        break;
    }
    case BatteryFace::dots: {
        std::vector<BatteryDevice> all = everyDevice(reading);
        double dot = size * 0.5;
        double left = tile.center().x() - (all.size() * dot + (all.size() - 1) * size * 0.12) / 2;
        for (const BatteryDevice& each : all) {
            double top = size >= detailFrom ? tile.top() + size * 0.14 : tile.center().y() - dot / 2;
            paintRingGauge(painter, QRectF(left, top, dot, dot), each, std::max(1.2, size * 0.06), false);
            if (size >= detailFrom) {
                painter.save();
                painter.setFont(fontOf(size * 0.15));
                painter.setPen(dim);
                painter.drawText(QRectF(left - size * 0.1, top + dot + size * 0.04, dot + size * 0.2, size * 0.2), Qt::AlignCenter,
                                 percentText(each.percentage));
                painter.restore();
            }
            left += dot + size * 0.12;
        }
        break;
    }
    case BatteryFace::timeLeft:
    case BatteryFace::power:
        break;
    }
}

BatteryWidget::BatteryWidget(WidgetInstance instance, WidgetMonitors& monitors) : WidgetTile(std::move(instance)), monitors_(monitors)
{
    watch_ = monitors_.addObserver(WidgetMonitors::Source::battery, [this] { tellChanged(); });
}

BatteryWidget::~BatteryWidget()
{
    monitors_.removeObserver(WidgetMonitors::Source::battery, watch_);
    if (shown_)
        monitors_.battery().setWanted(instance_.id.toString(), false);
}

void BatteryWidget::shownChanged()
{
    monitors_.battery().setWanted(instance_.id.toString(), shown_);
}

BatteryFace BatteryWidget::face() const
{
    return batteryFaceFromString(instance_.style).value_or(BatteryFace::ring);
}

double BatteryWidget::length(double iconSize) const
{
    return batteryFaceLength(face(), iconSize, monitors_.battery().reading());
}

void BatteryWidget::paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const
{
    widgetface::paintPlate(painter, tile, context);
    paintBatteryFace(face(), painter, tile, monitors_.battery().reading());
}

std::string BatteryWidget::accessibleText() const
{
    BatteryShown shown = batteryShown(monitors_.battery().reading());
    QString said = shown.caption;
    if (shown.device)
        said += QStringLiteral(" ") + percentText(shown.device->percentage);
    if (!shown.status.isEmpty())
        said += QStringLiteral(", ") + shown.status;
    return said.toStdString();
}

namespace {

class BatteryCard final : public QWidget {
public:
    explicit BatteryCard(WidgetMonitors& monitors) : monitors_(monitors)
    {
        layout_ = new QVBoxLayout(this);
        layout_->setContentsMargins(0, 0, 0, 0);
        watch_ = monitors_.addObserver(WidgetMonitors::Source::battery, [this] { fill(); });
        monitors_.battery().setWanted(holder(), true);
        fill();
    }

    ~BatteryCard() override
    {
        monitors_.battery().setWanted(holder(), false);
        monitors_.removeObserver(WidgetMonitors::Source::battery, watch_);
    }

private:
    void fill()
    {
        delete content_;
        content_ = new QWidget;
        auto* form = new QFormLayout(content_);
        form->setContentsMargins(0, 0, 0, 0);
        const BatteryReading& reading = monitors_.battery().reading();
        BatteryShown shown = batteryShown(reading);
        auto* status = new QLabel(!shown.device ? shown.status
                                  : reading.batteries.empty() ? QStringLiteral("No battery in this computer")
                                  : reading.onBattery         ? QStringLiteral("Running on battery")
                                                              : QStringLiteral("Running on the power adapter"));
        status->setAccessibleName(QStringLiteral("Power source"));
        status->setWordWrap(true);
        form->addRow(status);
        auto add = [&](const BatteryDevice& device) {
            auto* bar = new QProgressBar;
            bar->setRange(0, 100);
            bar->setValue(static_cast<int>(std::lround(device.percentage)));
            QString detail = device.full()       ? QStringLiteral("charged")
                             : device.charging() ? QStringLiteral("charging")
                                                 : QString();
            if (device.charging() && device.timeToFull)
                detail += QStringLiteral(", %1 until full").arg(hoursAndMinutesLeft(device.timeToFull));
            else if (!device.charging() && device.timeToEmpty)
                detail = QStringLiteral("%1 left").arg(hoursAndMinutesLeft(device.timeToEmpty));
            bar->setFormat(detail.isEmpty() ? QStringLiteral("%p\u2009%") : QStringLiteral("%p\u2009% · ") + detail);
            QString name = device.model.isEmpty() ? device.kindName() : device.kindName() + QStringLiteral(" (") + device.model + QLatin1Char(')');
            bar->setAccessibleName(name);
            form->addRow(name, bar);
        };
        for (const BatteryDevice& device : reading.batteries)
            add(device);
        for (const BatteryDevice& device : reading.accessories)
            add(device);
        layout_->addWidget(content_);
    }

    [[nodiscard]] std::string holder() const { return "battery-card-" + std::to_string(reinterpret_cast<uintptr_t>(this)); }

    WidgetMonitors& monitors_;
    QVBoxLayout* layout_ = nullptr;
    QWidget* content_ = nullptr;
    uint64_t watch_ = 0;
};

} // namespace

QWidget* BatteryWidget::makeCard()
{
    return new BatteryCard(monitors_);
}

} // namespace kestrune
