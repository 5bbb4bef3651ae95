#include "KestruneDock/TimeWidgets/ClockWidget.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include <QFontMetricsF>
#include <QLabel>
#include <QLocale>
#include <QPainter>
#include <QPainterPath>
#include <QRegularExpression>
#include <QVBoxLayout>

#include "KestruneKit/Calendar/TimeProgress.h"
#include "KestruneKit/Core/RawNames.h"

namespace kestrune {

namespace {

constexpr RawNames<ClockFace, 11> faceNames { { {
    { ClockFace::digital, "digital" },
    { ClockFace::analog, "analog" },
    { ClockFace::stacked, "stacked" },
    { ClockFace::flip, "flip" },
    { ClockFace::date, "date" },
    { ClockFace::world, "world" },
    { ClockFace::words, "words" },
    { ClockFace::ring, "ring" },
    { ClockFace::poster, "poster" },
    { ClockFace::daylight, "daylight" },
    { ClockFace::week, "week" },
} } };

// Below this depth a face keeps to one line.
constexpr double twoLinesFrom = 28;

const QColor ink(255, 255, 255, 240);
const QColor dim(255, 255, 255, 150);
const QColor faint(255, 255, 255, 45);
const QColor accent(0xff, 0x9f, 0x0a);
const QColor calendarRed(0xff, 0x45, 0x3a);
const QColor sky(0x64, 0xd2, 0xff);

QFont fontOf(double pixels, QFont::Weight weight = QFont::Medium)
{
    QFont font;
    font.setPixelSize(std::max(6, static_cast<int>(std::lround(pixels))));
    font.setWeight(weight);
    return font;
}

double advance(const QFont& font, const QString& text)
{
    return QFontMetricsF(font).horizontalAdvance(text);
}

// Qt's "h" is a twelve-hour figure only beside "AP", so the hour is counted here.
QString hourOnly(const QDateTime& now, const ClockSettings& settings)
{
    int hour = now.time().hour();
    if (settings.hours24)
        return QStringLiteral("%1").arg(hour, 2, 10, QLatin1Char('0'));
    return QString::number(hour % 12 == 0 ? 12 : hour % 12);
}

QString hoursAndMinutes(const QDateTime& now, const ClockSettings& settings, bool withSeconds)
{
    QString text = hourOnly(now, settings) + QLocale::c().toString(now.time(), QStringLiteral(":mm"));
    if (withSeconds)
        text += QLocale::c().toString(now.time(), QStringLiteral(":ss"));
    return text;
}

QString minutesOnly(const QDateTime& now)
{
    return QLocale::c().toString(now.time(), QStringLiteral("mm"));
}

QString meridiem(const QDateTime& now, const ClockSettings& settings)
{
    if (settings.hours24)
        return {};
    return now.time().hour() < 12 ? QStringLiteral("AM") : QStringLiteral("PM");
}

// The widest the time can be, so that a tile keeps its length as the minutes go by.
QString widestTime(const ClockSettings& settings)
{
    return settings.seconds ? QStringLiteral("00:00:00") : QStringLiteral("00:00");
}

QString cityOf(const QTimeZone& zone)
{
    QString id = QString::fromUtf8(zone.id());
    return id.mid(id.lastIndexOf(QLatin1Char('/')) + 1).replace(QLatin1Char('_'), QLatin1Char(' '));
}

void drawText(QPainter& painter, const QRectF& box, const QFont& font, const QColor& colour, const QString& text,
              Qt::Alignment alignment = Qt::AlignCenter)
{
    painter.setFont(font);
    painter.setPen(colour);
    painter.drawText(box, static_cast<int>(alignment), text);
}

// A hand from the centre at `turn` (0 at twelve, 1 a full turn), `length` of the radius.
void drawHand(QPainter& painter, QPointF centre, double radius, double turn, double length, double width, const QColor& colour)
{
    double angle = turn * 2 * std::numbers::pi;
    QPointF tip(centre.x() + std::sin(angle) * radius * length, centre.y() - std::cos(angle) * radius * length);
    painter.setPen(QPen(colour, width, Qt::SolidLine, Qt::RoundCap));
    painter.drawLine(centre, tip);
}

void paintAnalog(QPainter& painter, const QRectF& tile, const ClockSettings& settings, const QDateTime& now)
{
    double size = tile.height();
    double radius = size * 0.42;
    QPointF centre = tile.center();
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(250, 250, 250));
    painter.drawEllipse(centre, radius, radius);
    // The twelve hours, the quarters longer.
    for (int hour = 0; hour < 12; ++hour) {
        double angle = hour / 12.0 * 2 * std::numbers::pi;
        double outer = radius * 0.88;
        double inner = radius * (hour % 3 == 0 ? 0.70 : 0.78);
        painter.setPen(QPen(QColor(40, 40, 40, hour % 3 == 0 ? 230 : 150), std::max(0.6, size * (hour % 3 == 0 ? 0.025 : 0.016))));
        painter.drawLine(QPointF(centre.x() + std::sin(angle) * inner, centre.y() - std::cos(angle) * inner),
                         QPointF(centre.x() + std::sin(angle) * outer, centre.y() - std::cos(angle) * outer));
    }
    QTime time = now.time();
    // Without seconds the tile wakes once a minute, so the minute hand stands on the minute.
    double seconds = settings.seconds ? time.second() : 0;
    double minutes = time.minute() + seconds / 60;
    double hours = (time.hour() % 12) + minutes / 60;
    QColor hand(28, 28, 30);
    drawHand(painter, centre, radius, hours / 12, 0.5, std::max(1.2, size * 0.06), hand);
    drawHand(painter, centre, radius, minutes / 60, 0.76, std::max(1.0, size * 0.04), hand);
    if (settings.seconds)
        drawHand(painter, centre, radius, seconds / 60, 0.82, std::max(0.6, size * 0.015), accent);
    painter.setPen(Qt::NoPen);
    painter.setBrush(settings.seconds ? accent : hand);
    painter.drawEllipse(centre, std::max(1.0, size * 0.035), std::max(1.0, size * 0.035));
}

void paintDigital(QPainter& painter, const QRectF& tile, const ClockSettings& settings, const QDateTime& now)
{
    double size = tile.height();
    QString time = hoursAndMinutes(now, settings, settings.seconds);
    QString half = meridiem(now, settings);
    double pad = widgetface::inset(size);
    QRectF inner = tile.adjusted(pad, 0, -pad, 0);
    if (size < twoLinesFrom) {
        QFont font = fontOf(size * 0.56);
        drawText(painter, inner, font, ink, half.isEmpty() ? time : time + QLatin1Char(' ') + half);
        return;
    }
    QFont small = widgetface::captionFont(size);
    QFont large = fontOf(size * 0.42, QFont::DemiBold);
    double captionHeight = QFontMetricsF(small).height();
    double valueHeight = QFontMetricsF(large).height();
    double top = tile.top() + (size - captionHeight - valueHeight) / 2;
    drawText(painter, QRectF(inner.left(), top, inner.width(), captionHeight), small, dim,
             QLocale().toString(now.date(), QStringLiteral("ddd d MMM")));
    QRectF value(inner.left(), top + captionHeight, inner.width(), valueHeight);
    if (half.isEmpty()) {
        drawText(painter, value, large, ink, time);
        return;
    }
    QFont halfFont = fontOf(size * 0.2, QFont::DemiBold);
    double width = advance(large, time) + size * 0.06 + advance(halfFont, half);
    double left = value.center().x() - width / 2;
    drawText(painter, QRectF(left, value.top(), advance(large, time), valueHeight), large, ink, time, Qt::AlignLeft | Qt::AlignVCenter);
    drawText(painter, QRectF(left + advance(large, time) + size * 0.06, value.top(), advance(halfFont, half) + 1, valueHeight * 0.86),
             halfFont, dim, half, Qt::AlignLeft | Qt::AlignBottom);
}

void paintStacked(QPainter& painter, const QRectF& tile, const ClockSettings& settings, const QDateTime& now)
{
    double size = tile.height();
    if (size < twoLinesFrom) {
        drawText(painter, tile, fontOf(size * 0.56), ink, hoursAndMinutes(now, settings, false));
        return;
    }
    QFont font = fontOf(size * 0.38, QFont::Bold);
    double line = size * 0.36;
    double top = tile.top() + (size - 2 * line) / 2;
    drawText(painter, QRectF(tile.left(), top, tile.width(), line), font, ink, hourOnly(now, settings));
    drawText(painter, QRectF(tile.left(), top + line, tile.width(), line), font, settings.seconds ? ink : dim, minutesOnly(now));
    if (settings.seconds) {
        QFont small = fontOf(size * 0.13, QFont::DemiBold);
        drawText(painter, QRectF(tile.left(), tile.bottom() - size * 0.2, tile.width() - size * 0.1, size * 0.16), small, accent,
                 QLocale::c().toString(now.time(), QStringLiteral("ss")), Qt::AlignRight | Qt::AlignVCenter);
    }
}

void paintFlipCard(QPainter& painter, const QRectF& card, const QString& text, double size)
{
    double radius = std::max(1.5, size * 0.08);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0x1c, 0x1c, 0x1e));
    painter.drawRoundedRect(card, radius, radius);
    // The lower leaf a shade lighter, as a card that has just fallen.
    painter.save();
    painter.setClipRect(QRectF(card.left(), card.center().y(), card.width(), card.height() / 2));
    painter.setBrush(QColor(0x2a, 0x2a, 0x2d));
    painter.drawRoundedRect(card, radius, radius);
    painter.restore();
    // Two figures fill the card without touching its edges.
    QFont font = fontOf(card.height() * 0.62, QFont::Bold);
    double width = advance(font, QStringLiteral("00"));
    if (width > card.width() * 0.84)
        font = fontOf(font.pixelSize() * card.width() * 0.84 / width, QFont::Bold);
    drawText(painter, card, font, QColor(0xf2, 0xf2, 0xf2), text);
    painter.setPen(QPen(QColor(0, 0, 0, 200), std::max(0.6, size * 0.02)));
    painter.drawLine(QPointF(card.left(), card.center().y()), QPointF(card.right(), card.center().y()));
}

