#include "KestruneDock/PowerWidgets/KeepAwakeCenter.h"

#include <memory>

#include <xcb/screensaver.h>

#include <QDBusMessage>
#include <QDBusObjectPath>

#include "KestruneDock/Desktop/DesktopBus.h"
#include "KestruneDock/Desktop/X11Connection.h"

namespace kestrune {

namespace {

const QString login1 = QStringLiteral("org.freedesktop.login1");
const QString managerPath = QStringLiteral("/org/freedesktop/login1");
const QString managerInterface = QStringLiteral("org.freedesktop.login1.Manager");

// Suspending can take logind a while to answer; nothing waits on it.
constexpr int logindPatience = 25'000;

QString failureOf(const QDBusMessage& reply, const QString& doing)
{
    if (reply.type() != QDBusMessage::ErrorMessage)
        return {};
    if (reply.errorName() == QStringLiteral("org.freedesktop.DBus.Error.ServiceUnknown")
        || reply.errorName() == QStringLiteral("org.freedesktop.DBus.Error.Disconnected"))
        return QStringLiteral("Couldn’t %1: logind isn’t running on this computer").arg(doing);
    return QStringLiteral("Couldn’t %1: %2").arg(doing, reply.errorMessage());
}

} // namespace

KeepAwakeCenter::KeepAwakeCenter(QDBusConnection bus, xcb_connection_t* display)
    : bus_(std::move(bus)), display_(display ? display : x11::connection())
{
}

void KeepAwakeCenter::setOn(bool on)
{
    if (on == on_)
        return;
    on_ = on;
    ++request_;
    if (!on) {
        release();
        changed();
        return;
    }
    problem_.clear();
    suspendScreenSaver(true);
    QDBusMessage inhibit = QDBusMessage::createMethodCall(login1, managerPath, managerInterface, QStringLiteral("Inhibit"));
    inhibit.setArguments({ QStringLiteral("idle:sleep"), QStringLiteral("Kestrune Dock"), QStringLiteral("Keep Awake is on"), QStringLiteral("block") });
    uint64_t request = request_;
    auto alive = std::make_shared<bool>(true);
    alive_ = alive;
    callThen(bus_, inhibit, logindPatience, nullptr, [this, request, weak = std::weak_ptr<bool>(alive)](const QDBusMessage& reply) {
        // Turned off (or gone) while logind thought: the descriptor in the reply closes with it.
        if (weak.expired() || request != request_)
            return;
        problem_ = failureOf(reply, QStringLiteral("keep awake"));
        if (problem_.isEmpty())
            inhibitor_ = reply.arguments().value(0).value<QDBusUnixFileDescriptor>();
        changed();
    });
    changed();
}

void KeepAwakeCenter::release()
{
    alive_.reset();
    inhibitor_ = QDBusUnixFileDescriptor();
    suspendScreenSaver(false);
}

void KeepAwakeCenter::changed()
{
    if (onChange)
        onChange();
}

void KeepAwakeCenter::suspendScreenSaver(bool suspend)
{
    if (suspend == screenSaverSuspended_)
        return;
    if (!display_)
        return;
    screenSaverSuspended_ = suspend;
    xcb_screensaver_suspend(display_, suspend ? 1 : 0);
    xcb_flush(display_);
}

void lockScreen(const QDBusConnection& bus, std::function<void(const QString& failure)> done)
{
    QDBusMessage find = QDBusMessage::createMethodCall(login1, managerPath, managerInterface, QStringLiteral("GetSession"));
    find.setArguments({ qEnvironmentVariable("XDG_SESSION_ID", QStringLiteral("auto")) });
    callThen(bus, find, logindPatience, nullptr, [bus, done](const QDBusMessage& session) {
        if (QString failure = failureOf(session, QStringLiteral("lock the screen")); !failure.isEmpty())
            return done(failure);
        QString path = session.arguments().value(0).value<QDBusObjectPath>().path();
        QDBusMessage lock = QDBusMessage::createMethodCall(login1, path, QStringLiteral("org.freedesktop.login1.Session"), QStringLiteral("Lock"));
        callThen(bus, lock, logindPatience, nullptr, [done](const QDBusMessage& locked) { done(failureOf(locked, QStringLiteral("lock the screen"))); });
    });
}

void suspendMachine(const QDBusConnection& bus, std::function<void(const QString& failure)> done)
{
    QDBusMessage suspend = QDBusMessage::createMethodCall(login1, managerPath, managerInterface, QStringLiteral("Suspend"));
    // Interactive: logind may ask the user through polkit when the policy wants it.
    suspend.setArguments({ true });
    callThen(bus, suspend, logindPatience, nullptr, [done](const QDBusMessage& reply) { done(failureOf(reply, QStringLiteral("sleep"))); });
}

} // namespace kestrune
