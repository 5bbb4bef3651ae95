#pragma once
// OVERVIEW
// Badges as Linux apps send them: the com.canonical.Unity.LauncherEntry "Update" signal, from any
// object on the session bus, with the app's desktop entry and what changed (count, progress,
// urgent, each with its "-visible" switch). Keeps each app's badge and says when one changes.
//
// TYPICAL USAGE
//   LauncherEntryWatch badges([&](const std::string& id, const DockBadge& badge) { show(id, badge); });
//
// Main thread only. Without a session bus there are no badges.

#include <functional>
#include <map>
#include <string>

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include "KestruneDock/Dock/DockBadge.h"

namespace kestrune {

class LauncherEntryWatch final : public QObject {
    Q_OBJECT
public:
    using Changed = std::function<void(const std::string& desktopId, const DockBadge& badge)>;
    explicit LauncherEntryWatch(Changed changed, QDBusConnection bus = QDBusConnection::sessionBus());

    [[nodiscard]] bool isWatching() const { return watching_; }
    [[nodiscard]] const std::map<std::string, DockBadge>& badges() const { return badges_; }

private Q_SLOTS:
    void update(const QString& appUri, const QVariantMap& properties);

private:
    Changed changed_;
    bool watching_ = false;
    std::map<std::string, DockBadge> badges_;
    // What the app said last, visible or not: a "-visible" switch alone shows it again.
    std::map<std::string, QVariantMap> said_;
};

} // namespace kestrune
