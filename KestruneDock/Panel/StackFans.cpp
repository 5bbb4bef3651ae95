#include "KestruneDock/Panel/StackFans.h"

#include <algorithm>

#include <QDateTime>
#include <QDir>
#include <QFileInfo>

namespace kestrune {

QDateTime addedTime(const QFileInfo& info)
{
    QDateTime born = info.birthTime();
    return born.isValid() ? born : info.metadataChangeTime();
}

StackFans::StackFans(std::function<void()> changed) : changed_(std::move(changed))
{
    QObject::connect(&watcher_, &QFileSystemWatcher::directoryChanged, &watcher_, [this](const QString& folder) {
        std::string path = folder.toStdString();
        if (!newest_.contains(path))
            return;
        std::vector<std::string> before = newest_[path];
        read(path);
        if (newest_[path] != before)
            changed_();
    });
}

void StackFans::show(const std::set<std::string>& folders)
{
    for (auto shown = newest_.begin(); shown != newest_.end();) {
        if (folders.contains(shown->first)) {
            ++shown;
            continue;
        }
        watcher_.removePath(QString::fromStdString(shown->first));
        shown = newest_.erase(shown);
    }
    for (const std::string& folder : folders) {
        if (!newest_.contains(folder))
            read(folder);
    }
}

const std::vector<std::string>& StackFans::newest(const std::string& folder) const
{
    static const std::vector<std::string> none;
    auto found = newest_.find(folder);
    return found == newest_.end() ? none : found->second;
}

void StackFans::read(const std::string& folder)
{
    newest_[folder] = readNewest(folder, fanned);
    // A folder made again after it went is watched again.
    QString path = QString::fromStdString(folder);
    if (!watcher_.directories().contains(path) && QFileInfo(path).isDir())
        watcher_.addPath(path);
}

std::vector<std::string> StackFans::readNewest(const std::string& folder, size_t count)
{
    QFileInfoList entries = QDir(QString::fromStdString(folder)).entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot, QDir::NoSort);
    std::vector<std::pair<QDateTime, QString>> dated;
    dated.reserve(static_cast<size_t>(entries.size()));
    for (const QFileInfo& entry : entries)
        dated.emplace_back(addedTime(entry), entry.absoluteFilePath());
    size_t kept = std::min(count, dated.size());
    // Newest first; the same moment goes by name, so that the pile does not shuffle.
    std::partial_sort(dated.begin(), dated.begin() + static_cast<ptrdiff_t>(kept), dated.end(), [](const auto& a, const auto& b) {
        return a.first != b.first ? a.first > b.first : a.second < b.second;
    });
    std::vector<std::string> newest;
    for (size_t index = 0; index < kept; ++index)
        newest.push_back(dated[index].second.toStdString());
    return newest;
}

} // namespace kestrune