double flipCardWidth(double size)
{
    return size * 0.62;
}

void paintFlip(QPainter& painter, const QRectF& tile, const ClockSettings& settings, const QDateTime& now)
{
    double size = tile.height();
    double gap = size * 0.06;
    double card = flipCardWidth(size);
    int cards = settings.seconds ? 3 : 2;
    double width = cards * card + (cards - 1) * gap;
    double left = tile.center().x() - width / 2;
    double top = tile.top() + size * 0.12;
    QStringList texts { hourOnly(now, settings), minutesOnly(now), QLocale::c().toString(now.time(), QStringLiteral("ss")) };
    for (int index = 0; index < cards; ++index)
        paintFlipCard(painter, QRectF(left + index * (card + gap), top, card, size * 0.76), texts[index], size);
    QString half = meridiem(now, settings);
    if (!half.isEmpty() && size >= twoLinesFrom)
        drawText(painter, QRectF(left + size * 0.05, top + size * 0.56, card, size * 0.18), fontOf(size * 0.11, QFont::Bold),
                 QColor(0xf2, 0xf2, 0xf2, 200), half, Qt::AlignLeft | Qt::AlignVCenter);
}

void paintDate(QPainter& painter, const QRectF& tile, const QDateTime& now)
{
    double size = tile.height();
    QRectF page = QRectF(tile.center().x() - size * 0.4, tile.top() + size * 0.1, size * 0.8, size * 0.8);
    double radius = std::max(1.5, size * 0.12);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(250, 250, 250));
    painter.drawRoundedRect(page, radius, radius);
    QRectF band(page.left(), page.top(), page.width(), page.height() * 0.3);
    painter.save();
    painter.setClipRect(band);
    painter.setBrush(calendarRed);
    painter.drawRoundedRect(page, radius, radius);
    painter.restore();
    if (size >= twoLinesFrom)
        drawText(painter, band, fontOf(band.height() * 0.62, QFont::Bold), Qt::white,
                 QLocale().toString(now.date(), QStringLiteral("ddd")).toUpper());
    QRectF day(page.left(), band.bottom(), page.width(), page.height() - band.height());
    drawText(painter, day, fontOf(day.height() * 0.78, QFont::DemiBold), QColor(28, 28, 30), QString::number(now.date().day()));
}

