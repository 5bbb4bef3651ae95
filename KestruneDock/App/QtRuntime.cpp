#include "KestruneDock/App/QtRuntime.h"

#include <algorithm>
#include <climits>
#include <cmath>

#include <QCoreApplication>
#include <QMetaObject>
#include <QTimer>

namespace kestrune {

QtRuntime::QtRuntime() : context_(new QObject(QCoreApplication::instance())) {}

QtRuntime::~QtRuntime()
{
    // Timers still held by handles elsewhere go with the context; their handles only find a
    // token that nothing fires any more.
    delete context_.data();
}

Date QtRuntime::now() const { return std::chrono::system_clock::now(); }

void QtRuntime::post(std::function<void()> fn)
{
    // A queued call on an object of the main thread is the thread-safe way onto it; once the
    // context is gone (the app is ending), posted work is dropped.
    QObject* context = context_.data();
    if (!context)
        return;
    QMetaObject::invokeMethod(context, [fn = std::move(fn)] { fn(); }, Qt::QueuedConnection);
}

Qt::TimerType QtRuntime::timerType(Seconds tolerance)
{
    if (!(tolerance.count() > 0))
        return Qt::PreciseTimer;
    return tolerance.count() >= 1 ? Qt::VeryCoarseTimer : Qt::CoarseTimer;
}

TimerHandle QtRuntime::schedule(Seconds delay, TimerRepeat repeat, Seconds tolerance, std::function<void()> fn)
{
    auto token = std::make_shared<TimerToken>();
    if (!context_)
        return TimerHandle(token);
    double milliseconds = std::isfinite(delay.count()) ? std::ceil(delay.count() * 1000) : double(INT_MAX);
    auto* timer = new QTimer(context_.data());
    timer->setSingleShot(repeat == TimerRepeat::once);
    timer->setTimerType(timerType(tolerance));
    timer->setInterval(static_cast<int>(std::clamp(milliseconds, 0.0, double(INT_MAX))));
    QObject::connect(timer, &QTimer::timeout, timer, [timer, token, fn = std::move(fn)] {
        if (token->cancelled) {
            timer->deleteLater();
            return;
        }
        if (timer->isSingleShot())
            token->finished = true;
        // Deleted later, not now: this lambda and what it holds live in the timer.
        if (timer->isSingleShot())
            timer->deleteLater();
        fn();
    });
    token->onCancel = [timer = QPointer<QTimer>(timer)] {
        if (timer) {
            timer->stop();
            timer->deleteLater();
        }
    };
    timer->start();
    return TimerHandle(token);
}

int QtRuntime::liveTimers() const
{
    if (!context_)
        return 0;
    int count = 0;
    for (QTimer* timer : context_->findChildren<QTimer*>(Qt::FindDirectChildrenOnly))
        count += timer->isActive() ? 1 : 0;
    return count;
}

} // namespace kestrune
