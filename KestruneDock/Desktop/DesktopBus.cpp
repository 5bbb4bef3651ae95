#include "KestruneDock/Desktop/DesktopBus.h"

#include <optional>

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

} // namespace kestrune
