#include "KestruneDock/Desktop/DesktopLook.h"

#include <gio/gio.h>

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDir>
#include <QFileInfo>

#include "KestruneDock/Desktop/DesktopBus.h"

namespace kestrune {

namespace {

const QString xfconf = QStringLiteral("org.xfce.Xfconf");
const QString xfconfPath = QStringLiteral("/org/xfce/Xfconf");
const QString dingExtension = QStringLiteral("ding@rastersoft.com");

// One key of one schema, made only when the schema and key are installed (GSettings aborts the
// process on an unknown schema).
struct Key {
    GSettings* settings = nullptr;
    std::string key;
    gulong handler = 0;

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
        if (settings && handler)
            g_signal_handler_disconnect(settings, handler);
        if (settings)
            g_object_unref(settings);
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    Key(Key&& other) noexcept : settings(std::exchange(other.settings, nullptr)), key(std::move(other.key)), handler(std::exchange(other.handler, 0)) {}
    Key& operator=(Key&& other) noexcept
    {
        std::swap(settings, other.settings);
        std::swap(key, other.key);
        std::swap(handler, other.handler);
        return *this;
    }
    // `changed(data)` runs whenever the value changes, from here or elsewhere.
    void follow(void (*changed)(void*), void* data)
    {
        if (settings)
            handler = g_signal_connect_swapped(settings, ("changed::" + key).c_str(), G_CALLBACK(changed), data);
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

bool extensionInstalled(const QString& uuid)
{
    for (const QString& folder : { QDir::homePath() + QStringLiteral("/.local/share/gnome-shell/extensions/"),
                                   QStringLiteral("/usr/share/gnome-shell/extensions/") })
        if (QFileInfo(folder + uuid).isDir())
            return true;
    return false;
}

// Ubuntu's session turns Desktop Icons NG on without listing it; the user's disabled list still wins.
bool extensionEnabled(const QStringList& enabled, const QStringList& disabled)
{
    if (disabled.contains(dingExtension))
        return false;
    return enabled.contains(dingExtension)
        || qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(QLatin1Char(':')).contains(QStringLiteral("ubuntu"), Qt::CaseInsensitive);
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
    Key icons;
    Key extensionsOff; // GNOME Shell's disabled extensions, which win over enabled ones
    // How `icons` holds it: a boolean; GNOME Shell's list of enabled extensions; Nemo's desktop
    // layout, "PRIMARY::OTHERS" with each true or false.
    enum class Icons { flag, extensionList, nemoLayout } iconsIn = Icons::flag;
    QString shownLayout = QStringLiteral("true::false"); // Nemo's default
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
        settings_->extensionsOff = Key("org.gnome.shell", "disabled-extensions");
        settings_->iconsIn = Settings::Icons::extensionList;
        if (!settings_->icons)
            iconsProblem_ = QStringLiteral("Desktop icons can’t be switched: GNOME Shell’s settings aren’t installed");
        else if (!extensionInstalled(dingExtension))
            iconsProblem_ = QStringLiteral("Desktop icons need GNOME’s Desktop Icons NG extension");
        break;
    case Desktop::cinnamon:
        settings_->colorScheme = Key("org.x.apps.portal", "color-scheme");
        settings_->theme = Key("org.cinnamon.desktop.interface", "gtk-theme");
        settings_->icons = Key("org.nemo.desktop", "desktop-layout");
        settings_->iconsIn = Settings::Icons::nemoLayout;
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
        for (const QString& signal : { QStringLiteral("PropertyChanged"), QStringLiteral("PropertyRemoved") })
            bus_.connect(xfconf, xfconfPath, xfconf, signal, this, SLOT(xfconfChanged(QString)));
        break;
    case Desktop::other:
        darkProblem_ = QStringLiteral("Light and dark mode can’t be switched on %1").arg(desktopName());
        iconsProblem_ = QStringLiteral("Desktop icons can’t be switched on %1").arg(desktopName());
        break;
    }
    if (desktop_ != Desktop::xfce && desktop_ != Desktop::other && !settings_->colorScheme && !settings_->theme)
        darkProblem_ = QStringLiteral("Light and dark mode can’t be switched: %1’s settings aren’t installed").arg(desktopName());
    for (Key* key : { &settings_->colorScheme, &settings_->theme, &settings_->icons, &settings_->extensionsOff })
        key->follow(+[](void* self) { static_cast<DesktopLook*>(self)->read(); }, this);
    read();

    // The portal's answer is what apps follow; where one runs, it has the last word.
    // QtDBus looks a slot's argument types up by name, which it knows only once registered.
    qRegisterMetaType<QDBusVariant>();
    bus_.connect(QStringLiteral("org.freedesktop.portal.Desktop"), QStringLiteral("/org/freedesktop/portal/desktop"),
                 QStringLiteral("org.freedesktop.portal.Settings"), QStringLiteral("SettingChanged"), this,
                 SLOT(portalChanged(QString, QString, QDBusVariant)));
    QDBusMessage call = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.portal.Desktop"), QStringLiteral("/org/freedesktop/portal/desktop"),
                                                       QStringLiteral("org.freedesktop.portal.Settings"), QStringLiteral("Read"));
    call.setArguments({ QStringLiteral("org.freedesktop.appearance"), QStringLiteral("color-scheme") });
    callThen(bus_, call, 2000, this, [this](const QDBusMessage& reply) {
        if (reply.type() == QDBusMessage::ErrorMessage)
            return;
        // Read answers a variant holding a variant holding the number.
        portalChanged(QStringLiteral("org.freedesktop.appearance"), QStringLiteral("color-scheme"),
                      qdbus_cast<QDBusVariant>(reply.arguments().value(0)));
    });
}

DesktopLook::~DesktopLook() = default;

void DesktopLook::portalChanged(const QString& group, const QString& key, const QDBusVariant& value)
{
    if (group != QStringLiteral("org.freedesktop.appearance") || key != QStringLiteral("color-scheme"))
        return;
    portal_ = true;
    QVariant scheme = value.variant();
    if (scheme.canConvert<QDBusVariant>())
        scheme = qdbus_cast<QDBusVariant>(scheme).variant();
    // 0 no preference, 1 dark, 2 light.
    update(scheme.toUInt() == 1, icons_, darkProblem_, iconsProblem_);
}

void DesktopLook::xfconfChanged(const QString& channel)
{
    if (channel == QStringLiteral("xsettings") || channel == QStringLiteral("xfce4-desktop"))
        read();
}

namespace {

void xfconfSet(const QDBusConnection& bus, const QString& channel, const QString& property, const QVariant& value)
{
    QDBusMessage call = QDBusMessage::createMethodCall(xfconf, xfconfPath, xfconf, QStringLiteral("SetProperty"));
    call.setArguments({ channel, property, QVariant::fromValue(QDBusVariant(value)) });
    bus.send(call);
}

} // namespace

void DesktopLook::xfconfGet(const QString& channel, const QString& property, std::function<void(bool, const QVariant&)> then)
{
    if (!bus_.isConnected()) {
        then(false, QVariant());
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(xfconf, xfconfPath, xfconf, QStringLiteral("GetProperty"));
    call.setArguments({ channel, property });
    callThen(bus_, call, 2000, this, [then = std::move(then)](const QDBusMessage& reply) {
        if (reply.type() == QDBusMessage::ErrorMessage) {
            // A property never set is not there; the service is.
            then(reply.errorName() == QStringLiteral("org.xfce.Xfconf.Error.PropertyNotFound"), QVariant());
            return;
        }
        then(true, qdbus_cast<QDBusVariant>(reply.arguments().value(0)).variant());
    });
}

namespace {

bool darkTheme(const QString& theme)
{
    return theme.endsWith(QStringLiteral("-dark"), Qt::CaseInsensitive);
}

// Where the dark switch goes through the theme alone, a theme without a sibling can't be switched.
QString themeProblem(const QString& theme)
{
    bool dark = darkTheme(theme);
    if (DesktopLook::siblingTheme(theme, !dark, themeInstalled))
        return {};
    return dark ? QStringLiteral("The theme “%1” has no light version").arg(theme) : QStringLiteral("The theme “%1” has no dark version").arg(theme);
}

} // namespace

void DesktopLook::read()
{
    if (desktop_ == Desktop::xfce) {
        readXfconf();
        return;
    }
    bool dark = dark_;
    QString darkProblem = darkProblem_;
    if (settings_->colorScheme) {
        if (!portal_)
            dark = settings_->colorScheme.text() == QStringLiteral("prefer-dark");
    } else if (settings_->theme) {
        QString theme = settings_->theme.text();
        if (!portal_)
            dark = darkTheme(theme);
        darkProblem = themeProblem(theme);
    }
    bool icons = icons_;
    if (settings_->icons)
        switch (settings_->iconsIn) {
        case Settings::Icons::flag:
            icons = settings_->icons.flag();
            break;
        case Settings::Icons::extensionList:
            icons = extensionEnabled(settings_->icons.list(), settings_->extensionsOff.list());
            break;
        case Settings::Icons::nemoLayout: {
            QString layout = settings_->icons.text();
            icons = layout.contains(QStringLiteral("true"));
            // Shown again, they come back where the user had them.
            if (icons)
                settings_->shownLayout = layout;
            break;
        }
        }
    update(dark, icons, darkProblem, iconsProblem_);
}

void DesktopLook::readXfconf()
{
    auto missing = [](const char* what) { return QStringLiteral("%1 can’t be switched: Xfce’s settings service isn’t running").arg(QLatin1String(what)); };
    xfconfGet(QStringLiteral("xsettings"), QStringLiteral("/Net/ThemeName"), [this, missing](bool answered, const QVariant& value) {
        if (!answered) {
            update(dark_, icons_, missing("Light and dark mode"), iconsProblem_);
            return;
        }
        // With no theme set, GTK draws its own, Adwaita.
        xfceTheme_ = value.isValid() ? value.toString() : QStringLiteral("Adwaita");
        update(portal_ ? dark_ : darkTheme(xfceTheme_), icons_, themeProblem(xfceTheme_), iconsProblem_);
    });
    xfconfGet(QStringLiteral("xfce4-desktop"), QStringLiteral("/desktop-icons/style"), [this, missing](bool answered, const QVariant& value) {
        // 0 is none; with nothing set, xfdesktop shows its file icons.
        bool icons = answered ? !value.isValid() || value.toInt() != 0 : icons_;
        update(dark_, icons, darkProblem_, answered ? QString() : missing("Desktop icons"));
    });
}

void DesktopLook::update(bool dark, bool icons, const QString& darkProblem, const QString& iconsProblem)
{
    if (dark == dark_ && icons == icons_ && darkProblem == darkProblem_ && iconsProblem == iconsProblem_)
        return;
    dark_ = dark;
    icons_ = icons;
    darkProblem_ = darkProblem;
    iconsProblem_ = iconsProblem;
    changed();
}

void DesktopLook::setDark(bool dark)
{
    if (!darkProblem_.isEmpty())
        return;
    if (desktop_ == Desktop::xfce) {
        if (auto sibling = siblingTheme(xfceTheme_, dark, themeInstalled))
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
    switch (settings_->iconsIn) {
    case Settings::Icons::flag:
        settings_->icons.setFlag(shown);
        break;
    case Settings::Icons::nemoLayout:
        settings_->icons.setText(shown ? settings_->shownLayout : QStringLiteral("false::false"));
        break;
    case Settings::Icons::extensionList: {
        QStringList enabled = settings_->icons.list();
        QStringList disabled = settings_->extensionsOff.list();
        enabled.removeAll(dingExtension);
        disabled.removeAll(dingExtension);
        (shown ? enabled : disabled) << dingExtension;
        settings_->extensionsOff.setList(disabled);
        settings_->icons.setList(enabled);
        break;
    }
    }
}

void DesktopLook::changed()
{
    if (onChange)
        onChange();
}

} // namespace kestrune