struct WorldColumn {
    QString city;
    QString time;
    QString day;  // "+1", "−1" or empty
};

std::vector<WorldColumn> worldColumns(const ClockSettings& settings, const QDateTime& now)
{
    std::vector<WorldColumn> columns;
    for (const QTimeZone& zone : settings.zones) {
        QDateTime there = now.toTimeZone(zone);
        qint64 days = now.date().daysTo(there.date());
        QString day = days > 0 ? QStringLiteral("+%1").arg(days) : days < 0 ? QStringLiteral("\u2212%1").arg(-days) : QString();
        QString half = meridiem(there, settings);
        columns.push_back({ cityOf(zone), hoursAndMinutes(there, settings, false) + (half.isEmpty() ? QString() : QLatin1Char(' ') + half), day });
    }
    return columns;
}

double worldColumnWidth(double size, const WorldColumn& column, const ClockSettings& settings)
{
    QFont small = widgetface::captionFont(size);
    QFont large = widgetface::valueFont(size);
    double time = advance(large, settings.hours24 ? QStringLiteral("00:00") : QStringLiteral("00:00 PM")) + advance(small, QStringLiteral(" +1"));
    return std::max(time, std::min(advance(small, column.city), size * 1.8));
}

void paintWorld(QPainter& painter, const QRectF& tile, const ClockSettings& settings, const QDateTime& now)
{
    double size = tile.height();
    std::vector<WorldColumn> columns = worldColumns(settings, now);
    double pad = widgetface::inset(size);
    if (columns.empty()) {
        widgetface::paintLines(painter, tile, QStringLiteral("World"), QStringLiteral("No zones"));
        return;
    }
    double left = tile.left() + pad;
    QFont small = widgetface::captionFont(size);
    QFont large = size < twoLinesFrom ? fontOf(size * 0.5) : widgetface::valueFont(size);
    double captionHeight = QFontMetricsF(small).height();
    double valueHeight = QFontMetricsF(large).height();
    for (size_t index = 0; index < columns.size(); ++index) {
        const WorldColumn& column = columns[index];
        double width = size < twoLinesFrom ? advance(large, QStringLiteral("00:00")) : worldColumnWidth(size, column, settings);
        if (index > 0) {
            painter.setPen(QPen(faint, 1));
            painter.drawLine(QPointF(left - pad / 2, tile.top() + size * 0.2), QPointF(left - pad / 2, tile.bottom() - size * 0.2));
        }
        if (size < twoLinesFrom) {
            drawText(painter, QRectF(left, tile.top(), width, size), large, ink, column.time, Qt::AlignLeft | Qt::AlignVCenter);
        } else {
            double top = tile.top() + (size - captionHeight - valueHeight) / 2;
            drawText(painter, QRectF(left, top, width, captionHeight), small, dim,
                     QFontMetricsF(small).elidedText(column.city, Qt::ElideRight, width), Qt::AlignLeft | Qt::AlignVCenter);
            drawText(painter, QRectF(left, top + captionHeight, width, valueHeight), large, ink, column.time, Qt::AlignLeft | Qt::AlignVCenter);
            if (!column.day.isEmpty())
                drawText(painter, QRectF(left + advance(large, column.time) + 2, top + captionHeight, width, valueHeight * 0.8), small,
                         accent, column.day, Qt::AlignLeft | Qt::AlignTop);
        }
        left += width + pad;
    }
}

