#include "KestruneKit/Preferences/Preferences.h"

#include <cerrno>
#include <cstring>
#include <cmath>
#include <ctime>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "KestruneKit/Core/AtomicFile.h"
#include "KestruneKit/Core/Environment.h"
#include "KestruneKit/Core/UniqueFd.h"

namespace kestrune {

namespace {

using Json = nlohmann::json;

constexpr std::string_view base64Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view dataKey = "$data";

std::string base64(std::string_view bytes)
{
    std::string text;
    for (size_t at = 0; at < bytes.size(); at += 3) {
        size_t left = bytes.size() - at;
        auto byte = [&](size_t index) { return index < left ? static_cast<uint32_t>(static_cast<uint8_t>(bytes[at + index])) : 0u; };
        uint32_t chunk = byte(0) << 16 | byte(1) << 8 | byte(2);
        text += base64Alphabet[(chunk >> 18) & 63];
        text += base64Alphabet[(chunk >> 12) & 63];
        text += left > 1 ? base64Alphabet[(chunk >> 6) & 63] : '=';
        text += left > 2 ? base64Alphabet[chunk & 63] : '=';
    }
    return text;
}

std::optional<std::string> fromBase64(std::string_view text)
{
    std::string bytes;
    uint32_t chunk = 0;
    int bits = 0;
    for (char c : text) {
        if (c == '=')
            break;
        auto value = base64Alphabet.find(c);
        if (value == std::string_view::npos)
            return std::nullopt;
        chunk = (chunk << 6) | static_cast<uint32_t>(value);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            bytes += static_cast<char>((chunk >> bits) & 0xff);
        }
    }
    return bytes;
}

std::string encode(const PreferenceValue& value)
{
    return std::visit(
        [](const auto& held) -> std::string {
            using T = std::decay_t<decltype(held)>;
            if constexpr (std::is_same_v<T, PreferenceData>)
                return Json { { dataKey, base64(held.bytes) } }.dump();
            else if constexpr (std::is_same_v<T, double>)
                // Non-finite numbers have no JSON form; they are stored as none.
                return std::isfinite(held) ? Json(held).dump() : std::string("null");
            else
                return Json(held).dump();
        },
        value);
}

std::optional<PreferenceValue> decode(const std::string& text)
{
    auto json = Json::parse(text, nullptr, false);
    if (json.is_boolean())
        return json.get<bool>();
    if (json.is_number_integer())
        return json.get<int64_t>();
    if (json.is_number_float())
        return json.get<double>();
    if (json.is_string())
        return json.get<std::string>();
    if (json.is_array()) {
        std::vector<std::string> list;
        for (const auto& item : json) {
            if (!item.is_string())
                return std::nullopt;
            list.push_back(item.get<std::string>());
        }
        return list;
    }
    if (json.is_object() && json.size() == 1 && json.contains(dataKey) && json[std::string(dataKey)].is_string())
        if (auto bytes = fromBase64(json[std::string(dataKey)].get<std::string>()))
            return PreferenceData { *bytes };
    return std::nullopt;
}

} // namespace

std::optional<bool> Preferences::boolValue(std::string_view key) const
{
    auto held = value(key);
    if (!held)
        return std::nullopt;
    if (auto* flag = std::get_if<bool>(&*held))
        return *flag;
    if (auto* number = std::get_if<int64_t>(&*held))
        return *number != 0;
    return std::nullopt;
}

std::optional<int64_t> Preferences::integerValue(std::string_view key) const
{
    auto held = value(key);
    if (!held)
        return std::nullopt;
    if (auto* number = std::get_if<int64_t>(&*held))
        return *number;
    if (auto* real = std::get_if<double>(&*held))
        return static_cast<int64_t>(*real);
    return std::nullopt;
}

std::optional<double> Preferences::doubleValue(std::string_view key) const
{
    auto held = value(key);
    if (!held)
        return std::nullopt;
    if (auto* real = std::get_if<double>(&*held))
        return *real;
    if (auto* number = std::get_if<int64_t>(&*held))
        return static_cast<double>(*number);
    return std::nullopt;
}

std::optional<std::string> Preferences::stringValue(std::string_view key) const
{
    auto held = value(key);
    auto* text = held ? std::get_if<std::string>(&*held) : nullptr;
    return text ? std::optional(*text) : std::nullopt;
}

std::optional<std::vector<std::string>> Preferences::stringListValue(std::string_view key) const
{
    auto held = value(key);
    auto* list = held ? std::get_if<std::vector<std::string>>(&*held) : nullptr;
    return list ? std::optional(*list) : std::nullopt;
}

std::optional<PreferenceData> Preferences::dataValue(std::string_view key) const
{
    auto held = value(key);
    auto* data = held ? std::get_if<PreferenceData>(&*held) : nullptr;
    return data ? std::optional(*data) : std::nullopt;
}

uint64_t Preferences::addObserver(std::function<void(const std::string&)> observer)
{
    return observers_.add(std::move(observer));
}

void Preferences::removeObserver(uint64_t id) { observers_.remove(id); }

