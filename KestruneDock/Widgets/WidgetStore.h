#pragma once
// OVERVIEW
// The widgets in the dock row, in order: one list for the whole application, kept in the
// preferences as JSON data under "widgets" and written back after every change, so the list on
// disk is always the one last shown. Observers (the row, the settings, the pager) hear each
// change once it is made.
//
// TYPICAL USAGE
//   auto& store = WidgetStore::shared();
//   auto id = store.add(WidgetKind::clock);
//   store.setStyle(id, "analog");
//   store.addObserver([](const std::vector<WidgetInstance>& row) { ... });
//
// Main thread only. Another process editing the same preferences (`kestrune widgets ...`) is
// followed: the store reloads when the preferences report a new "widgets" value, which a
// `PreferencesFollower` makes them do as soon as the file changes.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KestruneDock/Widgets/WidgetKind.h"
#include "KestruneKit/Core/ObserverList.h"
#include "KestruneKit/Core/Uuid.h"
#include "KestruneKit/Preferences/Preferences.h"

namespace kestrune {

struct WidgetInstance {
    Uuid id;
    WidgetKind kind = WidgetKind::clock;
    // A face identifier, or "" for the kind's default face.
    std::string style;
    std::map<std::string, std::string> options;

    // One widget is one id, whatever its settings.
    bool operator==(const WidgetInstance& other) const { return id == other.id; }

    [[nodiscard]] static WidgetInstance make(WidgetKind kind, std::string style = {});
};

// An array of objects with "id", "kind", "style" and "options", ids upper-case.
[[nodiscard]] std::optional<std::string> encodeWidgetInstances(const std::vector<WidgetInstance>& instances);
// Strict: all four keys on every element, a known kind, a well-formed id, string options. One bad
// element fails the whole list.
[[nodiscard]] std::optional<std::vector<WidgetInstance>> decodeWidgetInstances(std::string_view json);
// Folds the retired kinds into their successors: an instance whose successor is already in the
// row goes; otherwise it keeps its place and id, with the successor's kind and default face and
// no options. True when anything changed.
bool foldRetiredKinds(std::vector<WidgetInstance>& instances);

class WidgetStore {
public:
    static constexpr std::string_view key = "widgets";
    // The switches of the release that had three fixed widgets.
    static constexpr std::string_view showMusicKey = "showMusic";
    static constexpr std::string_view showBatteryKey = "showBattery";
    static constexpr std::string_view showClockKey = "showClock";

    // Loads (and, on a first start, migrates) the list at once.
    explicit WidgetStore(Preferences& preferences);
    ~WidgetStore();
    WidgetStore(const WidgetStore&) = delete;
    WidgetStore& operator=(const WidgetStore&) = delete;

    // The application's store over its own preferences, made on first use.
    [[nodiscard]] static WidgetStore& shared();

    [[nodiscard]] const std::vector<WidgetInstance>& instances() const { return instances_; }
    [[nodiscard]] const WidgetInstance* instance(const Uuid& id) const;

    Uuid add(WidgetKind kind);
    void remove(const Uuid& id);
    // Puts `id` where `beside` stands: after it when moving forward, before it when moving back.
    void move(const Uuid& id, const Uuid& beside);
    void moveUp(const Uuid& id);
    void moveDown(const Uuid& id);
    // False, and nothing changes, for text that is not UTF-8: it could never be saved.
    bool setStyle(const Uuid& id, std::string style);
    bool setOption(const Uuid& id, const std::string& optionKey, std::string value);
    void apply(const WidgetPreset& preset);

    // The gallery's kinds of a category, in catalogue order, retired kinds left out.
    [[nodiscard]] static std::vector<WidgetKind> kindsInCategory(WidgetCategory category);

    uint64_t addObserver(std::function<void(const std::vector<WidgetInstance>&)> observer);
    void removeObserver(uint64_t id);

    // Writes the list; false when it could not be encoded or written.
    bool save();

private:
    void load();
    void reloadFromPreferences();
    void publish(std::vector<WidgetInstance> instances);

    Preferences& preferences_;
    std::vector<WidgetInstance> instances_;
    bool loaded_ = false;
    // Set while this store writes, so that its own write is not taken for another process's.
    bool building_ = false;
    std::string lastSaved_;
    uint64_t preferencesWatch_ = 0;
    ObserverList<const std::vector<WidgetInstance>&> observers_;
};

} // namespace kestrune
