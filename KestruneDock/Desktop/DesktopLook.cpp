#include "KestruneDock/Desktop/DesktopLook.h"

#include <gio/gio.h>

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <QDir>
#include <QFileInfo>

namespace kestrune {

namespace {

const QString xfconf = QStringLiteral("org.xfce.Xfconf");
const QString xfconfPath = QStringLiteral("/org/xfce/Xfconf");
constexpr const char* dingExtension = "ding@rastersoft.com";

// One key of one schema, made only when the schema and key are installed (GSettings aborts the
// process on an unknown schema).
struct Key {
    GSettings* settings = nullptr;
    std::string key;

    Key() = default;
    Key(const char* schemaId, const char* name) : key(name)
    {
        GSettingsSchemaSource* source = g_settings_schema_source_get_default();
        GSettingsSchema* schema = source ? g_settings_schema_source_lookup(source, schemaId, TRUE) : nullptr;
        if (schema && g_settings_schema_has_key(schema, name))
            settings = g_settings_new_full(schema, nullptr, nullptr);
        if (schema)
            g_settings_schema_unref(schema);
    }
    ~Key()
    {
        if (settings)
            g_object_unref(settings);
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    Key(Key&& other) noexcept : settings(std::exchange(other.settings, nullptr)), key(std::move(other.key)) {}
    Key& operator=(Key&& other) noexcept
    {
        std::swap(settings, other.settings);
        std::swap(key, other.key);
        return *this;
    }

    explicit operator bool() const { return settings != nullptr; }
    [[nodiscard]] QString text() const
    {
        gchar* value = g_settings_get_string(settings, key.c_str());
        QString read = QString::fromUtf8(value);
        g_free(value);
        return read;
    }
    void setText(const QString& value) const { g_settings_set_string(settings, key.c_str(), value.toUtf8().constData()); }
    [[nodiscard]] bool flag() const { return g_settings_get_boolean(settings, key.c_str()); }
    void setFlag(bool value) const { g_settings_set_boolean(settings, key.c_str(), value); }
    [[nodiscard]] QStringList list() const
    {
        gchar** values = g_settings_get_strv(settings, key.c_str());
        QStringList read;
        for (gchar** each = values; each && *each; ++each)
            read << QString::fromUtf8(*each);
        g_strfreev(values);
        return read;
    }
    void setList(const QStringList& values) const
    {
        std::vector<QByteArray> bytes;
        std::vector<const gchar*> pointers;
        for (const QString& value : values)
            bytes.push_back(value.toUtf8());
        for (const QByteArray& each : bytes)
            pointers.push_back(each.constData());
        pointers.push_back(nullptr);
        g_settings_set_strv(settings, key.c_str(), pointers.data());
    }
};

bool themeInstalled(const QString& name)
{
    // GTK carries Adwaita and its dark sibling inside itself.
    if (name == QStringLiteral("Adwaita") || name == QStringLiteral("Adwaita-dark"))
        return true;
    for (const QString& folder : { QDir::homePath() + QStringLiteral("/.themes/"), QDir::homePath() + QStringLiteral("/.local/share/themes/"),
                                   QStringLiteral("/usr/share/themes/") })
        if (QFileInfo(folder + name).isDir())
            return true;
    return false;
}

bool extensionInstalled(const char* uuid)
{
    for (const QString& folder : { QDir::homePath() + QStringLiteral("/.local/share/gnome-shell/extensions/"),
                                   QStringLiteral("/usr/share/gnome-shell/extensions/") })
        if (QFileInfo(folder + QString::fromUtf8(uuid)).isDir())
            return true;
    return false;
}

QString desktopName()
{
    QString name = qEnvironmentVariable("XDG_CURRENT_DESKTOP").section(QLatin1Char(':'), 0, 0);
    return name.isEmpty() ? QStringLiteral("this desktop") : name;
}

} // namespace

struct DesktopLook::Settings {
    Key colorScheme;  // "prefer-dark" or "default"
    Key theme;        // the GTK theme, switched to its dark or light sibling
    Key icons;        // a boolean, or GNOME Shell's list of enabled extensions
    bool iconsByExtension = false;
    std::vector<gulong> handlers;
};

DesktopLook::Desktop DesktopLook::running()
{
    const QStringList names = qEnvironmentVariable("XDG_CURRENT_DESKTOP").toUpper().split(QLatin1Char(':'));
    if (names.contains(QStringLiteral("X-CINNAMON")) || names.contains(QStringLiteral("CINNAMON")))
        return Desktop::cinnamon;
    if (names.contains(QStringLiteral("MATE")))
        return Desktop::mate;
    if (names.contains(QStringLiteral("XFCE")))
        return Desktop::xfce;
    if (names.contains(QStringLiteral("GNOME")) || names.contains(QStringLiteral("UBUNTU")))
        return Desktop::gnome;
    return Desktop::other;
}

std::optional<QString> DesktopLook::siblingTheme(const QString& theme, bool dark, const std::function<bool(const QString&)>& installed)
{
    for (const QString& suffix : { QStringLiteral("-dark"), QStringLiteral("-Dark") }) {
        if (dark && !theme.endsWith(suffix) && installed(theme + suffix))
            return theme + suffix;
        if (!dark && theme.endsWith(suffix) && installed(theme.chopped(suffix.size())))
            return theme.chopped(suffix.size());
    }
    return std::nullopt;
}

DesktopLook::DesktopLook(Desktop desktop, QDBusConnection sessionBus)
    : desktop_(desktop), bus_(std::move(sessionBus)), settings_(std::make_unique<Settings>())
{
    switch (desktop_) {
    case Desktop::gnome:
        settings_->colorScheme = Key("org.gnome.desktop.interface", "color-scheme");
        settings_->theme = Key("org.gnome.desktop.interface", "gtk-theme");
        // GNOME's desktop icons are the Desktop Icons NG extension, turned on and off in the Shell's list.
        settings_->icons = Key("org.gnome.shell", "enabled-extensions");
        settings_->iconsByExtension = true;
        if (!settings_->icons)
            iconsProblem_ = QStringLiteral("Desktop icons can’t be switched: GNOME Shell’s settings aren’t installed");
        else if (!extensionInstalled(dingExtension))
            iconsProblem_ = QStringLiteral("Desktop icons need GNOME’s Desktop Icons NG extension");
        break;
    case Desktop::cinnamon:
        settings_->colorScheme = Key("org.x.apps.portal", "color-scheme");
        settings_->theme = Key("org.cinnamon.desktop.interface", "gtk-theme");
        settings_->icons = Key("org.nemo.desktop", "show-desktop-icons");
        if (!settings_->icons)
            iconsProblem_ = QStringLiteral("Desktop icons can’t be switched: Nemo’s settings aren’t installed");
        break;
    case Desktop::mate:
        settings_->theme = Key("org.mate.interface", "gtk-theme");
        settings_->icons = Key("org.mate.background", "show-desktop-icons");
        if (!settings_->icons)
            iconsProblem_ = QStringLiteral("Desktop icons can’t be switched: MATE’s settings aren’t installed");
        break;
    case Desktop::xfce:
        bus_.connect(xfconf, xfconfPath, xfconf, QStringLiteral("PropertyChanged"), this,
                     SLOT(xfconfChanged(QString, QString, QDBusVariant)));
        break;
    case Desktop::other:
        darkProblem_ = QStringLiteral("Light and dark mode can’t be switched on %1").arg(desktopName());
        iconsProblem_ = QStringLiteral("Desktop icons can’t be switched on %1").arg(desktopName());
        break;
    }
    if (desktop_ != Desktop::xfce && desktop_ != Desktop::other && !settings_->colorScheme && !settings_->theme)
        darkProblem_ = QStringLiteral("Light and dark mode can’t be switched: %1’s settings aren’t installed").arg(desktopName());
    for (Key* key : { &settings_->colorScheme, &settings_->theme, &settings_->icons })
        if (*key)
            settings_->handlers.push_back(g_signal_connect_swapped(key->settings, ("changed::" + key->key).c_str(),
                                                                   G_CALLBACK(+[](DesktopLook* self) { self->read(); }), this));
    read();

    // The portal's answer is what apps follow; where one runs, it has the last word.
    bus_.connect(QStringLiteral("org.freedesktop.portal.Desktop"), QStringLiteral("/org/freedesktop/portal/desktop"),
                 QStringLiteral("org.freedesktop.portal.Settings"), QStringLiteral("SettingChanged"), this,
                 SLOT(portalChanged(QString, QString, QDBusVariant)));
    QDBusMessage call = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.portal.Desktop"), QStringLiteral("/org/freedesktop/portal/desktop"),
                                                       QStringLiteral("org.freedesktop.portal.Settings"), QStringLiteral("Read"));
    call.setArguments({ QStringLiteral("org.freedesktop.appearance"), QStringLiteral("color-scheme") });
    auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call, 2000), this);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* finished) {
        finished->deleteLater();
        QDBusMessage reply = finished->reply();
        if (reply.type() == QDBusMessage::ErrorMessage)
            return;
        // A variant holding a variant holding the number.
        QVariant value = qdbus_cast<QDBusVariant>(reply.arguments().value(0)).variant();
        if (value.canConvert<QDBusVariant>())
            value = qdbus_cast<QDBusVariant>(value).variant();
        portalChanged(QStringLiteral("org.freedesktop.appearance"), QStringLiteral("color-scheme"), QDBusVariant(value));
    });
}

