#pragma once

// Lenient field reads for other tools' JSON answers: a missing key or a value of another type
// reads as empty or zero, so one odd element never fails a whole list.

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace kestrune {

[[nodiscard]] inline std::string jsonText(const nlohmann::json& object, const char* key)
{
    auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string {};
}

[[nodiscard]] inline int jsonInteger(const nlohmann::json& object, const char* key)
{
    auto found = object.find(key);
    return found != object.end() && found->is_number_integer() ? found->get<int>() : 0;
}

[[nodiscard]] inline bool jsonFlag(const nlohmann::json& object, const char* key, bool fallback)
{
    auto found = object.find(key);
    return found != object.end() && found->is_boolean() ? found->get<bool>() : fallback;
}

// Strict, for our own stored records: an object whose values are all strings, or none.
[[nodiscard]] inline std::optional<std::map<std::string, std::string>> jsonStringMap(const nlohmann::json& object)
{
    if (!object.is_object())
        return std::nullopt;
    std::map<std::string, std::string> values;
    for (const auto& [key, value] : object.items()) {
        if (!value.is_string())
            return std::nullopt;
        values.emplace(key, value.get<std::string>());
    }
    return values;
}

// Whether text can be written as JSON at all: well-formed UTF-8.
[[nodiscard]] inline bool isValidUtf8(std::string_view text)
{
    try {
        (void)nlohmann::json(std::string(text)).dump();
        return true;
    } catch (const nlohmann::json::exception&) {
        return false;
    }
}

} // namespace kestrune
