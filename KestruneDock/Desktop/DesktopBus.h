#pragma once
// The bus the desktop's system services answer on (logind, UPower, UDisks2, NetworkManager): the
// system bus, unless a test hands over a bus of its own with stand-ins of those services; and
// calls on a bus whose answer comes later, on the main thread.
//
//   QDBusConnection bus = systemServicesBus();
//   callThen(bus, call, 5000, this, [](const QDBusMessage& reply) { … });
//
// Main thread only.

#include <functional>

#include <QDBusConnection>
#include <QDBusMessage>

class QObject;

namespace kestrune {

[[nodiscard]] QDBusConnection systemServicesBus();
void setSystemServicesBus(const QDBusConnection& bus);

// `then` gets the answer, or the error; it never runs if `context` goes first. Without a context the
// call belongs to the application until answered, so that none is left behind at exit.
void callThen(const QDBusConnection& bus, const QDBusMessage& call, int timeoutMilliseconds, QObject* context,
              std::function<void(const QDBusMessage&)> then);

} // namespace kestrune
