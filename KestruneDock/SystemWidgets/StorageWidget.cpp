#include "KestruneDock/SystemWidgets/StorageWidget.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include "KestruneDock/Desktop/DesktopBus.h"
#include "KestruneDock/SystemWidgets/SystemStatsTile.h"
#include "KestruneKit/SystemStats/StorageMonitor.h"

namespace kestrune {

namespace {

const QString udisks = QStringLiteral("org.freedesktop.UDisks2");

QString text(const std::string& words)
{
    return QString::fromStdString(words);
}

double usedShare(const StorageVolume& volume)
{
    return volume.total ? 1.0 - static_cast<double>(volume.free) / static_cast<double>(volume.total) : 0;
}

// Calls `method` and hands the reply to `then` on the main thread when it comes.
void callThen(const QDBusConnection& bus, const QString& path, const QString& interface, const QString& method, const QVariantList& arguments,
              std::function<void(const QDBusMessage&)> then)
{
    QDBusMessage call = QDBusMessage::createMethodCall(udisks, path, interface, method);
    call.setArguments(arguments);
    // Unmounting waits for buffered writes to reach the stick: give it time.
    kestrune::callThen(bus, call, 120'000, nullptr, std::move(then));
}

QString failureOf(const QDBusMessage& reply, const QString& doing)
{
    if (reply.type() != QDBusMessage::ErrorMessage)
        return {};
    if (reply.errorName() == QStringLiteral("org.freedesktop.DBus.Error.ServiceUnknown"))
        return QStringLiteral("Couldn’t eject: UDisks2 isn’t running on this computer");
    if (reply.errorName().endsWith(QStringLiteral(".DeviceBusy")))
        return QStringLiteral("Couldn’t eject: a program is still using the drive");
    return QStringLiteral("Couldn’t %1: %2").arg(doing, reply.errorMessage());
}

} // namespace

void ejectDrive(const QDBusConnection& bus, const QString& device, std::function<void(const QString& failure)> done)
{
    const QVariantMap none;
    QVariantMap byPath { { QStringLiteral("path"), device } };
    callThen(bus, QStringLiteral("/org/freedesktop/UDisks2/Manager"), udisks + QStringLiteral(".Manager"), QStringLiteral("ResolveDevice"),
             { byPath, none }, [bus, done, none](const QDBusMessage& found) {
                 if (QString failure = failureOf(found, QStringLiteral("find the drive")); !failure.isEmpty())
                     return done(failure);
                 QList<QDBusObjectPath> blocks = qdbus_cast<QList<QDBusObjectPath>>(found.arguments().value(0));
                 if (blocks.isEmpty())
                     return done(QStringLiteral("Couldn’t eject: the drive is gone"));
                 QString block = blocks.first().path();
                 callThen(bus, block, udisks + QStringLiteral(".Filesystem"), QStringLiteral("Unmount"), { none },
                          [bus, done, none, block](const QDBusMessage& unmounted) {
                              if (QString failure = failureOf(unmounted, QStringLiteral("unmount")); !failure.isEmpty())
                                  return done(failure);
                              callThen(bus, block, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"),
                                       { udisks + QStringLiteral(".Block"), QStringLiteral("Drive") },
                                       [bus, done, none](const QDBusMessage& drive) {
                                           QString path = qdbus_cast<QDBusVariant>(drive.arguments().value(0)).variant().value<QDBusObjectPath>().path();
                                           if (drive.type() == QDBusMessage::ErrorMessage || path.isEmpty() || path == QStringLiteral("/"))
                                               return done(QString());  // unmounted; nothing more to eject
                                           callThen(bus, path, udisks + QStringLiteral(".Drive"), QStringLiteral("Eject"), { none },
                                                    [done](const QDBusMessage& ejected) { done(failureOf(ejected, QStringLiteral("eject"))); });
                                       });
                          });
             });
}

StorageWidget::StorageWidget(WidgetInstance instance, WidgetMonitors& monitors) : LinesTile(std::move(instance), 4), monitors_(monitors)
{
    watch_ = monitors_.addObserver(WidgetMonitors::Source::storage, [this] { tellChanged(); });
}

StorageWidget::~StorageWidget()
{
    monitors_.removeObserver(WidgetMonitors::Source::storage, watch_);
    if (shown_)
        monitors_.storage().poller().setWanted(instance_.id.toString(), false);
}

void StorageWidget::shownChanged()
{
    monitors_.storage().poller().setWanted(instance_.id.toString(), shown_);
}

const StorageVolume* StorageWidget::shownVolume() const
{
    const auto& volumes = monitors_.storage().reading();
    return volumes && !volumes->empty() ? &volumes->front() : nullptr;
}

WidgetLines StorageWidget::lines() const
{
    const StorageVolume* volume = shownVolume();
    if (!volume)
        return { QStringLiteral("Storage"), monitors_.storage().reading() ? QStringLiteral("No disks found") : QStringLiteral("Measuring…"), {} };
    return { text(volume->name), text(byteText(volume->free)) + QStringLiteral(" free"), {} };
}

void StorageWidget::paint(QPainter& painter, const QRectF& tile, const WidgetPaintContext& context) const
{
    LinesTile::paint(painter, tile, context);
    const StorageVolume* volume = shownVolume();
    if (!volume)
        return;
    double used = usedShare(*volume);
    widgetface::paintFootBar(painter, tile, used, used > 0.9 ? stateColour::trouble() : used > 0.8 ? stateColour::waiting() : QColor(0x64, 0xd2, 0xff));
}

namespace {

class StorageCard final : public QWidget {
public:
    explicit StorageCard(WidgetMonitors& monitors) : monitors_(monitors)
    {
        layout_ = new QVBoxLayout(this);
        layout_->setContentsMargins(0, 0, 0, 0);
        status_ = new QLabel;
        status_->setAccessibleName(QStringLiteral("Status"));
        status_->setWordWrap(true);
        layout_->addWidget(status_);
        list_ = new QWidget;
        layout_->addWidget(list_);
        layout_->addStretch();
        watch_ = monitors_.addObserver(WidgetMonitors::Source::storage, [this] { fill(); });
        monitors_.storage().poller().setWanted(holder(), true);
        fill();
    }

