#include "KestruneDock/Desktop/SessionWatch.h"

#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>

#include "KestruneKit/DevTools/KestruneActivity.h"

namespace kestrune {

namespace {

const QString service = QStringLiteral("org.freedesktop.login1");
const QString managerPath = QStringLiteral("/org/freedesktop/login1");
const QString managerInterface = QStringLiteral("org.freedesktop.login1.Manager");
const QString sessionInterface = QStringLiteral("org.freedesktop.login1.Session");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");

} // namespace

SessionWatch::SessionWatch(KestruneActivity& activity, QDBusConnection bus, QString session)
    : activity_(activity), bus_(std::move(bus))
{
    if (!bus_.isConnected())
        return;
    bus_.connect(service, managerPath, managerInterface, QStringLiteral("PrepareForSleep"), this, SLOT(prepareForSleep(bool)));
    if (session.isEmpty())
        session = qEnvironmentVariable("XDG_SESSION_ID", QStringLiteral("auto"));
    // Asked without waiting: the launch never stands still for the system bus.
    QDBusMessage call = QDBusMessage::createMethodCall(service, managerPath, managerInterface, QStringLiteral("GetSession"));
    call << session;
    auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* finished) {
        QDBusPendingReply<QDBusObjectPath> reply = *finished;
        if (!reply.isError())
            watchSession(reply.value().path());
        finished->deleteLater();
    });
}

SessionWatch::~SessionWatch()
{
    // The reasons this watch raised are its own to lower.
    activity_.lower(KestruneActivity::PauseReason::systemSleep);
    activity_.lower(KestruneActivity::PauseReason::sessionInactive);
}

void SessionWatch::watchSession(const QString& path)
{
    sessionPath_ = path;
    bus_.connect(service, path, propertiesInterface, QStringLiteral("PropertiesChanged"), this,
        SLOT(sessionPropertiesChanged(QString, QVariantMap, QStringList)));
    QDBusMessage call = QDBusMessage::createMethodCall(service, path, propertiesInterface, QStringLiteral("GetAll"));
    call << sessionInterface;
    auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* finished) {
        QDBusPendingReply<QVariantMap> reply = *finished;
        if (!reply.isError())
            apply(reply.value());
        finished->deleteLater();
    });
}

void SessionWatch::prepareForSleep(bool sleeping)
{
    if (sleeping)
        activity_.raise(KestruneActivity::PauseReason::systemSleep);
    else
        activity_.lower(KestruneActivity::PauseReason::systemSleep);
}

void SessionWatch::sessionPropertiesChanged(const QString& interface, const QVariantMap& changed, const QStringList&)
{
    if (interface == sessionInterface)
        apply(changed);
}

void SessionWatch::apply(const QVariantMap& properties)
{
    if (auto active = properties.find(QStringLiteral("Active")); active != properties.end())
        active_ = active->toBool();
    if (auto locked = properties.find(QStringLiteral("LockedHint")); locked != properties.end())
        locked_ = locked->toBool();
    if (!active_ || locked_)
        activity_.raise(KestruneActivity::PauseReason::sessionInactive);
    else
        activity_.lower(KestruneActivity::PauseReason::sessionInactive);
}

} // namespace kestrune
