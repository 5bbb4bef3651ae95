#include "KestruneDock/App/WelcomeWindow.h"

#include <QCloseEvent>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace kestrune {

WelcomeWindow::WelcomeWindow(std::function<void()> started) : started_(std::move(started))
{
    setWindowTitle(QStringLiteral("Welcome to Kestrune Dock"));
    setAttribute(Qt::WA_QuitOnClose, false);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(36, 28, 36, 24);
    layout->setSpacing(14);
    auto* icon = new QLabel;
    icon->setPixmap(QIcon(QStringLiteral(":/kestrune/app.svg")).pixmap(80, 80));
    icon->setAlignment(Qt::AlignCenter);
    auto* title = new QLabel(QStringLiteral("Welcome to Kestrune Dock"));
    QFont font = title->font();
    font.setPointSizeF(font.pointSizeF() * 1.5);
    font.setBold(true);
    title->setFont(font);
    title->setAlignment(Qt::AlignCenter);
    auto* body = new QLabel(QStringLiteral(
        "Kestrune Dock takes the place of your desktop’s dock. Your apps sit at the edge of the screen "
        "and grow under the pointer; beside them, widgets show what your repositories, pull requests, "
        "containers and AI coding tools are doing, and how busy your computer is.\n\n"
        "Drag apps and folders onto the dock to keep them there, drag them off to let them go, and "
        "right-click for more. Your own dock comes back as it was when Kestrune Dock quits."));
    body->setWordWrap(true);
    body->setMinimumWidth(420);
    auto* start = new QPushButton(QStringLiteral("Get Started"));
    start->setDefault(true);
    start->setAutoDefault(true);
    QObject::connect(start, &QPushButton::clicked, this, [this] { close(); });
    layout->addWidget(icon);
    layout->addWidget(title);
    layout->addWidget(body);
    layout->addWidget(start, 0, Qt::AlignHCenter);
    start->setFocus();
}

void WelcomeWindow::closeEvent(QCloseEvent* event)
{
    // Closed any way at all, the dock is not to stay hidden behind a window that is gone.
    event->accept();
    finish();
}

void WelcomeWindow::finish()
{
    if (auto started = std::exchange(started_, nullptr))
        started();
}

} // namespace kestrune
