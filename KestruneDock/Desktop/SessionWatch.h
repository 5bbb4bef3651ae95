#pragma once
// The process-wide pause on Linux: logind says when the system is about to sleep
// (PrepareForSleep) and whether the user's session is locked (LockedHint) or not the active one
// (Active, as when another user has the screen); each raises or lowers its reason on
// KestruneActivity, so that no monitor polls for a screen nobody can see.
//
//   SessionWatch watch(KestruneActivity::shared());    // the system bus
//
// Main thread only. Where there is no logind, nothing is ever paused.

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

namespace kestrune {

class KestruneActivity;

class SessionWatch final : public QObject {
    Q_OBJECT
public:
    // `session`: logind's session id ($XDG_SESSION_ID); "auto" is the caller's own session.
    explicit SessionWatch(KestruneActivity& activity, QDBusConnection bus = QDBusConnection::systemBus(),
        QString session = QString());
    ~SessionWatch() override;

    // The session's object path once logind has named it; empty until then or without logind.
    [[nodiscard]] const QString& sessionPath() const { return sessionPath_; }

private Q_SLOTS:
    void prepareForSleep(bool sleeping);
    void sessionPropertiesChanged(const QString& interface, const QVariantMap& changed, const QStringList& invalidated);

private:
    void watchSession(const QString& path);
    void apply(const QVariantMap& properties);

    KestruneActivity& activity_;
    QDBusConnection bus_;
    QString sessionPath_;
    bool active_ = true;
    bool locked_ = false;
};

} // namespace kestrune
