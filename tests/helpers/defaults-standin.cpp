// Stands in for macOS's `defaults` over our own preferences store (the folder in
// $KESTRUNE_DEFAULTS_STORE, one JSON file per domain): read prints a bool as 1 or 0 and numbers
// and strings as macOS's tool does, and fails on a missing key; write takes -bool, -int, -float
// and -string; delete fails on a missing key.

#include <cstdio>
#include <cstdlib>
#include <string>

#include <fmt/format.h>

#include "KestruneKit/Preferences/Preferences.h"

using namespace kestrune;

int main(int argc, char** argv)
{
    const char* store = std::getenv("KESTRUNE_DEFAULTS_STORE");
    if (!store || argc < 4) {
        std::fprintf(stderr, "usage: defaults read|write|delete DOMAIN KEY [-type VALUE]\n");
        return 2;
    }
    std::string command = argv[1], domain = argv[2], key = argv[3];
    JSONFilePreferences preferences(std::string(store) + "/" + domain + ".json");
    auto missing = [&] {
        std::fprintf(stderr, "\nThe domain/default pair of (%s, %s) does not exist\n", domain.c_str(), key.c_str());
        return 1;
    };
    if (command == "read") {
        auto value = preferences.value(key);
        if (!value)
            return missing();
        std::string text = std::visit(
            [](const auto& held) -> std::string {
                using T = std::decay_t<decltype(held)>;
                if constexpr (std::is_same_v<T, bool>)
                    return held ? "1" : "0";
                else if constexpr (std::is_same_v<T, int64_t> || std::is_same_v<T, double>)
                    return fmt::format("{}", held);
                else if constexpr (std::is_same_v<T, std::string>)
                    return held;
                else
                    return "(unsupported)";
            },
            *value);
        std::printf("%s\n", text.c_str());
        return 0;
    }
    if (command == "delete") {
        if (!preferences.value(key))
            return missing();
        preferences.remove(key);
        return 0;
    }
    if (command == "write" && argc == 6) {
        std::string type = argv[4], text = argv[5];
        if (type == "-bool")
            preferences.set(key, text == "true" || text == "YES" || text == "1");
        else if (type == "-int")
            preferences.set(key, static_cast<int64_t>(std::stoll(text)));
        else if (type == "-float")
            preferences.set(key, std::stod(text));
        else if (type == "-string")
            preferences.set(key, text);
        else
            return 2;
        return 0;
    }
    return 2;
}