void paintWords(QPainter& painter, const QRectF& tile, const QDateTime& now)
{
    double size = tile.height();
    QString words = QString::fromStdString(clockWords(now.time().hour(), now.time().minute()));
    double pad = widgetface::inset(size);
    QRectF inner = tile.adjusted(pad, 0, -pad, 0);
    if (size < twoLinesFrom) {
        drawText(painter, inner, fontOf(size * 0.5), ink, words, Qt::AlignLeft | Qt::AlignVCenter);
        return;
    }
    // "quarter past" over "four": the hour, the word people listen for, stands out.
    qsizetype split = words.lastIndexOf(QLatin1Char(' '));
    QString lead = split < 0 ? QString() : words.left(split);
    QString last = split < 0 ? words : words.mid(split + 1);
    QFont small = fontOf(size * 0.24);
    QFont large = fontOf(size * 0.34, QFont::Bold);
    double leadHeight = lead.isEmpty() ? 0 : QFontMetricsF(small).height();
    double lastHeight = QFontMetricsF(large).height();
    double top = tile.top() + (size - leadHeight - lastHeight) / 2;
    if (!lead.isEmpty())
        drawText(painter, QRectF(inner.left(), top, inner.width(), leadHeight), small, dim, lead, Qt::AlignLeft | Qt::AlignVCenter);
    drawText(painter, QRectF(inner.left(), top + leadHeight, inner.width(), lastHeight), large, ink, last, Qt::AlignLeft | Qt::AlignVCenter);
}

void paintRing(QPainter& painter, const QRectF& tile, const ClockSettings& settings, const QDateTime& now)
{
    double size = tile.height();
    double stroke = std::max(1.5, size * 0.08);
    double radius = size * 0.4 - stroke / 2;
    QRectF circle(tile.center().x() - radius, tile.center().y() - radius, 2 * radius, 2 * radius);
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(faint, stroke));
    painter.drawEllipse(circle);
    QTime time = now.time();
    double minutes = time.minute() + time.second() / 60.0 * (settings.seconds ? 1 : 0);
    int span = -static_cast<int>(std::lround(minutes / 60 * 360 * 16));
    painter.setPen(QPen(sky, stroke, Qt::SolidLine, Qt::RoundCap));
    if (span != 0)
        painter.drawArc(circle, 90 * 16, span);
    if (settings.seconds) {
        double angle = time.second() / 60.0 * 2 * std::numbers::pi;
        painter.setPen(Qt::NoPen);
        painter.setBrush(accent);
        painter.drawEllipse(QPointF(circle.center().x() + std::sin(angle) * radius, circle.center().y() - std::cos(angle) * radius),
                            stroke * 0.45, stroke * 0.45);
    }
    drawText(painter, circle, fontOf(size * 0.34, QFont::Bold), ink, hourOnly(now, settings));
}

