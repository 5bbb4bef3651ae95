#include "KestruneDock/Desktop/LauncherEntryWatch.h"

#include <algorithm>

namespace kestrune {

LauncherEntryWatch::LauncherEntryWatch(Changed changed, QDBusConnection bus) : changed_(std::move(changed))
{
    if (!bus.isConnected())
        return;
    watching_ = bus.connect(QString(), QString(), QStringLiteral("com.canonical.Unity.LauncherEntry"), QStringLiteral("Update"), this,
        SLOT(update(QString, QVariantMap)));
}

void LauncherEntryWatch::update(const QString& appUri, const QVariantMap& properties)
{
    auto id = desktopIdFromAppUri(appUri.toStdString());
    if (!id)
        return;
    QVariantMap& said = said_[*id];
    for (auto entry = properties.begin(); entry != properties.end(); ++entry)
        said[entry.key()] = entry.value();
    DockBadge badge;
    if (said.value(QStringLiteral("count-visible")).toBool() && said.contains(QStringLiteral("count")))
        badge.count = said.value(QStringLiteral("count")).toLongLong();
    if (badge.count && *badge.count < 1)
        badge.count.reset();
    if (said.value(QStringLiteral("progress-visible")).toBool() && said.contains(QStringLiteral("progress")))
        badge.progress = std::clamp(said.value(QStringLiteral("progress")).toDouble(), 0.0, 1.0);
    badge.urgent = said.value(QStringLiteral("urgent")).toBool();
    DockBadge& kept = badges_[*id];
    if (kept == badge)
        return;
    kept = badge;
    if (badge.empty())
        badges_.erase(*id);
    if (changed_)
        changed_(*id, badge);
}

} // namespace kestrune
