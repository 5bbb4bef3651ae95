// kestrune-dock: the dock. An accessory app: no window of its own in the taskbar, a tray icon,
// and the dock panel on a screen edge.

#include <cstdlib>
#include <string>
#include <vector>

#include <QApplication>
#include <QIcon>
#include <QThreadPool>

#include "KestruneDock/App/AppDelegate.h"
#include "KestruneDock/App/StallWatch.h"

int main(int argc, char** argv)
{
    // The icon lives in the app's library, whose resources are not registered by themselves.
    Q_INIT_RESOURCE(app);
    // With no session bus, D-Bus would start one of its own for the tray icon's first question
    // and leave it running: a daemon the user never asked for. The tray then uses XEmbed.
    setenv("DBUS_SESSION_BUS_ADDRESS", "disabled:", 0);
    // Through shared memory, every paint brings back a completion event that wakes the dock a
    // second (and third) time; the dock paints small rectangles, which the socket carries as well.
    setenv("QT_XCB_NO_MITSHM", "1", 0);
    QApplication::setApplicationName(QStringLiteral("Kestrune Dock"));
    QApplication::setApplicationVersion(QStringLiteral(KESTRUNE_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("app.quillane.dock"));
    QApplication app(argc, argv);
    app.setQuitOnLastWindowClosed(false);
    app.setWindowIcon(QIcon(QStringLiteral(":/kestrune/app.svg")));
    // Qt's raster painter splits large fills across the global thread pool. Two threads do it
    // on any machine, and they stay once started: an idle dock never starts or ends a thread.
    QThreadPool::globalInstance()->setMaxThreadCount(2);
    QThreadPool::globalInstance()->setExpiryTimeout(-1);

    auto stallWatch = kestrune::StallWatch::fromEnvironment();

    std::vector<std::string> arguments(argv, argv + argc);
    kestrune::AppDelegate delegate(arguments);
    if (auto status = delegate.applicationDidFinishLaunching())
        return *status;
    QObject::connect(&app, &QCoreApplication::aboutToQuit, [&delegate] { delegate.applicationWillTerminate(); });
    return app.exec();
}