void paintPoster(QPainter& painter, const QRectF& tile, const ClockSettings& settings, const QDateTime& now)
{
    double size = tile.height();
    QFont big = fontOf(size * 0.78, QFont::Black);
    QString hour = hourOnly(now, settings);
    QString minutes = minutesOnly(now);
    double hourWidth = advance(big, hour);
    double minutesWidth = advance(big, minutes);
    double gap = size * 0.04;
    double left = tile.center().x() - (hourWidth + gap + minutesWidth) / 2;
    QRectF line(left, tile.top() - size * 0.02, hourWidth, size);
    drawText(painter, line, big, ink, hour, Qt::AlignLeft | Qt::AlignVCenter);
    drawText(painter, QRectF(left + hourWidth + gap, line.top(), minutesWidth, size), big, accent, minutes, Qt::AlignLeft | Qt::AlignVCenter);
    if (settings.seconds && size >= twoLinesFrom)
        drawText(painter, QRectF(tile.left(), tile.bottom() - size * 0.2, tile.width() - size * 0.08, size * 0.18), fontOf(size * 0.13, QFont::Bold),
                 dim, QLocale::c().toString(now.time(), QStringLiteral("ss")), Qt::AlignRight | Qt::AlignVCenter);
}

SunDay sunOnDay(const ClockSettings& settings, const QDateTime& now, int daysAhead)
{
    QDateTime midday(now.date().addDays(daysAhead), QTime(12, 0), now.timeZone());
    Date noon(std::chrono::milliseconds(midday.toMSecsSinceEpoch()));
    return sunOn(noon, settings.place.value_or(GeoLocation {}));
}

SunDay sunToday(const ClockSettings& settings, const QDateTime& now)
{
    return sunOnDay(settings, now, 0);
}

// What comes next: today's sunrise or sunset, or after dark tomorrow's sunrise.
QString daylightCaption(const ClockSettings& settings, const QDateTime& now, const SunDay& day)
{
    if (!settings.place)
        return QStringLiteral("No place for this time zone");
    if (day.kind == SunDay::Kind::polarDay)
        return QStringLiteral("Sun up all day");
    if (day.kind == SunDay::Kind::polarNight)
        return QStringLiteral("Sun down all day");
    auto shown = [&](Date moment) {
        return hoursAndMinutes(localDateTime(moment).toTimeZone(now.timeZone()), settings, false);
    };
    Date moment(std::chrono::milliseconds(now.toMSecsSinceEpoch()));
    if (moment < *day.rise)
        return QStringLiteral("Sunrise ") + shown(*day.rise);
    if (moment < *day.set)
        return QStringLiteral("Sunset ") + shown(*day.set);
    SunDay tomorrow = sunOnDay(settings, now, 1);
    if (tomorrow.rise)
        return QStringLiteral("Sunrise ") + shown(*tomorrow.rise);
    return QStringLiteral("Sunset ") + shown(*day.set);
}

void paintDaylight(QPainter& painter, const QRectF& tile, const ClockSettings& settings, const QDateTime& now)
{
    double size = tile.height();
    double pad = widgetface::inset(size);
    SunDay day = sunToday(settings, now);
    QRectF chart = tile.adjusted(pad, size * 0.12, -pad, -size * 0.14);
    if (size >= twoLinesFrom) {
        QFont small = widgetface::captionFont(size);
        double captionHeight = QFontMetricsF(small).height();
        drawText(painter, QRectF(chart.left(), chart.top(), chart.width(), captionHeight), small, dim,
                 QFontMetricsF(small).elidedText(daylightCaption(settings, now, day), Qt::ElideRight, chart.width()),
                 Qt::AlignLeft | Qt::AlignVCenter);
        chart.setTop(chart.top() + captionHeight + size * 0.04);
    }
    // The sun's height through the day as a wave across the tile: highest at solar noon, crossing
    // the horizon at sunrise and sunset.
    double midnight = QDateTime(now.date(), QTime(0, 0), now.timeZone()).toMSecsSinceEpoch() / 1000.0;
    auto dayFraction = [&](Date moment) {
        return (std::chrono::duration<double>(moment.time_since_epoch()).count() - midnight) / 86400;
    };
    double noon = dayFraction(day.noon);
    double horizonLevel = 0;
    if (day.kind == SunDay::Kind::risesAndSets)
        horizonLevel = std::cos(std::numbers::pi * (dayFraction(*day.set) - noon) * 2);
    else
        horizonLevel = day.kind == SunDay::Kind::polarDay ? -1.3 : 1.3;
    // The wave spans the chart; the horizon stands high in winter and low in summer.
    auto level = [&](double height) { return chart.top() + (1 - height) / 2 * chart.height(); };
    double horizon = level(std::clamp(horizonLevel, -1.0, 1.0));
    auto point = [&](double fraction) {
        return QPointF(chart.left() + fraction * chart.width(), level(std::cos(2 * std::numbers::pi * (fraction - noon))));
    };
    QPainterPath wave;
    wave.moveTo(point(0));
    for (int step = 1; step <= 48; ++step)
        wave.lineTo(point(step / 48.0));
    painter.setBrush(Qt::NoBrush);
    painter.save();
    painter.setClipRect(QRectF(chart.left() - 2, chart.top() - size, chart.width() + 4, horizon - chart.top() + size));
    painter.setPen(QPen(QColor(0xff, 0xd6, 0x0a), std::max(1.0, size * 0.035)));
    painter.drawPath(wave);
    painter.restore();
    painter.save();
    painter.setClipRect(QRectF(chart.left() - 2, horizon, chart.width() + 4, size));
    painter.setPen(QPen(faint, std::max(1.0, size * 0.03)));
    painter.drawPath(wave);
    painter.restore();
    painter.setPen(QPen(dim, std::max(0.6, size * 0.015)));
    painter.drawLine(QPointF(chart.left(), horizon), QPointF(chart.right(), horizon));
    double nowFraction = std::clamp(civilTime(now).hour / 24.0 + now.time().minute() / 1440.0, 0.0, 1.0);
    QPointF sun = point(nowFraction);
    bool up = sun.y() <= horizon;
    painter.setPen(Qt::NoPen);
    painter.setBrush(up ? QColor(0xff, 0xd6, 0x0a) : QColor(200, 200, 210));
    double dot = std::max(2.0, size * 0.08);
    painter.drawEllipse(sun, dot, dot);
}

