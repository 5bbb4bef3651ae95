#include "KestruneDock/PowerWidgets/BatteryMonitor.h"

#include <memory>

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QPointer>

#include "KestruneDock/Desktop/DesktopBus.h"

namespace kestrune {

namespace {

const QString upower = QStringLiteral("org.freedesktop.UPower");
const QString upowerPath = QStringLiteral("/org/freedesktop/UPower");
const QString deviceInterface = QStringLiteral("org.freedesktop.UPower.Device");
const QString properties = QStringLiteral("org.freedesktop.DBus.Properties");

QString problemOf(const QDBusMessage& reply)
{
    if (reply.errorName() == QStringLiteral("org.freedesktop.DBus.Error.ServiceUnknown")
        || reply.errorName() == QStringLiteral("org.freedesktop.DBus.Error.NameHasNoOwner"))
        return QStringLiteral("UPower isn’t running, so batteries can’t be read");
    if (reply.errorName() == QStringLiteral("org.freedesktop.DBus.Error.Disconnected"))
        return QStringLiteral("There’s no system bus, so batteries can’t be read");
    return QStringLiteral("UPower didn’t answer: %1").arg(reply.errorMessage());
}

BatteryDevice deviceFrom(const QString& path, const QVariantMap& values)
{
    BatteryDevice device;
    device.path = path;
    device.model = values.value(QStringLiteral("Model")).toString();
    device.type = values.value(QStringLiteral("Type")).toUInt();
    device.percentage = values.value(QStringLiteral("Percentage")).toDouble();
    device.state = values.value(QStringLiteral("State")).toUInt();
    device.timeToEmpty = values.value(QStringLiteral("TimeToEmpty")).toLongLong();
    device.timeToFull = values.value(QStringLiteral("TimeToFull")).toLongLong();
    device.powerSupply = values.value(QStringLiteral("PowerSupply")).toBool();
    // A battery slot with nothing in it.
    if (values.contains(QStringLiteral("IsPresent")) && !values.value(QStringLiteral("IsPresent")).toBool() && device.type == 2)
        device.type = 0;
    return device;
}

} // namespace

QString BatteryDevice::kindName() const
{
    switch (type) {
    case 2: return QStringLiteral("Battery");
    case 3: return QStringLiteral("UPS");
    case 5: return QStringLiteral("Mouse");
    case 6: return QStringLiteral("Keyboard");
    case 8: return QStringLiteral("Phone");
    case 10: return QStringLiteral("Tablet");
    case 12: return QStringLiteral("Controller");
    case 13: return QStringLiteral("Pen");
    case 14: return QStringLiteral("Trackpad");
    case 17: return QStringLiteral("Headset");
    case 18: return QStringLiteral("Speaker");
    case 19: return QStringLiteral("Headphones");
    case 22: return QStringLiteral("Remote");
    case 26: return QStringLiteral("Watch");
    default: return QStringLiteral("Device");
    }
}

void sortDevice(const BatteryDevice& device, BatteryReading& reading)
{
    // Line power (1) and the display device's summary (0) are not batteries of their own.
    if (device.type == 0 || device.type == 1)
        return;
    if (device.type == 2 && device.powerSupply)
        reading.batteries.push_back(device);
    else
        reading.accessories.push_back(device);
}

BatteryMonitor::BatteryMonitor(QDBusConnection bus) : bus_(std::move(bus)) {}

BatteryMonitor::~BatteryMonitor()
{
    if (isWanted())
        listen(false);
}

void BatteryMonitor::setWanted(const std::string& holder, bool wanted)
{
    if (!holders_.set(holder, wanted))
        return;
    listen(isWanted());
    if (isWanted())
        read();
    else
        ++generation_;
}

void BatteryMonitor::listen(bool on)
{
    struct Signal {
        QString path;
        QString interface;
        QString name;
    };
    // Every device's property changes: an empty path matches them all.
    const Signal watched[] = {
        { upowerPath, upower, QStringLiteral("DeviceAdded") },
        { upowerPath, upower, QStringLiteral("DeviceRemoved") },
        { QString(), properties, QStringLiteral("PropertiesChanged") },
    };
    for (const Signal& signal : watched) {
        if (on)
            bus_.connect(upower, signal.path, signal.interface, signal.name, this, SLOT(somethingChanged(QDBusMessage)));
        else
            bus_.disconnect(upower, signal.path, signal.interface, signal.name, this, SLOT(somethingChanged(QDBusMessage)));
    }
}

void BatteryMonitor::somethingChanged(const QDBusMessage&)
{
    if (isWanted())
        read();
}

void BatteryMonitor::read()
{
    // One reading at a time; a change during it asks for one more after.
    if (underWay_) {
        again_ = true;
        return;
    }
    underWay_ = true;
    again_ = false;
    uint64_t generation = generation_;
    auto finish = [this, generation](BatteryReading reading) {
        underWay_ = false;
        if (generation == generation_)
            publish(std::move(reading));
        if (again_ && isWanted())
            read();
    };
    if (!bus_.isConnected()) {
        BatteryReading reading;
        reading.known = true;
        reading.problem = QStringLiteral("There’s no system bus, so batteries can’t be read");
        finish(std::move(reading));
        return;
    }
    QDBusMessage onBattery = QDBusMessage::createMethodCall(upower, upowerPath, properties, QStringLiteral("Get"));
    onBattery.setArguments({ upower, QStringLiteral("OnBattery") });
    callThen(bus_, onBattery, 5000, this, [this, finish](const QDBusMessage& power) {
        if (power.type() == QDBusMessage::ErrorMessage) {
            BatteryReading reading;
            reading.known = true;
            reading.problem = problemOf(power);
            return finish(std::move(reading));
        }
        auto reading = std::make_shared<BatteryReading>();
        reading->known = true;
        reading->onBattery = qdbus_cast<QDBusVariant>(power.arguments().value(0)).variant().toBool();
        QDBusMessage enumerate = QDBusMessage::createMethodCall(upower, upowerPath, upower, QStringLiteral("EnumerateDevices"));
        callThen(bus_, enumerate, 5000, this, [this, finish, reading](const QDBusMessage& devices) {
            if (devices.type() == QDBusMessage::ErrorMessage) {
                reading->problem = problemOf(devices);
                return finish(*reading);
            }
            QList<QDBusObjectPath> paths = qdbus_cast<QList<QDBusObjectPath>>(devices.arguments().value(0));
            auto left = std::make_shared<int>(static_cast<int>(paths.size()));
            if (*left == 0)
                return finish(*reading);
            for (const QDBusObjectPath& path : paths) {
                QDBusMessage all = QDBusMessage::createMethodCall(upower, path.path(), properties, QStringLiteral("GetAll"));
                all.setArguments({ deviceInterface });
                callThen(bus_, all, 5000, this, [finish, reading, left, path = path.path()](const QDBusMessage& answer) {
                    if (answer.type() != QDBusMessage::ErrorMessage)
                        sortDevice(deviceFrom(path, qdbus_cast<QVariantMap>(answer.arguments().value(0))), *reading);
                    if (--*left == 0) {
                        auto byPath = [](const BatteryDevice& a, const BatteryDevice& b) { return a.path < b.path; };
                        std::sort(reading->batteries.begin(), reading->batteries.end(), byPath);
                        std::sort(reading->accessories.begin(), reading->accessories.end(), byPath);
                        finish(*reading);
                    }
                });
            }
        });
    });
}

void BatteryMonitor::publish(BatteryReading reading)
{
    if (reading == reading_)
        return;
    reading_ = std::move(reading);
    if (onChange)
        onChange();
}

} // namespace kestrune