DesktopLook::~DesktopLook()
{
    size_t index = 0;
    for (Key* key : { &settings_->colorScheme, &settings_->theme, &settings_->icons })
        if (*key && index < settings_->handlers.size())
            g_signal_handler_disconnect(key->settings, settings_->handlers[index++]);
}

void DesktopLook::portalChanged(const QString& group, const QString& key, const QDBusVariant& value)
{
    if (group != QStringLiteral("org.freedesktop.appearance") || key != QStringLiteral("color-scheme"))
        return;
    portal_ = true;
    bool dark = value.variant().toUInt() == 1;
    if (dark != dark_) {
        dark_ = dark;
        changed();
    }
}

void DesktopLook::xfconfChanged(const QString& channel, const QString&, const QDBusVariant&)
{
    if (channel == QStringLiteral("xsettings") || channel == QStringLiteral("xfce4-desktop"))
        read();
}

namespace {

QVariant xfconfGet(const QDBusConnection& bus, const QString& channel, const QString& property, bool* ok)
{
    QDBusMessage call = QDBusMessage::createMethodCall(xfconf, xfconfPath, xfconf, QStringLiteral("GetProperty"));
    call.setArguments({ channel, property });
    // xfconfd answers from memory; a short wait at most.
    QDBusMessage reply = bus.call(call, QDBus::Block, 500);
    *ok = reply.type() != QDBusMessage::ErrorMessage;
    return *ok ? qdbus_cast<QDBusVariant>(reply.arguments().value(0)).variant() : QVariant();
}

void xfconfSet(const QDBusConnection& bus, const QString& channel, const QString& property, const QVariant& value)
{
    QDBusMessage call = QDBusMessage::createMethodCall(xfconf, xfconfPath, xfconf, QStringLiteral("SetProperty"));
    call.setArguments({ channel, property, QVariant::fromValue(QDBusVariant(value)) });
    bus.asyncCall(call);
}

} // namespace