void paintWeek(QPainter& painter, const QRectF& tile, const ClockSettings& settings, const QDateTime& now)
{
    double size = tile.height();
    double pad = widgetface::inset(size);
    QRectF inner = tile.adjusted(pad, 0, -pad, 0);
    CivilTime today = civilTime(now);
    double rowTop = tile.top();
    double rowHeight = size;
    if (size >= twoLinesFrom) {
        QFont small = widgetface::captionFont(size);
        double captionHeight = QFontMetricsF(small).height();
        double block = captionHeight + size * 0.4;
        rowTop = tile.top() + (size - block) / 2;
        drawText(painter, QRectF(inner.left(), rowTop, inner.width(), captionHeight), small, dim,
                 QStringLiteral("Week %1").arg(isoWeek(today)), Qt::AlignLeft | Qt::AlignVCenter);
        rowTop += captionHeight;
        rowHeight = size * 0.4;
    }
    int todayColumn = (dayOfWeek(today) - settings.firstWeekday + 7) % 7;
    double column = inner.width() / 7;
    QFont letters = fontOf(std::min(rowHeight * 0.6, column * 0.8), QFont::DemiBold);
    QLocale locale;
    for (int index = 0; index < 7; ++index) {
        int weekday = (settings.firstWeekday + index) % 7;  // 0 Monday
        QString letter = locale.dayName(weekday + 1, QLocale::NarrowFormat);
        // The C locale's narrow names are figures.
        if (letter.isEmpty() || letter.at(0).isDigit())
            letter = locale.dayName(weekday + 1, QLocale::ShortFormat).left(1);
        QRectF cell(inner.left() + index * column, rowTop, column, rowHeight);
        if (index == todayColumn) {
            double radius = std::min(cell.width(), cell.height()) * 0.48;
            painter.setPen(Qt::NoPen);
            painter.setBrush(calendarRed);
            painter.drawEllipse(cell.center(), radius, radius);
            drawText(painter, cell, letters, Qt::white, letter);
        } else {
            drawText(painter, cell, letters, index < todayColumn ? faint : ink, letter);
        }
    }
}

} // namespace

std::string_view toString(ClockFace face)
{
    return faceNames.name(face);
}

std::optional<ClockFace> clockFaceFromString(std::string_view raw)
{
    return faceNames.value(raw);
}

