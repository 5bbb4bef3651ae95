#include "KestruneDock/DesktopWidgets/ControlsWidget.h"

#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QVBoxLayout>

#include "KestruneDock/Desktop/DesktopBus.h"
#include "KestruneDock/Desktop/DesktopLook.h"
#include "KestruneDock/PowerWidgets/KeepAwakeCenter.h"
#include "KestruneKit/Sound/SoundServer.h"

namespace kestrune {

namespace {

std::string holderOf(const void* owner)
{
    return "controls-" + std::to_string(reinterpret_cast<uintptr_t>(owner));
}

const char* labelOf(ControlsWidget::Control control)
{
    switch (control) {
    case ControlsWidget::Control::dark: return "Dark Mode";
    case ControlsWidget::Control::keepAwake: return "Keep Awake";
    case ControlsWidget::Control::mute: return "Mute";
    case ControlsWidget::Control::lock: return "Lock Screen";
    case ControlsWidget::Control::sleep: return "Sleep";
    }
    return "";
}

// The control's sign: a half-dark disc, a cup, a speaker, a padlock, a crescent.
void paintSign(QPainter& painter, ControlsWidget::Control control, const QRectF& box, const QColor& ink)
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(ink, std::max(1.0, box.width() * 0.1)));
    painter.setBrush(Qt::NoBrush);
    switch (control) {
    case ControlsWidget::Control::dark: {
        painter.drawEllipse(box);
        QPainterPath half;
        half.moveTo(box.center());
        half.arcTo(box, 90, 180);
        half.closeSubpath();
        painter.fillPath(half, ink);
        break;
    }
    case ControlsWidget::Control::keepAwake: {
        QRectF cup(box.left(), box.top() + box.height() * 0.3, box.width() * 0.72, box.height() * 0.62);
        painter.drawRoundedRect(cup, box.width() * 0.08, box.width() * 0.08);
        painter.drawArc(QRectF(cup.right() - box.width() * 0.1, cup.top() + cup.height() * 0.15, box.width() * 0.34, cup.height() * 0.5), -90 * 16, 180 * 16);
        break;
    }
    case ControlsWidget::Control::mute: {
        QPainterPath speaker;
        speaker.moveTo(box.left(), box.top() + box.height() * 0.35);
        speaker.lineTo(box.left() + box.width() * 0.25, box.top() + box.height() * 0.35);
        speaker.lineTo(box.left() + box.width() * 0.55, box.top() + box.height() * 0.08);
        speaker.lineTo(box.left() + box.width() * 0.55, box.bottom() - box.height() * 0.08);
        speaker.lineTo(box.left() + box.width() * 0.25, box.top() + box.height() * 0.65);
        speaker.lineTo(box.left(), box.top() + box.height() * 0.65);
        speaker.closeSubpath();
        painter.fillPath(speaker, ink);
        painter.drawLine(QPointF(box.left() + box.width() * 0.72, box.top() + box.height() * 0.32), QPointF(box.right(), box.bottom() - box.height() * 0.32));
        painter.drawLine(QPointF(box.left() + box.width() * 0.72, box.bottom() - box.height() * 0.32), QPointF(box.right(), box.top() + box.height() * 0.32));
        break;
    }
    case ControlsWidget::Control::lock: {
        QRectF body(box.left() + box.width() * 0.1, box.top() + box.height() * 0.45, box.width() * 0.8, box.height() * 0.55);
        painter.drawArc(QRectF(box.left() + box.width() * 0.28, box.top(), box.width() * 0.44, box.height() * 0.8), 0, 180 * 16);
        painter.fillRect(body, ink);
        break;
    }
    case ControlsWidget::Control::sleep: {
        QPainterPath disc;
        disc.addEllipse(box);
        QPainterPath bite;
        bite.addEllipse(box.translated(box.width() * 0.38, -box.height() * 0.22));
        painter.fillPath(disc.subtracted(bite), ink);
        break;
    }
    }
    painter.restore();
}

} // namespace

AppearanceWidget::AppearanceWidget(WidgetInstance instance, WidgetMonitors& monitors) : LinesTile(std::move(instance), 4), monitors_(monitors)
{
    watch_ = monitors_.addObserver(WidgetMonitors::Source::look, [this] { tellChanged(); });
}

AppearanceWidget::~AppearanceWidget() { monitors_.removeObserver(WidgetMonitors::Source::look, watch_); }

WidgetLines AppearanceWidget::lines() const
{
    const DesktopLook& look = monitors_.look();
    if (!look.darkProblem().isEmpty())
        return { QStringLiteral("Appearance"), QStringLiteral("Unavailable"), stateColour::trouble(), look.darkProblem() };
    return { QStringLiteral("Appearance"), look.isDark() ? QStringLiteral("Dark") : QStringLiteral("Light"), {} };
}

bool AppearanceWidget::pressed(QPointF)
{
    DesktopLook& look = monitors_.look();
    if (!look.darkProblem().isEmpty())
        return false;
    look.setDark(!look.isDark());
    return true;
}

