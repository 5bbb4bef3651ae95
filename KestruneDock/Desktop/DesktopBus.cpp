#include "KestruneDock/Desktop/DesktopBus.h"

#include <optional>

#include <QCoreApplication>
#include <QDBusPendingCallWatcher>
#include <QPointer>
#include <QTimer>

namespace kestrune {

namespace {

std::optional<QDBusConnection>& chosen()
{
    static std::optional<QDBusConnection> bus;
    return bus;
}

} // namespace

QDBusConnection systemServicesBus()
{
    if (!chosen())
        chosen() = QDBusConnection::systemBus();
    return *chosen();
}

void setSystemServicesBus(const QDBusConnection& bus)
{
    chosen() = bus;
}

void callThen(const QDBusConnection& bus, const QDBusMessage& call, int timeoutMilliseconds, QObject* context,
              std::function<void(const QDBusMessage&)> then)
{
    QObject* owner = context ? context : QCoreApplication::instance();
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, timeoutMilliseconds), owner);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, owner, [then = std::move(then)](QDBusPendingCallWatcher* finished) {
        then(finished->reply());
        // A zero timer, not deleteLater: that one waits for an outer event loop that may never come.
        // Its owner may have taken it along meanwhile.
        QTimer::singleShot(0, QCoreApplication::instance(), [watcher = QPointer<QDBusPendingCallWatcher>(finished)] { delete watcher.data(); });
    });
}

} // namespace kestrune
