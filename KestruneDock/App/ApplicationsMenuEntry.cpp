#include "KestruneDock/App/ApplicationsMenuEntry.h"

#include <sys/stat.h>

#include <cstring>

#include <QAbstractButton>
#include <QFile>
#include <QIcon>
#include <QMessageBox>
#include <QPushButton>

#include "KestruneDock/Panel/FailureAlert.h"
#include "KestruneKit/Core/AtomicFile.h"
#include "KestruneKit/Preferences/Preferences.h"

namespace kestrune {

namespace {

std::string dataHome(const Environment& environment, const std::string& home)
{
    auto data = environment.find("XDG_DATA_HOME");
    return data != environment.end() && !data->second.empty() && data->second[0] == '/' ? data->second : home + "/.local/share";
}

bool isFile(const std::string& path)
{
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

// A string value's own escapes, below the Exec quoting.
std::string escapedValue(std::string_view value)
{
    std::string escaped;
    for (char c : value) {
        if (c == '\\')
            escaped += "\\\\";
        else if (c == '\n')
            escaped += "\\n";
        else if (c == '\t')
            escaped += "\\t";
        else if (c == '\r')
            escaped += "\\r";
        else
            escaped += c;
    }
    return escaped;
}

} // namespace

ApplicationsMenuEntry ApplicationsMenuEntry::forThisUser(const Environment& environment, const std::string& home, std::string executable)
{
    std::string data = dataHome(environment, home);
    return { data + "/applications/" + std::string(entryName), data + "/icons/hicolor/scalable/apps/app.quillane.dock.svg",
        std::move(executable) };
}

bool ApplicationsMenuEntry::isInstalled(const Environment& environment, const std::string& home)
{
    if (isFile(dataHome(environment, home) + "/applications/" + std::string(entryName)))
        return true;
    auto dirs = environment.find("XDG_DATA_DIRS");
    std::string list = dirs != environment.end() && !dirs->second.empty() ? dirs->second : "/usr/local/share:/usr/share";
    for (const auto& folder : pathComponents(list))
        if (!folder.empty() && folder[0] == '/' && isFile(folder + "/applications/" + std::string(entryName)))
            return true;
    return false;
}

std::string ApplicationsMenuEntry::execValue(std::string_view program)
{
    constexpr std::string_view reserved = " \t\n\"'\\><~|&;$*?#()`";
    bool quote = program.find_first_of(reserved) != std::string_view::npos;
    std::string argument;
    for (char c : program) {
        if (c == '%')
            argument += "%%";
        else if (quote && (c == '"' || c == '`' || c == '$' || c == '\\'))
            argument += std::string("\\") + c;
        else
            argument += c;
    }
    return escapedValue(quote ? "\"" + argument + "\"" : argument);
}

std::string ApplicationsMenuEntry::text() const
{
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=Kestrune Dock\n"
           "GenericName=Dock\n"
           "Comment=A dock with live widgets for developers\n"
           "Exec=" + execValue(executable) + "\n"
           "Icon=" + escapedValue(iconPath) + "\n"
           "Categories=Utility;Development;\n"
           "StartupNotify=false\n";
}

std::string ApplicationsMenuEntry::install(const std::string& iconBytes) const
{
    for (const std::string* path : { &iconPath, &entryPath }) {
        if (!createFolders(parentFolder(*path)))
            return "Couldn’t create the folder " + parentFolder(*path);
        if (auto error = writeFileAtomically(*path, path == &iconPath ? iconBytes : text(), 0644))
            return "Couldn’t write " + *path + ": " + std::strerror(*error);
    }
    return {};
}

bool ApplicationsMenuOffer::isWanted(const Preferences& preferences, const Environment& environment, const std::string& home)
{
    return !preferences.boolValue(declinedKey).value_or(false) && !ApplicationsMenuEntry::isInstalled(environment, home);
}

ApplicationsMenuOffer::ApplicationsMenuOffer(Preferences& preferences, ApplicationsMenuEntry entry, std::function<void()> answered)
    : preferences_(preferences), entry_(std::move(entry)), answered_(std::move(answered)), box_(std::make_unique<QMessageBox>())
{
    box_->setWindowTitle(QStringLiteral("Kestrune Dock"));
    box_->setText(QStringLiteral("Add Kestrune Dock to Applications?"));
    box_->setInformativeText(QStringLiteral(
        "Kestrune Dock isn’t in your applications menu. Add it there to find it and start it like your other apps."));
    box_->setIconPixmap(QIcon(QStringLiteral(":/kestrune/app.svg")).pixmap(64, 64));
    QPushButton* add = box_->addButton(QStringLiteral("Add to Applications"), QMessageBox::AcceptRole);
    QPushButton* later = box_->addButton(QStringLiteral("Not Now"), QMessageBox::RejectRole);
    QPushButton* never = box_->addButton(QStringLiteral("Don’t ask again"), QMessageBox::DestructiveRole);
    box_->setDefaultButton(add);
    box_->setEscapeButton(later);
    box_->setWindowModality(Qt::NonModal);
    QObject::connect(box_.get(), &QMessageBox::buttonClicked, [this, add, never](QAbstractButton* button) {
        if (button == add)
            addEntry();
        else if (button == never)
            preferences_.set(declinedKey, true);
        if (answered_)
            answered_();
    });
}

ApplicationsMenuOffer::~ApplicationsMenuOffer() = default;

void ApplicationsMenuOffer::addEntry()
{
    QFile icon(QStringLiteral(":/kestrune/app.svg"));
    std::string problem = icon.open(QIODevice::ReadOnly) ? entry_.install(icon.readAll().toStdString()) : "The app’s icon is missing.";
    if (!problem.empty())
        showFailure(QStringLiteral("Couldn’t add Kestrune Dock to Applications."), problem);
}

void ApplicationsMenuOffer::show()
{
    box_->show();
    box_->raise();
    box_->activateWindow();
}

} // namespace kestrune
