#include "KestruneDock/Panel/DockPoof.h"

#include <cmath>
#include <numbers>

#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QScreen>
#include <QVariantAnimation>
#include <QWidget>

#include "KestruneDock/Panel/DockWindow.h"

namespace kestrune {

namespace {

constexpr int poofMilliseconds = 320;

class Poof final : public QWidget {
public:
    Poof(QRect rect, bool translucent) : translucent_(translucent)
    {
        setWindowFlags(Qt::ToolTip | Qt::FramelessWindowHint | Qt::WindowTransparentForInput
                       | Qt::X11BypassWindowManagerHint | Qt::WindowStaysOnTopHint);
        setAttribute(Qt::WA_TranslucentBackground, translucent);
        setAttribute(Qt::WA_ShowWithoutActivating);
        setAttribute(Qt::WA_DeleteOnClose);
        setGeometry(rect);
        if (!translucent) {
            // Without a compositor nothing blends: the puff is drawn over the screen's own copy.
            double ratio = screen() ? screen()->devicePixelRatio() : 1;
            backdrop_ = dockwindow::grabScreen(QRect((QPointF(rect.topLeft()) * ratio).toPoint(), (QSizeF(rect.size()) * ratio).toSize()));
            backdrop_.setDevicePixelRatio(ratio);
        }
        auto* animation = new QVariantAnimation(this);
        animation->setStartValue(0.0);
        animation->setEndValue(1.0);
        animation->setDuration(poofMilliseconds);
        QObject::connect(animation, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
            progress_ = value.toDouble();
            update();
        });
        QObject::connect(animation, &QVariantAnimation::finished, this, &QWidget::close);
        animation->start(QAbstractAnimation::DeleteWhenStopped);
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        if (!translucent_ && !backdrop_.isNull())
            painter.drawImage(QPointF(0, 0), backdrop_);
        double side = width();
        QPointF centre(side / 2, side / 2);
        int alpha = static_cast<int>(std::round(220 * (1 - progress_)));
        painter.setPen(Qt::NoPen);
        for (int cloud = 0; cloud < 5; ++cloud) {
            double angle = cloud * 2 * std::numbers::pi / 5 - std::numbers::pi / 2;
            double reach = side * (0.12 + 0.22 * progress_);
            double radius = side * (0.10 + 0.10 * progress_);
            QPointF at = centre + QPointF(std::cos(angle), std::sin(angle)) * reach;
            painter.setBrush(QColor(236, 238, 242, alpha));
            painter.drawEllipse(at, radius, radius);
        }
    }

private:
    bool translucent_;
    double progress_ = 0;
    QImage backdrop_;
};

} // namespace

void showPoof(QPointF global, double size)
{
    int side = static_cast<int>(std::ceil(size * 1.6));
    QRect rect(static_cast<int>(std::round(global.x())) - side / 2, static_cast<int>(std::round(global.y())) - side / 2, side, side);
    auto* poof = new Poof(rect, dockwindow::compositingActive());
    poof->show();
}

} // namespace kestrune
