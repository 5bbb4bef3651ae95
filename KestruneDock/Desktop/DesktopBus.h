#pragma once
// The bus the desktop's system services answer on (logind, UPower, UDisks2, NetworkManager): the
// system bus, unless a test hands over a bus of its own with stand-ins of those services.
//
//   QDBusConnection bus = systemServicesBus();
//
// Main thread only.

#include <QDBusConnection>

namespace kestrune {

[[nodiscard]] QDBusConnection systemServicesBus();
void setSystemServicesBus(const QDBusConnection& bus);

} // namespace kestrune