DesktopIconsWidget::DesktopIconsWidget(WidgetInstance instance, WidgetMonitors& monitors) : LinesTile(std::move(instance), 4), monitors_(monitors)
{
    watch_ = monitors_.addObserver(WidgetMonitors::Source::look, [this] { tellChanged(); });
}

DesktopIconsWidget::~DesktopIconsWidget() { monitors_.removeObserver(WidgetMonitors::Source::look, watch_); }

WidgetLines DesktopIconsWidget::lines() const
{
    const DesktopLook& look = monitors_.look();
    if (!look.iconsProblem().isEmpty())
        return { QStringLiteral("Desktop Icons"), QStringLiteral("Unavailable"), stateColour::trouble(), look.iconsProblem() };
    return { QStringLiteral("Desktop Icons"), look.showsIcons() ? QStringLiteral("Shown") : QStringLiteral("Hidden"), {} };
}

bool DesktopIconsWidget::pressed(QPointF)
{
    DesktopLook& look = monitors_.look();
    if (!look.iconsProblem().isEmpty())
        return false;
    look.setShowsIcons(!look.showsIcons());
    return true;
}

ControlsWidget::ControlsWidget(WidgetInstance instance, WidgetMonitors& monitors) : WidgetTile(std::move(instance)), monitors_(monitors)
{
    for (auto source : { WidgetMonitors::Source::look, WidgetMonitors::Source::keepAwake, WidgetMonitors::Source::sound })
        watches_.push_back(monitors_.addObserver(source, [this] { tellChanged(); }));
}

ControlsWidget::~ControlsWidget()
{
    size_t index = 0;
    for (auto source : { WidgetMonitors::Source::look, WidgetMonitors::Source::keepAwake, WidgetMonitors::Source::sound })
        monitors_.removeObserver(source, watches_[index++]);
    if (shown_)
        monitors_.sound().setWanted(holderOf(this), false);
}

void ControlsWidget::shownChanged()
{
    // The mute button shows the sound server's mute.
    monitors_.sound().setWanted(holderOf(this), shown_);
}

bool ControlsWidget::isOn(Control control) const
{
    switch (control) {
    case Control::dark: return monitors_.look().isDark();
    case Control::keepAwake: return monitors_.keepAwake().isOn();
    case Control::mute: return monitors_.sound().state().muted;
    case Control::lock:
    case Control::sleep: break;
    }
    return false;
}

void ControlsWidget::press(Control control)
{
    switch (control) {
    case Control::dark:
        monitors_.look().setDark(!monitors_.look().isDark());
        break;
    case Control::keepAwake:
        monitors_.keepAwake().setOn(!monitors_.keepAwake().isOn());
        break;
    case Control::mute:
        monitors_.sound().setMuted(!monitors_.sound().state().muted);
        break;
    case Control::lock:
        lockScreen(systemServicesBus(), [](const QString&) {});
        break;
    case Control::sleep:
        suspendMachine(systemServicesBus(), [](const QString&) {});
        break;
    }
}

double ControlsWidget::length(double iconSize) const
{
    return std::ceil(widgetface::inset(iconSize) * 2 + controls * iconSize * 0.5 - iconSize * 0.1);
}

void ControlsWidget::paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const
{
    widgetface::paintPlate(painter, tile, context);
    double size = tile.height();
    double button = size * 0.4;
    double step = (tile.width() - 2 * widgetface::inset(size) + size * 0.1) / controls;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    for (int index = 0; index < controls; ++index) {
        auto control = static_cast<Control>(index);
        QPointF centre(tile.left() + widgetface::inset(size) + step * index + (step - size * 0.1) / 2, tile.center().y());
        bool on = isOn(control);
        painter.setPen(Qt::NoPen);
        painter.setBrush(on ? QColor(0x64, 0xd2, 0xff) : QColor(255, 255, 255, 30));
        painter.drawEllipse(centre, button / 2, button / 2);
        double sign = button * 0.5;
        paintSign(painter, control, QRectF(centre.x() - sign / 2, centre.y() - sign / 2, sign, sign), on ? QColor(0, 0, 0, 210) : QColor(255, 255, 255, 220));
    }
    painter.restore();
}

std::string ControlsWidget::accessibleText() const
{
    std::string said = "Controls";
    for (Control control : { Control::dark, Control::keepAwake, Control::mute })
        said += std::string(", ") + labelOf(control) + (isOn(control) ? " on" : " off");
    return said;
}

bool ControlsWidget::pressed(QPointF within)
{
    press(static_cast<Control>(std::clamp(static_cast<int>(within.x() * controls), 0, controls - 1)));
    return true;
}

QWidget* ControlsWidget::makeCard()
{
    auto* card = new QWidget;
    auto* layout = new QVBoxLayout(card);
    layout->setContentsMargins(0, 0, 0, 0);
    for (int index = 0; index < controls; ++index) {
        auto control = static_cast<Control>(index);
        auto* button = new QPushButton(QString::fromUtf8(labelOf(control)));
        button->setCheckable(control == Control::dark || control == Control::keepAwake || control == Control::mute);
        button->setChecked(isOn(control));
        QObject::connect(button, &QPushButton::clicked, card, [this, control] { press(control); });
        layout->addWidget(button);
    }
    return card;
}

} // namespace kestrune
