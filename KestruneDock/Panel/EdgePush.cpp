#include "KestruneDock/Panel/EdgePush.h"

#include <QCursor>

namespace kestrune {

void EdgePush::place(const QRectF& strip, double scale, DockEdge edge)
{
    if (!trigger_)
        trigger_ = dockwindow::makeEdgeTrigger([this](QPointF global) { moved(global); }, [this] {
            dwell_.reset();
            dwellTimer_.cancel();
        });
    strip_ = strip;
    edge_ = edge;
    trigger_->place(strip, scale);
}

void EdgePush::remove()
{
    dwellTimer_.cancel();
    dwell_.reset();
    if (trigger_)
        trigger_->remove();
}

void EdgePush::moved(QPointF global)
{
    double axis = edge_ == DockEdge::bottom ? global.x() : global.y();
    Date now = runtime_.now();
    if (dwell_.sample(axis, now)) {
        remove();
        pushed_();
        return;
    }
    // A pointer that stays sends no more moves: look again when it will have stayed long enough.
    if (auto due = dwell_.due())
        dwellTimer_ = runtime_.schedule(secondsBetween(now, *due) + Seconds(0.01), TimerRepeat::once, Seconds(0), [this] {
            QPointF pointer = QCursor::pos();
            if (strip_.adjusted(-1, -1, 1, 1).contains(pointer))
                moved(pointer);
        });
}

} // namespace kestrune
