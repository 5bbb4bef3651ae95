#pragma once
// A D-Bus bus of the test's own with python-dbusmock's templates on it (logind, UPower,
// NetworkManager …), served as the system bus those services live on, and a Qt connection to it.
//
//   test::MockBus bus;
//   ASSERT_TRUE(bus.serve("upower", "org.freedesktop.UPower"));
//   bus.mock("org.freedesktop.UPower", "/org/freedesktop/UPower", "AddDischargingBattery", { … });

#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <gtest/gtest.h>

#include "KestruneKit/Core/Environment.h"
#include "KestruneKit/Process/ChildProcess.h"
#include "tests/helpers/QtSpin.h"
#include "tests/helpers/Spawn.h"

namespace kestrune::test {

class MockBus {
public:
    MockBus()
    {
        ChildProcessOptions daemon;
        daemon.executable = "/usr/bin/dbus-daemon";
        daemon.arguments = { "--session", "--nofork", "--print-address=1" };
        daemon.error = ChildStream::nullDevice;
        bus_ = spawn(daemon);
        if (!bus_)
            return;
        std::string line;
        (void)readUntil(bus_->outputFd(), line, "\n", 10);
        address = line.substr(0, line.find('\n'));
        name_ = "mock-bus-" + std::to_string(reinterpret_cast<uintptr_t>(this));
        connection = std::make_unique<QDBusConnection>(QDBusConnection::connectToBus(QString::fromStdString(address), QString::fromStdString(name_)));
    }

    ~MockBus()
    {
        QDBusConnection::disconnectFromBus(QString::fromStdString(name_));
        for (auto& mock : mocks_) {
            mock->signal(SIGTERM);
            mock->wait();
        }
        if (bus_) {
            bus_->signal(SIGTERM);
            bus_->wait();
        }
    }

    [[nodiscard]] static bool available() { return isExecutableFile("/usr/bin/dbus-daemon") && isExecutableFile("/usr/bin/python3"); }

    // Starts `templateName`'s mock and waits for `service` to be on the bus.
    bool serve(const std::string& templateName, const QString& service, const std::string& parameters = {})
    {
        std::vector<std::string> arguments = { "-m", "dbusmock", "--template", templateName };
        if (!parameters.empty())
            arguments.insert(arguments.end(), { "--parameters", parameters });
        return run("/usr/bin/python3", arguments, service);
    }

    // Starts a real service with this bus as its session and system bus, and waits for `service`.
    bool run(const std::string& executable, const std::vector<std::string>& arguments, const QString& service)
    {
        if (!connection || !connection->isConnected())
            return false;
        ChildProcessOptions options;
        options.executable = executable;
        options.arguments = arguments;
        Environment environment = processEnvironment();
        environment["DBUS_SYSTEM_BUS_ADDRESS"] = address;
        environment["DBUS_SESSION_BUS_ADDRESS"] = address;
        options.environment = environment;
        options.output = ChildStream::nullDevice;
        options.error = ChildStream::nullDevice;
        auto started = spawn(options);
        if (!started)
            return false;
        mocks_.push_back(std::move(started));
        return spinUntil([&] { return connection->interface()->isServiceRegistered(service).value(); });
    }

    // A call; fails the test when it fails.
    QDBusMessage call(const QString& service, const QString& path, const QString& interface, const QString& method,
                      const QVariantList& arguments = {})
    {
        QDBusMessage message = QDBusMessage::createMethodCall(service, path, interface, method);
        message.setArguments(arguments);
        QDBusMessage reply = connection->call(message);
        EXPECT_NE(reply.type(), QDBusMessage::ErrorMessage) << method.toStdString() << ": " << reply.errorMessage().toStdString();
        return reply;
    }

    // A call on the mock's own interface (AddObject, EmitSignal, GetCalls …).
    QDBusMessage mock(const QString& service, const QString& path, const QString& method, const QVariantList& arguments = {})
    {
        return call(service, path, QStringLiteral("org.freedesktop.DBus.Mock"), method, arguments);
    }

    // How many times `method` of the mock at `path` has been called.
    int callsOf(const QString& service, const QString& path, const QString& method)
    {
        const QDBusArgument calls = mock(service, path, QStringLiteral("GetMethodCalls"), { method }).arguments().value(0).value<QDBusArgument>();
        // Every element is read: QtDBus keeps the reply alive if an array is closed half read.
        int count = 0;
        calls.beginArray();
        while (!calls.atEnd()) {
            qulonglong when = 0;
            QVariantList arguments;
            calls.beginStructure();
            calls >> when >> arguments;
            calls.endStructure();
            ++count;
        }
        calls.endArray();
        return count;
    }

    std::string address;
    std::unique_ptr<QDBusConnection> connection;

private:
    std::string name_;
    std::unique_ptr<ChildProcess> bus_;
    std::vector<std::unique_ptr<ChildProcess>> mocks_;
};

} // namespace kestrune::test
