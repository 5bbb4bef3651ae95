#include "KestruneDock/Dock/DockStore.h"

#include <algorithm>
#include <filesystem>

#include <nlohmann/json.hpp>

#include "KestruneKit/Core/JsonFields.h"

#include "KestruneDock/Dock/DockPreferences.h"

namespace kestrune {

namespace {

void eraseValue(std::vector<std::string>& list, const std::string& value) { std::erase(list, value); }

bool contains(const std::vector<std::string>& list, const std::string& value)
{
    return std::find(list.begin(), list.end(), value) != list.end();
}

} // namespace

std::string DockStore::standardized(const std::string& path)
{
    if (path.empty())
        return path;
    auto normal = std::filesystem::path(path).lexically_normal().string();
    while (normal.size() > 1 && normal.back() == '/')
        normal.pop_back();
    return normal;
}

DockStore::DockStore(Preferences& preferences, Workspace& workspace, Runtime& runtime, TileRaster* raster)
    : preferences_(preferences)
    , workspace_(workspace)
    , runtime_(runtime)
    , raster_(raster)
    , self_(std::make_shared<DockStore*>(this))
{
    thisApp_ = workspace_.thisProcess();
    load();
    checkMissingRecents();
    rebuild();
    runningWatch_ = workspace_.watchRunningApplications([this] { rebuild(); });
    preferencesWatch_ = preferences_.addObserver([this](const std::string& key) {
        if (key == DockPreferences::showRecentsKey)
            rebuild();
    });
}

DockStore::~DockStore()
{
    *self_ = nullptr;
    workspace_.unwatchRunningApplications(runningWatch_);
    preferences_.removeObserver(preferencesWatch_);
}

bool DockStore::isApplicationPath(const std::string& path) const
{
    auto suffix = workspace_.applicationSuffix();
    return path.size() > suffix.size() && path.front() == '/' && path.ends_with(suffix);
}

std::vector<std::string> DockStore::readApplicationList(std::string_view key) const
{
    std::vector<std::string> paths;
    auto held = preferences_.value(key);
    auto* list = held ? std::get_if<std::vector<std::string>>(&*held) : nullptr;
    if (!list)
        return paths;
    for (const auto& entry : *list) {
        auto path = standardized(entry);
        if (isApplicationPath(path) && !contains(paths, path))
            paths.push_back(path);
    }
    return paths;
}

void DockStore::load()
{
    if (preferences_.value(pinnedKey)) {
        pinnedPaths_ = readApplicationList(pinnedKey);
    } else {
        // A first start: the desktop's own everyday apps, those that are installed.
        for (auto role : dockDefaultApps)
            if (auto path = workspace_.defaultApplication(role)) {
                auto app = standardized(*path);
                if (isApplicationPath(app) && !contains(pinnedPaths_, app))
                    pinnedPaths_.push_back(app);
            }
        writePinned();
    }

    recentPaths_ = readApplicationList(recentsKey);
    if (recentPaths_.size() > maxRecents)
        recentPaths_.resize(maxRecents);

    if (auto stacks = preferences_.stringListValue(stacksKey))
        for (const auto& entry : *stacks) {
            auto folder = standardized(entry);
            if (!folder.empty() && folder.front() == '/' && !contains(stackURLs_, folder))
                stackURLs_.push_back(folder);
        }

    // Stack options: a JSON object from folder path to that stack's string options. Anything
    // else is read as no options, and the stacks show with their defaults.
    if (auto data = preferences_.dataValue(stackOptionsKey)) {
        auto json = nlohmann::json::parse(data->bytes, nullptr, false);
        if (json.is_object())
            for (const auto& [folder, options] : json.items()) {
                if (!options.is_object())
                    continue;
                std::map<std::string, std::string> values;
                for (const auto& [key, value] : options.items())
                    if (value.is_string())
                        values.emplace(key, value.get<std::string>());
                stackOptions_.emplace(folder, std::move(values));
            }
    }
}

void DockStore::checkMissingRecents()
{
    if (missingChecked_)
        return;
    missingChecked_ = true;
    for (const auto& path : recentPaths_)
        if (!workspace_.fileExists(path))
            missingRecents_.insert(path);
    if (!missingRecents_.empty()) {
        std::erase_if(recentPaths_, [&](const auto& path) { return missingRecents_.contains(path); });
        writeRecents();
    }
}

bool DockStore::isPinned(const std::string& path) const { return contains(pinnedPaths_, path); }

DockApp DockStore::tile(const std::string& path, bool pinned) const
{
    DockApp app { path, pinned, std::nullopt };
    if (auto running = runningByPath_.find(path); running != runningByPath_.end())
        app.running = running->second;
    return app;
}

void DockStore::rebuild()
{
    std::map<std::string, RunningApplication> running;
    std::vector<std::string> startedNow;
    for (const auto& application : workspace_.runningApplications()) {
        if (application.processIdentifier == thisApp_ || application.path.empty())
            continue;
        auto path = standardized(application.path);
        if (running.try_emplace(path, application).second)
            startedNow.push_back(path);
    }

    // Apps that quit while shown as running-only become recents, the latest first (not those
    // that were only windows: there is nothing to start them again with).
    bool recentsChanged = false;
    for (const auto& path : runningOrder_)
        if (!running.contains(path) && !isPinned(path) && isApplicationPath(path)) {
            eraseValue(recentPaths_, path);
            recentPaths_.insert(recentPaths_.begin(), path);
            recentsChanged = true;
        }
    for (const auto& [path, application] : running)
        if (contains(recentPaths_, path)) {
            eraseValue(recentPaths_, path);
            recentsChanged = true;
        }
    if (recentPaths_.size() > maxRecents) {
        recentPaths_.resize(maxRecents);
        recentsChanged = true;
    }
    if (recentsChanged)
        writeRecents();

    // Keep the order of start: those seen before in their order, then the new ones.
    std::vector<std::string> order;
    for (const auto& path : runningOrder_)
        if (running.contains(path))
            order.push_back(path);
    for (const auto& path : startedNow)
        if (!contains(order, path))
            order.push_back(path);
    runningOrder_ = std::move(order);
    runningByPath_ = std::move(running);

    for (const auto& path : runningOrder_)
        if (auto found = launchStarted_.find(path); found != launchStarted_.end() && runningByPath_.at(path).finishedLaunching)
            endLaunch(path);

    pinnedItems_.clear();
    for (const auto& path : pinnedPaths_)
        pinnedItems_.push_back(tile(path, true));
    runningOnlyItems_.clear();
    for (const auto& path : runningOrder_)
        if (!isPinned(path))
            runningOnlyItems_.push_back(tile(path, false));
    recentItems_.clear();
    for (const auto& path : recentPaths_)
        if (!isPinned(path) && !runningByPath_.contains(path) && !missingRecents_.contains(path) && recentItems_.size() < maxRecents)
            recentItems_.push_back(tile(path, false));

    othersAndRecents_ = runningOnlyItems_;
    if (preferences_.boolValue(DockPreferences::showRecentsKey).value_or(DockPreferences {}.showRecents))
        othersAndRecents_.insert(othersAndRecents_.end(), recentItems_.begin(), recentItems_.end());

    for (const auto& app : pinnedItems_)
        (void)name(app.url);
    for (const auto& app : othersAndRecents_)
        (void)name(app.url);
    observers_.notify();
}

std::string DockStore::name(const std::string& path)
{
    auto found = names_.find(path);
    if (found == names_.end())
        found = names_.emplace(path, workspace_.displayName(path)).first;
    return found->second;
}

void DockStore::writePinned() { preferences_.set(pinnedKey, pinnedPaths_); }
void DockStore::writeRecents() { preferences_.set(recentsKey, recentPaths_); }

void DockStore::writeStacks()
{
    preferences_.set(stacksKey, stackURLs_);
    nlohmann::json options = nlohmann::json::object();
    for (const auto& [folder, values] : stackOptions_)
        options[folder] = values;
    try {
        preferences_.set(stackOptionsKey, PreferenceData { options.dump() });
    } catch (const nlohmann::json::exception&) {
        // A folder whose name is not UTF-8 has options that cannot be written; its stack is kept.
    }
}

void DockStore::pin(const std::string& path, std::optional<size_t> index)
{
    auto app = standardized(path);
    if (!isApplicationPath(app) || isPinned(app))
        return;
    size_t at = std::min(index.value_or(pinnedPaths_.size()), pinnedPaths_.size());
    pinnedPaths_.insert(pinnedPaths_.begin() + static_cast<ptrdiff_t>(at), app);
    writePinned();
    if (contains(recentPaths_, app)) {
        eraseValue(recentPaths_, app);
        writeRecents();
    }
    rebuild();
}

void DockStore::unpin(const std::string& path)
{
    auto app = standardized(path);
    if (!isPinned(app))
        return;
    eraseValue(pinnedPaths_, app);
    writePinned();
    // A running app keeps its tile, now among the running ones, as the newest of them.
    if (runningByPath_.contains(app)) {
        eraseValue(runningOrder_, app);
        runningOrder_.push_back(app);
    }
    rebuild();
}

void DockStore::movePinned(size_t from, size_t to)
{
    if (from >= pinnedPaths_.size() || from == to)
        return;
    to = std::min(to, pinnedPaths_.size() - 1);
    auto moving = pinnedPaths_[from];
    pinnedPaths_.erase(pinnedPaths_.begin() + static_cast<ptrdiff_t>(from));
    pinnedPaths_.insert(pinnedPaths_.begin() + static_cast<ptrdiff_t>(to), moving);
    writePinned();
    rebuild();
}

void DockStore::addStack(const std::string& folder, std::optional<size_t> index)
{
    auto path = standardized(folder);
    if (path.empty() || path.front() != '/' || contains(stackURLs_, path))
        return;
    size_t at = std::min(index.value_or(stackURLs_.size()), stackURLs_.size());
    stackURLs_.insert(stackURLs_.begin() + static_cast<ptrdiff_t>(at), path);
    writeStacks();
    observers_.notify();
}

void DockStore::removeStack(const std::string& folder)
{
    auto path = standardized(folder);
    if (!contains(stackURLs_, path))
        return;
    eraseValue(stackURLs_, path);
    stackOptions_.erase(path);
    writeStacks();
    observers_.notify();
}

void DockStore::setStackOptions(const std::string& folder, std::map<std::string, std::string> options)
{
    auto path = standardized(folder);
    if (!contains(stackURLs_, path))
        return;
    for (const auto& [key, value] : options)
        if (!isValidUtf8(key) || !isValidUtf8(value))
            return;
    stackOptions_[path] = std::move(options);
    writeStacks();
    observers_.notify();
}

void DockStore::setReorder(DockReorder reorder)
{
    if (reorder == reorder_)
        return;
    reorder_ = std::move(reorder);
    observers_.notify();
}

void DockStore::setMenuOpen(bool open)
{
    if (std::exchange(isMenuOpen_, open) != open)
        observers_.notify();
}

void DockStore::setStackOpen(bool open)
{
    if (std::exchange(isStackOpen_, open) != open)
        observers_.notify();
}

void DockStore::setNearDock(bool near)
{
    if (std::exchange(isNearDock_, near) != near)
        observers_.notify();
}

void DockStore::launch(const std::string& path)
{
    auto app = standardized(path);
    if (launching_.contains(app))
        return;
    auto running = runningByPath_.find(app);
    bool bounces = running == runningByPath_.end() || !running->second.finishedLaunching;
    if (bounces) {
        launching_.insert(app);
        launchStarted_[app] = runtime_.now();
        std::weak_ptr<DockStore*> weak = self_;
        launchWatches_[app] = runtime_.schedule(Seconds(launchLimitSeconds), TimerRepeat::once, Seconds(1), [weak, app] {
            if (auto self = weak.lock(); self && *self)
                (*self)->endLaunch(app);
        });
        observers_.notify();
    }
    std::weak_ptr<DockStore*> weak = self_;
    workspace_.launch(app, [weak, app, bounces](bool) {
        if (auto self = weak.lock(); self && *self && bounces)
            (*self)->endLaunch(app);
    });
}

void DockStore::endLaunch(const std::string& path)
{
    launchWatches_.erase(path);
    launchStarted_.erase(path);
    if (launching_.erase(path))
        observers_.notify();
}

std::optional<Date> DockStore::launchStarted(const std::string& path) const
{
    auto found = launchStarted_.find(standardized(path));
    return found == launchStarted_.end() ? std::nullopt : std::optional(found->second);
}

DockIconSource DockStore::iconSource(const std::string& path) const
{
    if (auto source = workspace_.icon(path); source && !source->name.empty())
        return *source;
    return { std::string(workspace_.applicationSuffix() == ".app" ? genericIconPath : genericIconName), true };
}

const CachedIcon* DockStore::icon(const std::string& path, double tileSize, double scale)
{
    if (!raster_)
        return nullptr;
    auto found = iconCache_.find(path);
    if (found != iconCache_.end() && found->second.tileSize == tileSize && found->second.bitmap.scale == scale)
        return &found->second;
    auto source = iconSource(path);
    CachedIcon cached { source, raster_->render(source, tileSize, scale), tileSize };
    cached.bitmap.scale = scale;
    return &(iconCache_[path] = std::move(cached));
}

void DockStore::appearanceChanged(const std::string& appearanceName)
{
    if (appearanceName == appearanceName_)
        return;
    appearanceName_ = appearanceName;
    iconStyleChanged();
}

void DockStore::iconStyleChanged()
{
    iconCache_.clear();
    observers_.notify();
}

uint64_t DockStore::addObserver(std::function<void()> observer) { return observers_.add(std::move(observer)); }

void DockStore::removeObserver(uint64_t id) { observers_.remove(id); }

} // namespace kestrune
