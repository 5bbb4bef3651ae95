#include "KestruneDock/App/MenuBarIcon.h"

#include <QIcon>
#include <QMenu>
#include <QSystemTrayIcon>

namespace kestrune {

MenuBarIcon::MenuBarIcon(Actions actions) : actions_(std::move(actions)), menu_(std::make_unique<QMenu>())
{
    menu_->addAction(QStringLiteral("Settings…"), [this] { actions_.openSettings(); });
    menu_->addAction(QStringLiteral("About Kestrune Dock"), [this] { actions_.about(); });
    menu_->addSeparator();
    menu_->addAction(QStringLiteral("Quit Kestrune Dock"), [this] { actions_.quit(); });
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        return;
    icon_ = std::make_unique<QSystemTrayIcon>(QIcon(QStringLiteral(":/kestrune/app.svg")));
    icon_->setToolTip(QStringLiteral("Kestrune Dock"));
    icon_->setContextMenu(menu_.get());
    QObject::connect(icon_.get(), &QSystemTrayIcon::activated, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger)
            icon_->contextMenu()->popup(icon_->geometry().center());
    });
    icon_->show();
}

MenuBarIcon::~MenuBarIcon() = default;

bool MenuBarIcon::isShown() const { return icon_ && icon_->isVisible(); }

} // namespace kestrune
