// Another program's window that drags files, for the desktop tests: a 120×120 window at X Y
// (user placed) that prints "mapped" once shown and, on a press, drags the given files as a
// `text/uri-list`, as a file manager does; it prints the action the drop ended with ("copy-drop",
// "move-drop", "link-drop" or "none-drop") and goes on.
//
//   kestrune-drag-source X Y FILE...

#include <cstdio>

#include <QApplication>
#include <QDrag>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QUrl>
#include <QWidget>

namespace {

class Source final : public QWidget {
public:
    explicit Source(QList<QUrl> urls) : urls_(std::move(urls))
    {
        setWindowTitle(QStringLiteral("drag source"));
        // A utility window: no taskbar, and so no dock, shows it.
        setWindowFlags(Qt::Tool);
    }

protected:
    void paintEvent(QPaintEvent*) override { QPainter(this).fillRect(rect(), QColor(0x3a, 0x6e, 0xa5)); }
    void showEvent(QShowEvent*) override
    {
        std::printf("mapped\n");
        std::fflush(stdout);
    }
    void mousePressEvent(QMouseEvent*) override
    {
        auto* data = new QMimeData;
        data->setUrls(urls_);
        auto* drag = new QDrag(this);
        drag->setMimeData(data);
        Qt::DropAction action = drag->exec(Qt::CopyAction | Qt::MoveAction | Qt::LinkAction, Qt::CopyAction);
        const char* said = action == Qt::CopyAction ? "copy" : action == Qt::MoveAction ? "move" : action == Qt::LinkAction ? "link" : "none";
        std::printf("%s-drop\n", said);
        std::fflush(stdout);
    }

private:
    QList<QUrl> urls_;
};

} // namespace

int main(int argc, char** argv)
{
    QApplication application(argc, argv);
    if (argc < 4)
        return 2;
    QList<QUrl> urls;
    for (int index = 3; index < argc; ++index)
        urls.push_back(QUrl::fromLocalFile(QString::fromLocal8Bit(argv[index])));
    Source source(urls);
    source.setGeometry(QString::fromLocal8Bit(argv[1]).toInt(), QString::fromLocal8Bit(argv[2]).toInt(), 120, 120);
    source.show();
    return application.exec();
}