double clockFaceLength(ClockFace face, double size, const ClockSettings& settings)
{
    double pad = widgetface::inset(size);
    switch (face) {
    case ClockFace::analog:
    case ClockFace::ring:
    case ClockFace::date:
        return size;
    case ClockFace::stacked:
        if (size < twoLinesFrom)
            return std::ceil(advance(fontOf(size * 0.56), QStringLiteral("00:00")) + 2 * pad);
        return std::max(size, std::ceil(advance(fontOf(size * 0.38, QFont::Bold), QStringLiteral("00")) + 2 * pad));
    case ClockFace::digital: {
        QString widest = widestTime(settings) + (settings.hours24 ? QString() : QStringLiteral(" PM"));
        QFont font = size < twoLinesFrom ? fontOf(size * 0.56) : fontOf(size * 0.42, QFont::DemiBold);
        return std::ceil(std::max(size * 1.4, advance(font, widest) + 2 * pad));
    }
    case ClockFace::flip: {
        int cards = settings.seconds ? 3 : 2;
        return std::ceil(cards * flipCardWidth(size) + (cards - 1) * size * 0.06 + size * 0.3);
    }
    case ClockFace::world: {
        if (settings.zones.empty())
            return size * 2;
        double width = pad;
        QFont alone = fontOf(size * 0.5);
        for (const WorldColumn& column : worldColumns(settings, QDateTime::currentDateTime()))
            width += (size < twoLinesFrom ? advance(alone, QStringLiteral("00:00")) : worldColumnWidth(size, column, settings)) + pad;
        return std::ceil(width);
    }
    case ClockFace::words: {
        // As long as the longest saying, so that the tile does not change length through the hour.
        QFont font = size < twoLinesFrom ? fontOf(size * 0.5) : fontOf(size * 0.24);
        double widest = advance(font, size < twoLinesFrom ? QStringLiteral("twenty-five past eleven") : QStringLiteral("twenty-five past"));
        if (size >= twoLinesFrom)
            widest = std::max(widest, advance(fontOf(size * 0.34, QFont::Bold), QStringLiteral("o\u2019clock")));
        return std::ceil(widest + 2 * pad);
    }
    case ClockFace::poster: {
        QFont big = fontOf(size * 0.78, QFont::Black);
        return std::ceil(std::max(size * 1.6, 2 * advance(big, QStringLiteral("00")) + size * 0.3));
    }
    case ClockFace::daylight:
        return std::ceil(size * 2.4);
    case ClockFace::week:
        return std::ceil(std::max(size * 2.2, 7 * size * 0.34 + 2 * pad));
    }
    return size;
}

void paintClockFace(ClockFace face, QPainter& painter, const QRectF& tile, const ClockSettings& settings, const QDateTime& now)
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    switch (face) {
    case ClockFace::digital:
        paintDigital(painter, tile, settings, now);
        break;
    case ClockFace::analog:
        paintAnalog(painter, tile, settings, now);
        break;
    case ClockFace::stacked:
        paintStacked(painter, tile, settings, now);
        break;
    case ClockFace::flip:
        paintFlip(painter, tile, settings, now);
        break;
    case ClockFace::date:
        paintDate(painter, tile, now);
        break;
    case ClockFace::world:
        paintWorld(painter, tile, settings, now);
        break;
    case ClockFace::words:
        paintWords(painter, tile, now);
        break;
    case ClockFace::ring:
        paintRing(painter, tile, settings, now);
        break;
    case ClockFace::poster:
        paintPoster(painter, tile, settings, now);
        break;
    case ClockFace::daylight:
        paintDaylight(painter, tile, settings, now);
        break;
    case ClockFace::week:
        paintWeek(painter, tile, settings, now);
        break;
    }
    painter.restore();
}

QString clockFaceText(ClockFace face, const ClockSettings& settings, const QDateTime& now)
{
    QString time = hoursAndMinutes(now, settings, settings.seconds);
    QString half = meridiem(now, settings);
    if (!half.isEmpty())
        time += QLatin1Char(' ') + half;
    switch (face) {
    case ClockFace::date:
        return QLocale().toString(now.date(), QLocale::LongFormat);
    case ClockFace::week:
        return QStringLiteral("Week %1, %2").arg(isoWeek(civilTime(now))).arg(QLocale().toString(now.date(), QStringLiteral("dddd")));
    case ClockFace::words:
        return QString::fromStdString(clockWords(now.time().hour(), now.time().minute()));
    case ClockFace::world: {
        QStringList parts;
        for (const WorldColumn& column : worldColumns(settings, now))
            parts << column.city + QLatin1Char(' ') + column.time;
        return parts.join(QStringLiteral(", "));
    }
    case ClockFace::daylight:
        return time + QStringLiteral(", ") + daylightCaption(settings, now, sunToday(settings, now));
    default:
        return time;
    }
}

ClockFace ClockWidget::face() const
{
    return clockFaceFromString(instance_.style).value_or(ClockFace::digital);
}

std::vector<QTimeZone> ClockWidget::zonesNamed(std::string_view option)
{
    std::vector<QTimeZone> zones;
    const QString text = QString::fromUtf8(option.data(), static_cast<qsizetype>(option.size()));
    static const QRegularExpression separators(QStringLiteral("[,\\s]+"));
    for (const QString& name : text.split(separators, Qt::SkipEmptyParts)) {
        QTimeZone zone(name.toUtf8());
        if (zone.isValid())
            zones.push_back(zone);
    }
    return zones;
}