void Preferences::notify(const std::string& key) { observers_.notify(key); }

std::string JSONFilePreferences::folder()
{
    auto environment = processEnvironment();
    auto config = environment.find("XDG_CONFIG_HOME");
    if (config != environment.end() && !config->second.empty() && config->second[0] == '/')
        return config->second + "/kestrune-dock";
    return homeFolder() + "/.config/kestrune-dock";
}

JSONFilePreferences::JSONFilePreferences(std::string path) : path_(std::move(path))
{
    if (load(entries_) == Loaded::unreadable)
        fail("Your settings in " + path_ + " can’t be read, so nothing is saved over them");
}

JSONFilePreferences::Loaded JSONFilePreferences::load(Entries& into)
{
    errno = 0;
    auto text = readWholeFile(path_);
    if (!text)
        return errno == ENOENT || errno == ENOTDIR ? Loaded::missing : Loaded::unreadable;
    auto json = Json::parse(*text, nullptr, false);
    if (!json.is_object()) {
        // Kept aside under a new name for the user or us to look at, rather than failing every
        // read; nothing else is touched.
        std::time_t now = std::time(nullptr);
        std::tm parts {};
        localtime_r(&now, &parts);
        char stamp[32];
        std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &parts);
        std::string aside = fmt::format("{}.damaged-{}", path_, stamp);
        for (int suffix = 2; ::access(aside.c_str(), F_OK) == 0; ++suffix)
            aside = fmt::format("{}.damaged-{}-{}", path_, stamp, suffix);
        if (::rename(path_.c_str(), aside.c_str()) == 0)
            setAside_ = aside;
        return Loaded::damaged;
    }
    into.clear();
    for (const auto& [key, value] : json.items())
        into[key] = value.dump();
    return Loaded::file;
}

std::optional<PreferenceValue> JSONFilePreferences::value(std::string_view key) const
{
    auto found = entries_.find(key);
    return found == entries_.end() ? std::nullopt : decode(found->second);
}

bool JSONFilePreferences::fail(std::string text)
{
    saveFailure_ = std::move(text);
    return false;
}

bool JSONFilePreferences::save()
{
    auto before = entries_;
    for (const auto& [key, text] : pending_)
        if (text)
            entries_[key] = *text;
        else
            entries_.erase(key);
    bool saved = write();
    // Collected first: an observer may change the domain again while it hears.
    std::vector<std::string> changed;
    for (const auto& [key, text] : entries_)
        if (auto old = before.find(key); old == before.end() || old->second != text)
            changed.push_back(key);
    for (const auto& [key, text] : before)
        if (!entries_.count(key))
            changed.push_back(key);
    for (const auto& key : changed)
        notify(key);
    return saved;
}

bool JSONFilePreferences::write()
{
    auto failWith = [&](int error) {
        std::string folder = parentFolder(path_);
        if (error == EACCES || error == EPERM || error == EROFS)
            return fail("Your settings can’t be saved, as " + folder + " is read-only. Changes are kept while the app runs");
        if (error == ENOSPC || error == EDQUOT)
            return fail("Your settings can’t be saved, as the disk is full. Changes are kept while the app runs");
        return fail("Your settings can’t be saved: " + std::string(std::strerror(error)) + ". Changes are kept while the app runs");
    };
    if (!createFolders(parentFolder(path_)))
        return failWith(errno);
    UniqueFd lock(::open((path_ + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!lock)
        return failWith(errno);
    while (::flock(lock.get(), LOCK_EX) != 0)
        if (errno != EINTR)
            return failWith(errno);
    // What another process wrote since we last looked is taken in first, so that writing our
    // changes does not undo theirs. A file that cannot be read is never written over; one that
    // turned to garbage was kept aside, and what we hold is written in its place.
    Entries disk;
    switch (load(disk)) {
    case Loaded::unreadable:
        return fail("Your settings in " + path_ + " can’t be read, so nothing is saved over them");
    case Loaded::damaged:
        disk = entries_;
        break;
    case Loaded::missing:
    case Loaded::file:
        break;
    }
    for (const auto& [key, text] : pending_)
        if (text)
            disk[key] = *text;
        else
            disk.erase(key);
    entries_ = std::move(disk);
    Json object = Json::object();
    for (const auto& [key, text] : entries_)
        object[key] = Json::parse(text, nullptr, false);
    // Nothing new is not written: a rewrite would wake every follower of the file (our own among
    // them), which would synchronize and write again, for ever.
    std::string text = object.dump(2) + "\n";
    if (readWholeFile(path_) != text)
        if (auto error = writeFileAtomically(path_, text))
            return failWith(*error);
    pending_.clear();
    saveFailure_.reset();
    return true;
}

void JSONFilePreferences::set(std::string_view key, PreferenceValue value)
{
    std::string text = encode(value);
    pending_[std::string(key)] = text == "null" ? std::nullopt : std::optional(text);
    save();
}

void JSONFilePreferences::remove(std::string_view key)
{
    pending_[std::string(key)] = std::nullopt;
    save();
}

bool JSONFilePreferences::synchronize() { return save(); }

} // namespace kestrune
