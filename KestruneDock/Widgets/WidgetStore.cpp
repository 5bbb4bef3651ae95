#include "KestruneDock/Widgets/WidgetStore.h"

#include <algorithm>
#include <set>

#include <nlohmann/json.hpp>

#include "KestruneKit/Core/JsonFields.h"

namespace kestrune {

namespace {

using OrderedJson = nlohmann::ordered_json;

} // namespace

WidgetInstance WidgetInstance::make(WidgetKind kind, std::string style)
{
    return { Uuid::random(), kind, std::move(style), {} };
}

std::optional<std::string> encodeWidgetInstances(const std::vector<WidgetInstance>& instances)
{
    auto list = OrderedJson::array();
    for (const auto& instance : instances) {
        OrderedJson options = OrderedJson::object();
        for (const auto& [key, value] : instance.options)
            options[key] = value;
        list.push_back(OrderedJson {
            { "id", instance.id.toString() },
            { "kind", std::string(toString(instance.kind)) },
            { "style", instance.style },
            { "options", std::move(options) },
        });
    }
    try {
        return list.dump();
    } catch (const nlohmann::json::exception&) {
        return std::nullopt;
    }
}

std::optional<std::vector<WidgetInstance>> decodeWidgetInstances(std::string_view json)
{
    auto list = nlohmann::json::parse(json, nullptr, false);
    if (!list.is_array())
        return std::nullopt;
    std::vector<WidgetInstance> instances;
    instances.reserve(list.size());
    for (const auto& element : list) {
        if (!element.is_object())
            return std::nullopt;
        auto id = element.find("id");
        auto kind = element.find("kind");
        auto style = element.find("style");
        auto options = element.find("options");
        if (id == element.end() || kind == element.end() || style == element.end() || options == element.end())
            return std::nullopt;
        if (!id->is_string() || !kind->is_string() || !style->is_string())
            return std::nullopt;
        auto uuid = Uuid::fromString(id->get_ref<const std::string&>());
        auto widgetKind = widgetKindFromString(kind->get_ref<const std::string&>());
        auto values = jsonStringMap(*options);
        if (!uuid || !widgetKind || !values)
            return std::nullopt;
        instances.push_back({ *uuid, *widgetKind, style->get<std::string>(), std::move(*values) });
    }
    return instances;
}

bool foldRetiredKinds(std::vector<WidgetInstance>& instances)
{
    std::set<WidgetKind> present;
    for (const auto& instance : instances)
        present.insert(instance.kind);

    bool changed = false;
    std::vector<WidgetInstance> folded;
    folded.reserve(instances.size());
    for (auto& instance : instances) {
        auto next = successor(instance.kind);
        if (!next) {
            folded.push_back(std::move(instance));
            continue;
        }
        changed = true;
        if (!present.insert(*next).second)
            continue;
        instance.kind = *next;
        instance.style = defaultStyle(*next);
        instance.options.clear();
        folded.push_back(std::move(instance));
    }
    instances = std::move(folded);
    return changed;
}

WidgetStore::WidgetStore(Preferences& preferences)
    : preferences_(preferences)
{
    load();
    preferencesWatch_ = preferences_.addObserver([this](const std::string& changed) {
        if (changed == key && !building_)
            reloadFromPreferences();
    });
}

WidgetStore::~WidgetStore() { preferences_.removeObserver(preferencesWatch_); }

WidgetStore& WidgetStore::shared()
{
    static auto preferences = Preferences::open(dockPreferencesDomain);
    static WidgetStore store(*preferences);
    return store;
}

void WidgetStore::load()
{
    if (auto data = preferences_.dataValue(key)) {
        if (auto decoded = decodeWidgetInstances(data->bytes)) {
            bool folded = foldRetiredKinds(*decoded);
            instances_ = std::move(*decoded);
            loaded_ = true;
            if (folded)
                save();
            else
                lastSaved_ = data->bytes;
            return;
        }
    }

    // A first start (or a value nobody can read): bring over the fixed widgets of the earlier
    // release, each on unless its switch was turned off.
    std::vector<WidgetInstance> migrated;
    if (preferences_.boolValue(showMusicKey).value_or(true))
        migrated.push_back(WidgetInstance::make(WidgetKind::nowPlaying));
    if (preferences_.boolValue(showBatteryKey).value_or(true))
        migrated.push_back(WidgetInstance::make(WidgetKind::battery, "classic"));
    if (preferences_.boolValue(showClockKey).value_or(true))
        migrated.push_back(WidgetInstance::make(WidgetKind::clock, "digital"));
    instances_ = std::move(migrated);
    loaded_ = true;
    save();
}

void WidgetStore::reloadFromPreferences()
{
    auto data = preferences_.dataValue(key);
    if (data && data->bytes == lastSaved_)
        return;
    auto decoded = data ? decodeWidgetInstances(data->bytes) : std::nullopt;
    if (!decoded) {
        // Someone removed or spoiled the row: the row we show is the user's, so it goes back.
        save();
        return;
    }
    bool folded = foldRetiredKinds(*decoded);
    lastSaved_ = data->bytes;
    publish(std::move(*decoded));
    if (folded)
        save();
}

bool WidgetStore::save()
{
    auto bytes = encodeWidgetInstances(instances_);
    if (!bytes)
        return false;
    building_ = true;
    preferences_.set(key, PreferenceData { *bytes });
    building_ = false;
    lastSaved_ = std::move(*bytes);
    return true;
}

void WidgetStore::publish(std::vector<WidgetInstance> instances)
{
    instances_ = std::move(instances);
    observers_.notify(instances_);
}

const WidgetInstance* WidgetStore::instance(const Uuid& id) const
{
    auto found = std::find_if(instances_.begin(), instances_.end(), [&](const auto& instance) { return instance.id == id; });
    return found == instances_.end() ? nullptr : &*found;
}

Uuid WidgetStore::add(WidgetKind kind)
{
    auto instances = instances_;
    instances.push_back(WidgetInstance::make(kind));
    Uuid id = instances.back().id;
    publish(std::move(instances));
    save();
    return id;
}

void WidgetStore::remove(const Uuid& id)
{
    auto instances = instances_;
    std::erase_if(instances, [&](const auto& instance) { return instance.id == id; });
    publish(std::move(instances));
    save();
}

void WidgetStore::move(const Uuid& id, const Uuid& beside)
{
    auto position = [&](const Uuid& wanted) {
        return std::find_if(instances_.begin(), instances_.end(), [&](const auto& instance) { return instance.id == wanted; }) - instances_.begin();
    };
    auto from = static_cast<size_t>(position(id));
    auto to = static_cast<size_t>(position(beside));
    if (from < instances_.size() && to < instances_.size() && from != to) {
        auto instances = instances_;
        auto moving = std::move(instances[from]);
        instances.erase(instances.begin() + static_cast<ptrdiff_t>(from));
        instances.insert(instances.begin() + static_cast<ptrdiff_t>(to), std::move(moving));
        publish(std::move(instances));
    }
    save();
}

void WidgetStore::moveUp(const Uuid& id)
{
    for (size_t i = 1; i < instances_.size(); ++i)
        if (instances_[i].id == id) {
            move(id, instances_[i - 1].id);
            return;
        }
    save();
}

void WidgetStore::moveDown(const Uuid& id)
{
    for (size_t i = 0; i + 1 < instances_.size(); ++i)
        if (instances_[i].id == id) {
            move(id, instances_[i + 1].id);
            return;
        }
    save();
}

bool WidgetStore::setStyle(const Uuid& id, std::string style)
{
    if (!isValidUtf8(style))
        return false;
    auto instances = instances_;
    for (auto& instance : instances)
        if (instance.id == id)
            instance.style = style;
    publish(std::move(instances));
    save();
    return true;
}

bool WidgetStore::setOption(const Uuid& id, const std::string& optionKey, std::string value)
{
    if (!isValidUtf8(optionKey) || !isValidUtf8(value))
        return false;
    auto instances = instances_;
    for (auto& instance : instances)
        if (instance.id == id)
            instance.options[optionKey] = value;
    publish(std::move(instances));
    save();
    return true;
}

void WidgetStore::apply(const WidgetPreset& preset)
{
    std::vector<WidgetInstance> instances;
    instances.reserve(preset.kinds.size());
    for (auto kind : preset.kinds)
        instances.push_back(WidgetInstance::make(kind));
    publish(std::move(instances));
    save();
}

std::vector<WidgetKind> WidgetStore::kindsInCategory(WidgetCategory wanted)
{
    std::vector<WidgetKind> kinds;
    for (auto kind : allWidgetKinds())
        if (category(kind) == wanted && !isRetired(kind))
            kinds.push_back(kind);
    return kinds;
}

uint64_t WidgetStore::addObserver(std::function<void(const std::vector<WidgetInstance>&)> observer)
{
    return observers_.add(std::move(observer));
}

void WidgetStore::removeObserver(uint64_t id) { observers_.remove(id); }

} // namespace kestrune