std::optional<GeoLocation> ClockWidget::localPlace()
{
    static const std::optional<GeoLocation> place = [] {
        QByteArray zone = QTimeZone::systemTimeZoneId();
        return zoneLocation(readZoneTable(), std::string_view(zone.constData(), static_cast<size_t>(zone.size())));
    }();
    return place;
}

ClockSettings ClockWidget::settingsOf(const WidgetInstance& instance)
{
    auto option = [&](std::string_view key, std::string_view fallback = {}) { return widgetOption(instance, key, fallback); };
    ClockSettings settings;
    settings.seconds = option(secondsOption) == "true";
    std::string hours24 = option(hours24Option);
    // Unless told, the locale decides: a format with AM and PM is a twelve-hour one.
    settings.hours24 = hours24.empty() ? !QLocale().timeFormat(QLocale::ShortFormat).contains(QLatin1String("AP"), Qt::CaseInsensitive)
                                       : hours24 == "true";
    settings.zones = zonesNamed(option(zonesOption, "America/New_York Europe/London Asia/Tokyo"));
    settings.firstWeekday = static_cast<int>(QLocale().firstDayOfWeek()) - 1;
    if (clockFaceFromString(instance.style) == ClockFace::daylight)
        settings.place = localPlace();
    return settings;
}

double ClockWidget::length(double iconSize) const
{
    return clockFaceLength(face(), iconSize, settings());
}

void ClockWidget::paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const
{
    widgetface::paintPlate(painter, tile, context);
    paintClockFace(face(), painter, tile, settings(), localNow());
}

std::string ClockWidget::accessibleText() const
{
    return ("Clock, " + clockFaceText(face(), settings(), localNow())).toStdString();
}

Seconds ClockWidget::untilChange(Date now) const
{
    ClockFace shown = face();
    if (shown == ClockFace::date || shown == ClockFace::week)
        return untilMidnight(now);
    return option(secondsOption) == "true" ? untilNextSecond(now) : untilNextMinute(now);
}

namespace {

// The card's dial: the analog face, large, on the second.
class ClockDial final : public QWidget {
public:
    ClockDial(Runtime& runtime, ClockSettings settings) : runtime_(runtime), settings_(std::move(settings))
    {
        settings_.seconds = true;
        setFixedSize(150, 150);
        setAccessibleName(QStringLiteral("Clock"));
        tick();
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        paintClockFace(ClockFace::analog, painter, QRectF(rect()), settings_, localDateTime(runtime_.now()));
    }

private:
    void tick()
    {
        update();
        tick_ = runtime_.schedule(untilNextSecond(runtime_.now()) + Seconds(0.004), TimerRepeat::once, Seconds(0), [this] { tick(); });
    }

    Runtime& runtime_;
    ClockSettings settings_;
    TimerHandle tick_;
};

} // namespace

QWidget* ClockWidget::makeCard()
{
    ClockSettings shown = settings();
    if (!shown.place)
        shown.place = localPlace();
    QDateTime now = localNow();
    auto* card = new QWidget;
    auto* layout = new QVBoxLayout(card);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(new ClockDial(runtime_, shown), 0, Qt::AlignHCenter);
    auto* date = new QLabel(QLocale().toString(now.date(), QLocale::LongFormat));
    date->setAccessibleName(QStringLiteral("Date"));
    QFont large = date->font();
    large.setPointSizeF(large.pointSizeF() * 1.3);
    large.setWeight(QFont::DemiBold);
    date->setFont(large);
    layout->addWidget(date, 0, Qt::AlignHCenter);
    CivilTime today = civilTime(now);
    QStringList lines;
    lines << QStringLiteral("Week %1 · day %2 of %3").arg(isoWeek(today)).arg(dayOfYear(today)).arg(daysInYear(today.year));
    if (shown.place) {
        SunDay day = sunToday(shown, now);
        if (day.kind == SunDay::Kind::risesAndSets) {
            auto at = [&](Date moment) { return hoursAndMinutes(localDateTime(moment), shown, false); };
            lines << QStringLiteral("Sunrise %1 · sunset %2").arg(at(*day.rise), at(*day.set));
        } else {
            lines << daylightCaption(shown, now, day);
        }
    }
    for (const WorldColumn& column : worldColumns(shown, now))
        lines << column.city + QStringLiteral(": ") + column.time + (column.day.isEmpty() ? QString() : QLatin1Char(' ') + column.day);
    auto* details = new QLabel(lines.join(QLatin1Char('\n')));
    details->setAccessibleName(QStringLiteral("Details"));
    details->setAlignment(Qt::AlignHCenter);
    layout->addWidget(details);
    layout->addStretch();
    return card;
}

} // namespace kestrune
