#include "KestruneDock/SoundWidgets/SoundWidget.h"

#include <cmath>

#include <QCheckBox>
#include <QLabel>
#include <QListWidget>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSlider>
#include <QVBoxLayout>

#include "KestruneKit/Sound/CameraWatch.h"
#include "KestruneKit/Sound/SoundServer.h"

namespace kestrune {

namespace {

constexpr double linesFrom = 28;
const QColor ink(255, 255, 255, 235);
const QColor idle(255, 255, 255, 110);

QString text(const std::string& words)
{
    return QString::fromStdString(words);
}

QString volumeText(const SoundState& state)
{
    if (state.muted)
        return QStringLiteral("Muted");
    return QStringLiteral("%1\u2009%").arg(static_cast<int>(std::lround(state.volume * 100)));
}

// A speaker in `box` with as many waves as the volume is loud, or a cross when muted.
void paintSpeaker(QPainter& painter, const QRectF& box, double volume, bool muted)
{
    double unit = box.height();
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath body;
    body.moveTo(box.left(), box.top() + unit * 0.35);
    body.lineTo(box.left() + unit * 0.22, box.top() + unit * 0.35);
    body.lineTo(box.left() + unit * 0.5, box.top() + unit * 0.1);
    body.lineTo(box.left() + unit * 0.5, box.top() + unit * 0.9);
    body.lineTo(box.left() + unit * 0.22, box.top() + unit * 0.65);
    body.lineTo(box.left(), box.top() + unit * 0.65);
    body.closeSubpath();
    painter.setPen(Qt::NoPen);
    painter.setBrush(ink);
    painter.drawPath(body);
    double stroke = std::max(1.0, unit * 0.08);
    QPointF centre(box.left() + unit * 0.45, box.center().y());
    if (muted) {
        painter.setPen(QPen(ink, stroke, Qt::SolidLine, Qt::RoundCap));
        QPointF cross(box.left() + unit * 0.82, box.center().y());
        double arm = unit * 0.14;
        painter.drawLine(cross + QPointF(-arm, -arm), cross + QPointF(arm, arm));
        painter.drawLine(cross + QPointF(-arm, arm), cross + QPointF(arm, -arm));
    } else {
        int waves = volume <= 0 ? 0 : volume < 0.34 ? 1 : volume < 0.67 ? 2 : 3;
        for (int wave = 0; wave < 3; ++wave) {
            double radius = unit * (0.2 + 0.16 * wave);
            painter.setPen(QPen(wave < waves ? ink : QColor(255, 255, 255, 50), stroke, Qt::SolidLine, Qt::RoundCap));
            painter.drawArc(QRectF(centre.x() - radius, centre.y() - radius, 2 * radius, 2 * radius), -45 * 16, 90 * 16);
        }
    }
    painter.restore();
}

void paintMicrophone(QPainter& painter, const QRectF& box, const QColor& colour, bool muted)
{
    double unit = box.height();
    double stroke = std::max(1.0, unit * 0.09);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    QRectF capsule(box.center().x() - unit * 0.16, box.top(), unit * 0.32, unit * 0.6);
    painter.setPen(Qt::NoPen);
    painter.setBrush(colour);
    painter.drawRoundedRect(capsule, capsule.width() / 2, capsule.width() / 2);
    painter.setPen(QPen(colour, stroke, Qt::SolidLine, Qt::RoundCap));
    painter.setBrush(Qt::NoBrush);
    QRectF cradle(box.center().x() - unit * 0.3, box.top() + unit * 0.15, unit * 0.6, unit * 0.6);
    painter.drawArc(cradle, 180 * 16, 180 * 16);
    painter.drawLine(QPointF(box.center().x(), cradle.bottom()), QPointF(box.center().x(), box.bottom() - stroke / 2));
    if (muted) {
        painter.setPen(QPen(stateColour::trouble(), stroke * 1.2, Qt::SolidLine, Qt::RoundCap));
        painter.drawLine(QPointF(box.center().x() - unit * 0.38, box.top() + unit * 0.05), QPointF(box.center().x() + unit * 0.38, box.bottom() - unit * 0.05));
    }
    painter.restore();
}

void paintCamera(QPainter& painter, const QRectF& box, const QColor& colour)
{
    double unit = box.height();
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(colour);
    QRectF body(box.left(), box.top() + unit * 0.22, box.width() * 0.68, unit * 0.56);
    painter.drawRoundedRect(body, unit * 0.1, unit * 0.1);
    QPainterPath lens;
    lens.moveTo(body.right() + unit * 0.04, box.center().y());
    lens.lineTo(box.right(), box.top() + unit * 0.22);
    lens.lineTo(box.right(), box.bottom() - unit * 0.22);
    lens.closeSubpath();
    painter.drawPath(lens);
    painter.restore();
}

std::string holderOf(const void* owner, const char* what)
{
    return std::string(what) + "-" + std::to_string(reinterpret_cast<uintptr_t>(owner));
}

} // namespace

SoundWidget::SoundWidget(WidgetInstance instance, WidgetMonitors& monitors) : WidgetTile(std::move(instance)), monitors_(monitors)
{
    watch_ = monitors_.addObserver(WidgetMonitors::Source::sound, [this] { tellChanged(); });
}

SoundWidget::~SoundWidget()
{
    monitors_.removeObserver(WidgetMonitors::Source::sound, watch_);
    if (shown_)
        monitors_.sound().setWanted(holderOf(this, "sound"), false);
}

void SoundWidget::shownChanged()
{
    monitors_.sound().setWanted(holderOf(this, "sound"), shown_);
}

double SoundWidget::length(double iconSize) const
{
    const SoundState& state = monitors_.sound().state();
    if (!state.problem.empty())
        return widgetface::linesLength(iconSize, QStringLiteral("Sound"), QStringLiteral("Unavailable"), true);
    if (iconSize < linesFrom)
        return std::ceil(widgetface::inset(iconSize) * 0.8 + iconSize * 0.6 * 1.05
                         + widgetface::linesLength(iconSize, QString(), QStringLiteral("100\u2009%"), false));
    double speaker = iconSize * 0.55;
    return std::ceil(widgetface::inset(iconSize) + speaker
                     + std::min(widgetface::linesLength(iconSize, text(state.output), QStringLiteral("100\u2009%"), false), iconSize * 2.6));
}

void SoundWidget::paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const
{
    widgetface::paintPlate(painter, tile, context);
    const SoundState& state = monitors_.sound().state();
    double size = tile.height();
    // The whole sentence is read out and shown on hover; the tile's width would cut it short.
    if (!state.problem.empty()) {
        widgetface::paintLines(painter, tile, QStringLiteral("Sound"), QStringLiteral("Unavailable"), stateColour::trouble());
        return;
    }
    double pad = widgetface::inset(size);
    double glyph = size * (size < linesFrom ? 0.6 : 0.44);
    paintSpeaker(painter, QRectF(tile.left() + pad * 0.8, tile.center().y() - glyph / 2, glyph, glyph), state.volume, state.muted);
    QRectF rest = tile.adjusted(pad * 0.8 + glyph * 1.05, 0, 0, 0);
    if (size < linesFrom) {
        widgetface::paintLines(painter, rest, QString(), state.ready ? volumeText(state) : QStringLiteral("…"));
        return;
    }
    widgetface::paintLines(painter, rest, state.ready ? text(state.output) : QStringLiteral("Sound"), state.ready ? volumeText(state) : QStringLiteral("…"));
}

std::string SoundWidget::accessibleText() const
{
    const SoundState& state = monitors_.sound().state();
    if (!state.problem.empty())
        return "Sound, " + state.problem;
    if (!state.ready)
        return "Sound";
    return "Sound, " + state.output + ", " + volumeText(state).toStdString();
}

bool SoundWidget::pressed(QPointF)
{
    const SoundState& state = monitors_.sound().state();
    if (!state.ready || !state.problem.empty())
        return false;
    monitors_.sound().setMuted(!state.muted);
    return true;
}

bool SoundWidget::scrolled(double steps)
{
    const SoundState& state = monitors_.sound().state();
    if (!state.ready || !state.problem.empty())
        return false;
    // A wheel turned while muted turns the sound back on, as the desktop's own control does.
    if (state.muted && steps > 0)
        monitors_.sound().setMuted(false);
    monitors_.sound().setVolume(std::clamp(std::round((state.volume + steps * step) / 0.01) * 0.01, 0.0, 1.0));
    return true;
}

namespace {

class SoundCard final : public QWidget {
public:
    explicit SoundCard(WidgetMonitors& monitors) : monitors_(monitors)
    {
        auto* layout = new QVBoxLayout(this);
        layout->setContentsMargins(0, 0, 0, 0);
        status_ = new QLabel;
        status_->setAccessibleName(QStringLiteral("Status"));
        status_->setWordWrap(true);
        volume_ = new QSlider(Qt::Horizontal);
        volume_->setRange(0, 100);
        volume_->setAccessibleName(QStringLiteral("Volume"));
        mute_ = new QCheckBox(QStringLiteral("Mute"));
        outputs_ = new QListWidget;
        outputs_->setAccessibleName(QStringLiteral("Output"));
        outputs_->setMaximumHeight(120);
        layout->addWidget(status_);
        layout->addWidget(volume_);
        layout->addWidget(mute_);
        layout->addWidget(new QLabel(QStringLiteral("Output")));
        layout->addWidget(outputs_);
        QObject::connect(volume_, &QSlider::valueChanged, this, [this](int value) { monitors_.sound().setVolume(value / 100.0); });
        QObject::connect(mute_, &QCheckBox::clicked, this, [this](bool on) { monitors_.sound().setMuted(on); });
        QObject::connect(outputs_, &QListWidget::itemClicked, this, [this](QListWidgetItem* item) {
            monitors_.sound().setOutput(item->data(Qt::UserRole).toString().toStdString());
        });
        watch_ = monitors_.addObserver(WidgetMonitors::Source::sound, [this] { fill(); });
        monitors_.sound().setWanted(holderOf(this, "sound-card"), true);
        fill();
    }

