#include <iostream>

#include <fmt/core.h>
#include <nlohmann/json.hpp>

#include "KestruneDock/Widgets/WidgetStore.h"
#include "KestruneKit/Core/JsonFields.h"
#include "KestruneKit/Widgets/DockWidgetRecord.h"
#include "tools/kestrune/Commands.h"

namespace kestrune::cli {

namespace {

using Json = nlohmann::ordered_json;

struct WidgetsOptions {
    bool json = false;
    std::string kind;
    std::string id;
    std::string beside;
    std::string style;
    std::string key;
    std::string value;
    std::string preset;
};

std::string kindTitle(const std::string& raw)
{
    auto kind = widgetKindFromString(raw);
    return kind ? std::string(title(*kind)) : raw;
}

// The row as another application reads it, with each stored object's id and style beside it.
int list(Preferences& preferences, bool asJson)
{
    auto record = DockWidgetRecord::read(preferences);
    auto data = preferences.dataValue(WidgetStore::key);
    auto stored = data ? nlohmann::json::parse(data->bytes, nullptr, false) : nlohmann::json();
    auto field = [&](size_t index, const char* name) {
        bool present = stored.is_array() && index < stored.size() && stored[index].is_object();
        return present ? jsonText(stored[index], name) : std::string();
    };

    if (asJson) {
        Json widgets = Json::array();
        for (size_t i = 0; i < record.widgets.size(); ++i) {
            const auto& slot = record.widgets[i];
            widgets.push_back({ { "id", field(i, "id") }, { "kind", slot.kind }, { "style", field(i, "style") },
                { "options", slot.options }, { "title", kindTitle(slot.kind) } });
        }
        std::cout << widgets.dump(2) << '\n';
        return exitSuccess;
    }
    if (record.widgets.empty()) {
        fmt::print("No widgets in the Dock\n");
        return exitSuccess;
    }
    for (size_t i = 0; i < record.widgets.size(); ++i) {
        const auto& slot = record.widgets[i];
        auto style = field(i, "style");
        fmt::print("{:>2}  {:<14} {}  {}{}\n", i + 1, kindTitle(slot.kind), field(i, "id"), slot.kind, style.empty() ? "" : " · " + style);
        for (const auto& [key, value] : slot.options)
            fmt::print("      {} = {}\n", key, value);
    }
    return exitSuccess;
}

int refuse(const std::string& message)
{
    fmt::print(stderr, "kestrune widgets: {}\n", message);
    return exitUsage;
}

// The row an edit starts from, worked out without writing anything: a refused edit leaves the
// preferences exactly as they were.
std::vector<WidgetInstance> currentRow(Preferences& preferences)
{
    if (auto data = preferences.dataValue(WidgetStore::key))
        if (auto decoded = decodeWidgetInstances(data->bytes)) {
            foldRetiredKinds(*decoded);
            return *decoded;
        }
    return {};
}

std::optional<Uuid> findId(const std::vector<WidgetInstance>& row, const std::string& text)
{
    auto id = Uuid::fromString(text);
    if (!id)
        return std::nullopt;
    for (const auto& instance : row)
        if (instance.id == *id)
            return id;
    return std::nullopt;
}

std::string styleChoices(WidgetKind kind)
{
    std::string text;
    for (const auto& face : faces(kind))
        text += (text.empty() ? "" : ", ") + face.identifier;
    return text;
}

int edit(const std::string& command, const WidgetsOptions& options)
{
    auto preferences = Preferences::open(dockPreferencesDomain);
    preferences->synchronize();
    auto row = currentRow(*preferences);
    auto needId = [&](const std::string& text) {
        return findId(row, text);
    };

    std::function<void(WidgetStore&)> change;
    if (command == "add") {
        auto kind = widgetKindFromString(options.kind);
        if (!kind)
            return refuse(fmt::format("there is no widget kind called “{}”; `kestrune widgets kinds` lists them", options.kind));
        if (isRetired(*kind))
            return refuse(fmt::format("the {} widget can no longer be added", title(*kind)));
        change = [kind = *kind](WidgetStore& store) { fmt::print("{}\n", store.add(kind).toString()); };
    } else if (command == "apply") {
        const auto* preset = widgetPreset(options.preset);
        if (!preset) {
            std::string titles;
            for (const auto& known : allWidgetPresets())
                titles += (titles.empty() ? "" : ", ") + std::string(known.title);
            return refuse(fmt::format("there is no preset called “{}”; the presets are {}", options.preset, titles));
        }
        change = [preset](WidgetStore& store) { store.apply(*preset); };
    } else {
        auto id = needId(options.id);
        if (!id)
            return refuse(fmt::format("there is no widget with the id “{}” in the Dock", options.id));
        if (command == "remove") {
            change = [id = *id](WidgetStore& store) { store.remove(id); };
        } else if (command == "move") {
            auto beside = needId(options.beside);
            if (!beside)
                return refuse(fmt::format("there is no widget with the id “{}” in the Dock", options.beside));
            change = [id = *id, beside = *beside](WidgetStore& store) { store.move(id, beside); };
        } else if (command == "style") {
            WidgetKind kind = WidgetKind::clock;
            for (const auto& instance : row)
                if (instance.id == *id)
                    kind = instance.kind;
            bool known = options.style.empty();
            for (const auto& face : faces(kind))
                known = known || face.identifier == options.style;
            if (!known) {
                auto choices = styleChoices(kind);
                return refuse(choices.empty()
                        ? fmt::format("the {} widget has a single look; its only style is \"\"", title(kind))
                        : fmt::format("the {} widget has no style “{}”; its styles are {}", title(kind), options.style, choices));
            }
            change = [id = *id, style = options.style](WidgetStore& store) { store.setStyle(id, style); };
        } else if (command == "option") {
            if (!isValidUtf8(options.key) || !isValidUtf8(options.value))
                return refuse("option keys and values must be UTF-8 text");
            change = [id = *id, key = options.key, value = options.value](WidgetStore& store) { store.setOption(id, key, value); };
        }
    }

    WidgetStore store(*preferences);
    change(store);
    if (!preferences->synchronize()) {
        fmt::print(stderr, "kestrune widgets: the Dock’s preferences could not be written\n");
        return exitFailure;
    }
    return exitSuccess;
}

int listKinds(bool asJson)
{
    Json kinds = Json::array();
    for (auto category : allWidgetCategories) {
        if (!asJson)
            fmt::print("{}\n", title(category));
        for (auto kind : WidgetStore::kindsInCategory(category)) {
            if (asJson) {
                kinds.push_back({ { "kind", toString(kind) }, { "title", title(kind) }, { "category", title(category) },
                    { "blurb", blurb(kind) }, { "styles", [&] {
                         Json styles = Json::array();
                         for (const auto& face : faces(kind))
                             styles.push_back(face.identifier);
                         return styles;
                     }() } });
            } else {
                auto choices = styleChoices(kind);
                fmt::print("  {:<13} {}{}\n", toString(kind), blurb(kind), choices.empty() ? "" : "  [" + choices + "]");
            }
        }
    }
    if (asJson)
        std::cout << kinds.dump(2) << '\n';
    return exitSuccess;
}

} // namespace

Action addWidgetsCommand(CLI::App& app)
{
    auto options = std::make_shared<WidgetsOptions>();
    auto* command = app.add_subcommand("widgets", "The Dock's widget row: list it, or change it as the Dock's settings do");
    command->add_flag("--json", options->json, "Print JSON");
    command->require_subcommand(0, 1);

    auto* kinds = command->add_subcommand("kinds", "The kinds of widget that can be added, by category");
    kinds->add_flag("--json", options->json, "Print JSON");
    command->add_subcommand("add", "Add a widget at the end of the row")->add_option("KIND", options->kind, "Its kind, as `kinds` lists it")->required();
    command->add_subcommand("remove", "Take a widget out of the row")->add_option("ID", options->id)->required();
    auto* move = command->add_subcommand("move", "Put a widget where another one stands");
    move->add_option("ID", options->id)->required();
    move->add_option("BESIDE_ID", options->beside)->required();
    auto* style = command->add_subcommand("style", "Choose a widget's face (\"\" for its default)");
    style->add_option("ID", options->id)->required();
    style->add_option("STYLE", options->style)->required();
    auto* option = command->add_subcommand("option", "Set one of a widget's options");
    option->add_option("ID", options->id)->required();
    option->add_option("KEY", options->key)->required();
    option->add_option("VALUE", options->value)->required();
    command->add_subcommand("apply", "Replace the row with a preset's widgets")->add_option("PRESET_TITLE", options->preset)->required();

    return [command, options] {
        if (command->get_subcommands().empty()) {
            auto preferences = Preferences::open(dockPreferencesDomain);
            return list(*preferences, options->json);
        }
        auto* chosen = command->get_subcommands().front();
        if (chosen->get_name() == "kinds")
            return listKinds(options->json);
        return edit(chosen->get_name(), *options);
    };
}

} // namespace kestrune::cli
