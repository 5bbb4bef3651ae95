#pragma once
// OVERVIEW
// The batteries UPower knows, as the desktop's own battery indicator shows them: the machine's
// batteries and whether it runs on them, and accessories' (mouse, keyboard, headphones …). Read
// over D-Bus when first wanted, then again on each change UPower announces (a device added or
// removed, a property changed), and not at all while nothing wants it.
//
// TYPICAL USAGE
//   BatteryMonitor monitor(systemServicesBus());
//   monitor.onChange = [&] { redraw(monitor.reading()); };
//   monitor.setWanted(tileId, true);
//
// Main thread only; every call is asynchronous.

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QString>

#include "KestruneKit/Core/Holders.h"

namespace kestrune {

struct BatteryDevice {
    QString path;
    QString model;
    uint32_t type = 0;        // UPower's device kind: 2 a battery, 5 a mouse, 6 a keyboard …
    double percentage = 0;    // 0 to 100
    uint32_t state = 0;       // 1 charging, 2 discharging, 4 full …
    int64_t timeToEmpty = 0;  // seconds, 0 when not known
    int64_t timeToFull = 0;
    bool powerSupply = false; // powers the machine itself

    [[nodiscard]] bool charging() const { return state == 1 || state == 5; }
    [[nodiscard]] bool full() const { return state == 4; }
    // "Mouse", "Keyboard", "Headphones", "Battery" …
    [[nodiscard]] QString kindName() const;
    bool operator==(const BatteryDevice&) const = default;
};

struct BatteryReading {
    // None until UPower has answered once.
    bool known = false;
    // Why nothing can be read, in a sentence; empty when all is well.
    QString problem;
    bool onBattery = false;
    std::vector<BatteryDevice> batteries;
    std::vector<BatteryDevice> accessories;
    bool operator==(const BatteryReading&) const = default;
};

// The devices of an answer to UPower's GetAll, sorted into the machine's and accessories'.
void sortDevice(const BatteryDevice& device, BatteryReading& reading);

class BatteryMonitor final : public QObject {
    Q_OBJECT
public:
    explicit BatteryMonitor(QDBusConnection bus);
    ~BatteryMonitor() override;

    void setWanted(const std::string& holder, bool wanted);
    [[nodiscard]] bool isWanted() const { return holders_.any(); }
    [[nodiscard]] const BatteryReading& reading() const { return reading_; }
    std::function<void()> onChange;

private Q_SLOTS:
    void somethingChanged(const QDBusMessage& message);

private:
    void read();
    void listen(bool on);
    void publish(BatteryReading reading);

    QDBusConnection bus_;
    Holders holders_;
    BatteryReading reading_;
    bool underWay_ = false;
    bool again_ = false;
    uint64_t generation_ = 0;
};

} // namespace kestrune