void DesktopLook::read()
{
    bool dark = dark_;
    bool icons = icons_;
    if (desktop_ == Desktop::xfce) {
        bool ok = false;
        QString theme = xfconfGet(bus_, QStringLiteral("xsettings"), QStringLiteral("/Net/ThemeName"), &ok).toString();
        darkProblem_ = ok ? QString() : QStringLiteral("Light and dark mode can’t be switched: Xfce’s settings service isn’t running");
        if (ok && !portal_)
            dark = theme.endsWith(QStringLiteral("-dark"), Qt::CaseInsensitive);
        int style = xfconfGet(bus_, QStringLiteral("xfce4-desktop"), QStringLiteral("/desktop-icons/style"), &ok).toInt();
        iconsProblem_ = ok ? QString() : QStringLiteral("Desktop icons can’t be switched: Xfce’s settings service isn’t running");
        if (ok)
            icons = style != 0;
    } else {
        if (!portal_) {
            if (settings_->colorScheme)
                dark = settings_->colorScheme.text() == QStringLiteral("prefer-dark");
            else if (settings_->theme)
                dark = settings_->theme.text().endsWith(QStringLiteral("-dark"), Qt::CaseInsensitive);
        }
        if (settings_->icons)
            icons = settings_->iconsByExtension ? settings_->icons.list().contains(QString::fromUtf8(dingExtension)) : settings_->icons.flag();
    }
    if (dark != dark_ || icons != icons_) {
        dark_ = dark;
        icons_ = icons;
        changed();
    }
}

void DesktopLook::setDark(bool dark)
{
    if (!darkProblem_.isEmpty())
        return;
    if (desktop_ == Desktop::xfce) {
        bool ok = false;
        QString theme = xfconfGet(bus_, QStringLiteral("xsettings"), QStringLiteral("/Net/ThemeName"), &ok).toString();
        if (auto sibling = siblingTheme(theme, dark, themeInstalled))
            xfconfSet(bus_, QStringLiteral("xsettings"), QStringLiteral("/Net/ThemeName"), *sibling);
        return;
    }
    if (settings_->colorScheme)
        settings_->colorScheme.setText(dark ? QStringLiteral("prefer-dark") : QStringLiteral("default"));
    // Older (GTK 3) apps follow the theme, not the colour scheme.
    if (settings_->theme)
        if (auto sibling = siblingTheme(settings_->theme.text(), dark, themeInstalled))
            settings_->theme.setText(*sibling);
}

void DesktopLook::setShowsIcons(bool shown)
{
    if (!iconsProblem_.isEmpty())
        return;
    if (desktop_ == Desktop::xfce) {
        xfconfSet(bus_, QStringLiteral("xfce4-desktop"), QStringLiteral("/desktop-icons/style"), shown ? 2 : 0);
        return;
    }
    if (!settings_->icons)
        return;
    if (!settings_->iconsByExtension) {
        settings_->icons.setFlag(shown);
        return;
    }
    QStringList enabled = settings_->icons.list();
    enabled.removeAll(QString::fromUtf8(dingExtension));
    if (shown)
        enabled << QString::fromUtf8(dingExtension);
    settings_->icons.setList(enabled);
}

void DesktopLook::changed()
{
    if (onChange)
        onChange();
}

} // namespace kestrune