    ~StorageCard() override
    {
        monitors_.storage().poller().setWanted(holder(), false);
        monitors_.removeObserver(WidgetMonitors::Source::storage, watch_);
    }

private:
    void fill()
    {
        delete list_;
        list_ = new QWidget;
        auto* rows = new QVBoxLayout(list_);
        rows->setContentsMargins(0, 0, 0, 0);
        const auto& volumes = monitors_.storage().reading();
        if (!volumes)
            status_->setText(QStringLiteral("Measuring…"));
        else if (status_->text() == QStringLiteral("Measuring…"))
            status_->setText(volumes->empty() ? QStringLiteral("No disks found") : QString());
        for (const StorageVolume& volume : volumes ? *volumes : std::vector<StorageVolume> {}) {
            auto* row = new QHBoxLayout;
            auto* name = new QLabel(QStringLiteral("%1\n%2 free of %3").arg(text(volume.name), text(byteText(volume.free)), text(byteText(volume.total))));
            name->setToolTip(text(volume.mountPoint + " · " + volume.source + " · " + volume.fileSystem));
            auto* bar = new QProgressBar;
            bar->setRange(0, 100);
            bar->setValue(static_cast<int>(usedShare(volume) * 100));
            bar->setFormat(QStringLiteral("%p\u2009% used"));
            bar->setAccessibleName(text(volume.name));
            row->addWidget(name, 1);
            row->addWidget(bar, 1);
            if (volume.removable) {
                auto* eject = new QPushButton(QStringLiteral("Eject"));
                eject->setAccessibleName(QStringLiteral("Eject ") + text(volume.name));
                QObject::connect(eject, &QPushButton::clicked, this, [this, eject, device = text(volume.source)] {
                    eject->setEnabled(false);
                    status_->setText(QStringLiteral("Ejecting…"));
                    QPointer<StorageCard> alive(this);
                    ejectDrive(systemServicesBus(), device, [alive](const QString& failure) {
                        if (!alive)
                            return;
                        alive->status_->setText(failure.isEmpty() ? QStringLiteral("Safe to remove") : failure);
                        alive->monitors_.storage().refresh();
                    });
                });
                row->addWidget(eject);
            }
            rows->addLayout(row);
        }
        layout_->insertWidget(1, list_);
    }

    [[nodiscard]] std::string holder() const { return "storage-card-" + std::to_string(reinterpret_cast<uintptr_t>(this)); }

    WidgetMonitors& monitors_;
    QVBoxLayout* layout_ = nullptr;
    QLabel* status_ = nullptr;
    QWidget* list_ = nullptr;
    uint64_t watch_ = 0;
};

} // namespace

QWidget* StorageWidget::makeCard()
{
    return new StorageCard(monitors_);
}

} // namespace kestrune