    ~SoundCard() override
    {
        monitors_.sound().setWanted(holderOf(this, "sound-card"), false);
        monitors_.removeObserver(WidgetMonitors::Source::sound, watch_);
    }

private:
    void fill()
    {
        const SoundState& state = monitors_.sound().state();
        status_->setText(!state.problem.empty() ? text(state.problem) : state.ready ? text(state.output) : QStringLiteral("Connecting…"));
        bool usable = state.ready && state.problem.empty();
        for (QWidget* control : std::initializer_list<QWidget*> { volume_, mute_, outputs_ })
            control->setEnabled(usable);
        QSignalBlocker quiet(volume_);
        // Not while the slider is held: the server's echo would fight the hand.
        if (!volume_->isSliderDown())
            volume_->setValue(static_cast<int>(std::lround(state.volume * 100)));
        mute_->setChecked(state.muted);
        outputs_->clear();
        for (const SoundDevice& device : state.outputs) {
            auto* item = new QListWidgetItem(text(device.description), outputs_);
            item->setData(Qt::UserRole, text(device.name));
            if (device.description == state.output)
                item->setSelected(true);
        }
    }

    WidgetMonitors& monitors_;
    QLabel* status_ = nullptr;
    QSlider* volume_ = nullptr;
    QCheckBox* mute_ = nullptr;
    QListWidget* outputs_ = nullptr;
    uint64_t watch_ = 0;
};

} // namespace

QWidget* SoundWidget::makeCard()
{
    return new SoundCard(monitors_);
}

MicCameraWidget::MicCameraWidget(WidgetInstance instance, WidgetMonitors& monitors) : WidgetTile(std::move(instance)), monitors_(monitors)
{
    soundWatch_ = monitors_.addObserver(WidgetMonitors::Source::sound, [this] { tellChanged(); });
    cameraWatch_ = monitors_.addObserver(WidgetMonitors::Source::cameras, [this] { tellChanged(); });
}

MicCameraWidget::~MicCameraWidget()
{
    monitors_.removeObserver(WidgetMonitors::Source::sound, soundWatch_);
    monitors_.removeObserver(WidgetMonitors::Source::cameras, cameraWatch_);
    if (shown_) {
        monitors_.sound().setWanted(holderOf(this, "mic"), false);
        monitors_.cameras().setWanted(holderOf(this, "mic"), false);
    }
}

void MicCameraWidget::shownChanged()
{
    monitors_.sound().setWanted(holderOf(this, "mic"), shown_);
    monitors_.cameras().setWanted(holderOf(this, "mic"), shown_);
}

void MicCameraWidget::paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const
{
    widgetface::paintPlate(painter, tile, context);
    const SoundState& state = monitors_.sound().state();
    double size = tile.height();
    double glyph = size * 0.46;
    QRectF left(tile.left(), tile.top(), tile.width() / 2, size);
    QRectF right(tile.center().x(), tile.top(), tile.width() / 2, size);
    bool recording = !state.recording.empty();
    // In use: the colours other systems give a live microphone and camera.
    paintMicrophone(painter, QRectF(left.center().x() - glyph / 2, left.center().y() - glyph / 2, glyph, glyph),
                    recording ? stateColour::waiting() : idle, state.microphoneMuted);
    paintCamera(painter, QRectF(right.center().x() - glyph * 0.6, right.center().y() - glyph / 2, glyph * 1.2, glyph),
                monitors_.cameras().inUse() ? stateColour::good() : idle);
}

std::string MicCameraWidget::accessibleText() const
{
    const SoundState& state = monitors_.sound().state();
    std::string said = "Mic & Camera, microphone ";
    if (!state.problem.empty())
        said += "not known";
    else if (!state.recording.empty())
        said += "in use by " + state.recording.front();
    else
        said += "not in use";
    if (state.microphoneMuted)
        said += ", muted";
    said += monitors_.cameras().inUse() ? ", camera in use" : ", camera not in use";
    return said;
}

bool MicCameraWidget::pressed(QPointF)
{
    const SoundState& state = monitors_.sound().state();
    if (!state.ready || !state.problem.empty() || state.microphone.empty())
        return false;
    monitors_.sound().setMicrophoneMuted(!state.microphoneMuted);
    return true;
}

QWidget* MicCameraWidget::makeCard()
{
    auto* card = new QWidget;
    auto* layout = new QVBoxLayout(card);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* said = new QLabel;
    said->setAccessibleName(QStringLiteral("In use"));
    said->setWordWrap(true);
    auto* mute = new QPushButton;
    auto show = [&monitors = monitors_, said, mute] {
        const SoundState& state = monitors.sound().state();
        QStringList lines;
        if (!state.problem.empty())
            lines << text(state.problem);
        else if (state.recording.empty())
            lines << QStringLiteral("No program is using a microphone");
        else
            for (const std::string& program : state.recording)
                lines << text(program) + QStringLiteral(" is using the microphone");
        lines << (!monitors.cameras().isWatching() ? QStringLiteral("Cameras can’t be watched on this computer")
                  : monitors.cameras().inUse()     ? QStringLiteral("A camera is in use")
                                                   : QStringLiteral("No camera is in use"));
        said->setText(lines.join(QLatin1Char('\n')));
        mute->setText(state.microphoneMuted ? QStringLiteral("Unmute Microphone") : QStringLiteral("Mute Microphone"));
        mute->setEnabled(state.ready && state.problem.empty() && !state.microphone.empty());
    };
    QObject::connect(mute, &QPushButton::clicked, card, [&monitors = monitors_] {
        monitors.sound().setMicrophoneMuted(!monitors.sound().state().microphoneMuted);
    });
    std::string holder = holderOf(card, "mic-card");
    monitors_.sound().setWanted(holder, true);
    monitors_.cameras().setWanted(holder, true);
    uint64_t soundWatch = monitors_.addObserver(WidgetMonitors::Source::sound, show);
    uint64_t cameraWatch = monitors_.addObserver(WidgetMonitors::Source::cameras, show);
    QObject::connect(card, &QObject::destroyed, [&monitors = monitors_, soundWatch, cameraWatch, holder] {
        monitors.removeObserver(WidgetMonitors::Source::sound, soundWatch);
        monitors.removeObserver(WidgetMonitors::Source::cameras, cameraWatch);
        monitors.sound().setWanted(holder, false);
        monitors.cameras().setWanted(holder, false);
    });
    show();
    layout->addWidget(said);
    layout->addWidget(mute, 0, Qt::AlignLeft);
    return card;
}

} // namespace kestrune
