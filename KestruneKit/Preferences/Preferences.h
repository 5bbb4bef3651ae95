#pragma once
// OVERVIEW
// Typed settings per domain, as the dock and its widgets keep them: bool, integer, double,
// string, string list and data. On macOS the standard preferences system; on Linux one JSON file
// per domain under $XDG_CONFIG_HOME/kestrune-dock/, written atomically under a lock so that two
// processes writing the same domain never lose each other's keys.
//
// TYPICAL USAGE
//   auto preferences = Preferences::open(dockPreferencesDomain);
//   preferences->set("iconSize", 48.0);
//   double size = preferences->doubleValue("iconSize").value_or(64);
//
// Main thread only. A change made here is on disk when `set` returns; `synchronize` also takes
// in what other processes wrote since.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "KestruneKit/Core/ObserverList.h"

namespace kestrune {

// The dock application's own domain; other applications of the family read its widget row.
inline constexpr const char* dockPreferencesDomain = "app.quillane.dock";

// Bytes, kept apart from text (the widget list is JSON stored as data, as on macOS).
struct PreferenceData {
    std::string bytes;
    bool operator==(const PreferenceData&) const = default;
};

using PreferenceValue = std::variant<bool, int64_t, double, std::string, std::vector<std::string>, PreferenceData>;

class Preferences {
public:
    virtual ~Preferences() = default;

    // The platform's store for a domain.
    [[nodiscard]] static std::unique_ptr<Preferences> open(const std::string& domain);

    [[nodiscard]] virtual std::optional<PreferenceValue> value(std::string_view key) const = 0;
    virtual void set(std::string_view key, PreferenceValue value) = 0;
    virtual void remove(std::string_view key) = 0;
    // Writes what is pending and reads what others wrote; false when the store cannot be written.
    virtual bool synchronize() = 0;
    // Why changes are not reaching the disk, in words for the user; none while they are.
    [[nodiscard]] virtual std::optional<std::string> saveFailure() const { return std::nullopt; }

    // Typed reads: none when the key is missing or holds another type. Numbers convert between
    // integer and double, as the standard preferences system does.
    [[nodiscard]] std::optional<bool> boolValue(std::string_view key) const;
    [[nodiscard]] std::optional<int64_t> integerValue(std::string_view key) const;
    [[nodiscard]] std::optional<double> doubleValue(std::string_view key) const;
    [[nodiscard]] std::optional<std::string> stringValue(std::string_view key) const;
    [[nodiscard]] std::optional<std::vector<std::string>> stringListValue(std::string_view key) const;
    [[nodiscard]] std::optional<PreferenceData> dataValue(std::string_view key) const;

    // Called with the key after each change, whoever made it (this object, or another process
    // as seen by `synchronize`). Returns an id for `removeObserver`.
    uint64_t addObserver(std::function<void(const std::string& key)> observer);
    void removeObserver(uint64_t id);

protected:
    void notify(const std::string& key);

private:
    ObserverList<const std::string&> observers_;
};

// The Linux store, also usable anywhere for tests and tools: one JSON file.
class JSONFilePreferences final : public Preferences {
public:
    explicit JSONFilePreferences(std::string path);
    [[nodiscard]] static std::string folder();

    [[nodiscard]] std::optional<PreferenceValue> value(std::string_view key) const override;
    void set(std::string_view key, PreferenceValue value) override;
    void remove(std::string_view key) override;
    bool synchronize() override;
    [[nodiscard]] const std::string& path() const { return path_; }
    // Where a damaged file was kept aside when it was last loaded; empty when none was.
    [[nodiscard]] const std::string& setAside() const { return setAside_; }
    // Why the last write did not reach the disk, in words for the user; none once one has. The
    // changes are kept meanwhile, and written by the next write or synchronize that can.
    [[nodiscard]] std::optional<std::string> saveFailure() const override { return saveFailure_; }

private:
    using Entries = std::map<std::string, std::string, std::less<>>;
    enum class Loaded { file, missing, damaged, unreadable };

    // Takes the pending changes at once, then, under the domain's lock, reads the file, puts
    // them over it and writes it back.
    bool save();
    bool write();
    Loaded load(Entries& into);
    bool fail(std::string text);

    std::string path_;
    std::string setAside_;
    std::optional<std::string> saveFailure_;
    // Everything in the file, our keys and keys we do not know, as JSON text per key, in order.
    Entries entries_;
    // Our changes not yet on disk: a value, or none for a removal.
    std::map<std::string, std::optional<std::string>, std::less<>> pending_;
};

} // namespace kestrune
