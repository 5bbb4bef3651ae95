// kestrune-screenshot PATH.png: saves what the X display shows, for scripts and the desktop tests
// to look at. Grabs the whole root window at its native pixels.

#include <cstdio>

#include <QGuiApplication>
#include <QPixmap>
#include <QScreen>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: kestrune-screenshot PATH.png\n");
        return 2;
    }
    QGuiApplication app(argc, argv);
    QScreen* screen = QGuiApplication::primaryScreen();
    if (!screen) {
        std::fprintf(stderr, "kestrune-screenshot: no screen\n");
        return 1;
    }
    QPixmap shot = screen->grabWindow(0);
    if (shot.isNull() || !shot.save(QString::fromLocal8Bit(argv[1]))) {
        std::fprintf(stderr, "kestrune-screenshot: can’t save %s\n", argv[1]);
        return 1;
    }
    return 0;
}
