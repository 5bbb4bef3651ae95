#include "KestruneDock/Desktop/WindowMatcher.h"

#include <algorithm>
#include <cctype>

namespace kestrune {

namespace {

bool sameIgnoringCase(std::string_view a, std::string_view b)
{
    return a.size() == b.size()
        && std::equal(a.begin(), a.end(), b.begin(), [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

std::string_view lastComponent(std::string_view id, char separator)
{
    auto at = id.find_last_of(separator);
    return at == std::string_view::npos ? id : id.substr(at + 1);
}

std::string_view withoutSuffix(std::string_view name, std::string_view suffix)
{
    return name.ends_with(suffix) ? name.substr(0, name.size() - suffix.size()) : name;
}

template<typename Predicate>
std::optional<size_t> first(std::span<const DesktopEntryFacts> entries, Predicate matches)
{
    for (size_t index = 0; index < entries.size(); ++index)
        if (matches(entries[index]))
            return index;
    return std::nullopt;
}

} // namespace

std::string execProgram(std::string_view exec)
{
    std::vector<std::string> words;
    std::string word;
    bool quoted = false, any = false;
    for (size_t index = 0; index < exec.size(); ++index) {
        char c = exec[index];
        if (c == '\\' && quoted && index + 1 < exec.size()) {
            word += exec[++index];
        } else if (c == '"') {
            quoted = !quoted;
            any = true;
        } else if (!quoted && (c == ' ' || c == '\t')) {
            if (any || !word.empty())
                words.push_back(std::move(word));
            word.clear();
            any = false;
        } else {
            word += c;
        }
    }
    if (any || !word.empty())
        words.push_back(std::move(word));
    size_t at = 0;
    if (at < words.size() && lastComponent(words[at], '/') == "env") {
        ++at;
        while (at < words.size() && (words[at].find('=') != std::string::npos || words[at].starts_with('-'))) {
            // These two take the next word as their value.
            bool takesValue = words[at] == "-u" || words[at] == "-C";
            at += takesValue ? 2 : 1;
        }
    }
    return at < words.size() ? words[at] : std::string();
}

WindowMatch matchWindow(const WindowFacts& window, std::span<const DesktopEntryFacts> entries)
{
    auto found = [](std::optional<size_t> entry, WindowMatchEvidence evidence) {
        return entry ? WindowMatch { entry, evidence } : WindowMatch {};
    };
    if (!window.gtkApplicationId.empty())
        if (auto entry = first(entries, [&](const auto& e) { return sameIgnoringCase(e.id, window.gtkApplicationId); }))
            return found(entry, WindowMatchEvidence::gtkApplicationId);

    if (!window.kdeDesktopFile.empty()) {
        std::string_view named = withoutSuffix(lastComponent(window.kdeDesktopFile, '/'), ".desktop");
        if (auto entry = first(entries, [&](const auto& e) { return sameIgnoringCase(e.id, named); }))
            return found(entry, WindowMatchEvidence::kdeDesktopFile);
    }

    auto classIs = [&](std::string_view name) {
        return !name.empty() && (sameIgnoringCase(name, window.wmClass) || sameIgnoringCase(name, window.wmClassInstance));
    };
    if (!window.wmClass.empty() || !window.wmClassInstance.empty()) {
        if (auto entry = first(entries, [&](const auto& e) { return classIs(e.startupWMClass); }))
            return found(entry, WindowMatchEvidence::startupWMClass);
        if (auto entry = first(entries, [&](const auto& e) { return classIs(e.id) || classIs(lastComponent(e.id, '.')); }))
            return found(entry, WindowMatchEvidence::entryId);
    }

    for (const std::string& sandbox : window.sandboxIds)
        if (auto entry = first(entries, [&](const auto& e) { return sameIgnoringCase(e.id, sandbox); }))
            return found(entry, WindowMatchEvidence::sandboxId);

    if (!window.executable.empty()) {
        std::string_view name = lastComponent(window.executable, '/');
        // A full path must be that file; a bare name is what PATH found, so its name decides.
        if (auto entry = first(entries, [&](const auto& e) {
                if (e.execProgram.empty())
                    return false;
                return e.execProgram.find('/') != std::string::npos ? e.execProgram == window.executable : e.execProgram == name;
            }))
            return found(entry, WindowMatchEvidence::executable);
    }
    return {};
}

} // namespace kestrune
