#pragma once

// Lenient field reads for other tools' JSON answers: a missing key or a value of another type
// reads as empty or zero, so one odd element never fails a whole list.

#include <string>

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

} // namespace kestrune
