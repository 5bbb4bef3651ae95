#pragma once
// OVERVIEW
// Light or dark, and desktop icons shown or hidden, written where the running desktop keeps them,
// so that the desktop's own settings show the change and every app follows it: GNOME, Cinnamon
// and MATE in their GSettings, Xfce in xfconf. Light or dark is read back through the desktop
// portal where one runs (what apps themselves read), else from the same settings; changes made
// elsewhere are followed.
//
// TYPICAL USAGE
//   DesktopLook look(DesktopLook::running());
//   look.onChange = [&] { redraw(look.isDark()); };
//   if (look.darkProblem().isEmpty()) look.setDark(true);
//
// Main thread only.

#include <functional>
#include <memory>
#include <optional>

#include <QDBusConnection>
#include <QDBusVariant>
#include <QObject>
#include <QString>

namespace kestrune {

class DesktopLook final : public QObject {
    Q_OBJECT
public:
    enum class Desktop { gnome, cinnamon, mate, xfce, other };
    // From XDG_CURRENT_DESKTOP.
    [[nodiscard]] static Desktop running();

    explicit DesktopLook(Desktop desktop, QDBusConnection sessionBus = QDBusConnection::sessionBus());
    ~DesktopLook() override;

    // Why the switch cannot be made here, in a sentence; empty when it can.
    [[nodiscard]] const QString& darkProblem() const { return darkProblem_; }
    [[nodiscard]] const QString& iconsProblem() const { return iconsProblem_; }
    [[nodiscard]] bool isDark() const { return dark_; }
    [[nodiscard]] bool showsIcons() const { return icons_; }
    void setDark(bool dark);
    void setShowsIcons(bool shown);

    // The theme that is `theme`'s dark (or light) sibling, if there is one: "Adwaita" and
    // "Adwaita-dark", "Mint-Y" and "Mint-Y-Dark" …; `installed` says whether a theme exists.
    [[nodiscard]] static std::optional<QString> siblingTheme(const QString& theme, bool dark, const std::function<bool(const QString&)>& installed);

    std::function<void()> onChange;

private Q_SLOTS:
    void portalChanged(const QString& group, const QString& key, const QDBusVariant& value);
    void xfconfChanged(const QString& channel);

private:
    struct Settings;
    void read();
    void readXfconf();
    // Tells of any change.
    void update(bool dark, bool icons, const QString& darkProblem, const QString& iconsProblem);
    void changed();
    // One xfconf property, answered later: `ok` is false when the service does not answer.
    void xfconfGet(const QString& channel, const QString& property, std::function<void(bool ok, const QVariant&)> then);

    Desktop desktop_;
    QDBusConnection bus_;
    std::unique_ptr<Settings> settings_;
    QString darkProblem_;
    QString iconsProblem_;
    bool dark_ = false;
    bool icons_ = false;
    bool portal_ = false;
    QString xfceTheme_;
};

} // namespace kestrune
