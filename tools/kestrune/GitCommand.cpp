#include <iostream>

#include <fmt/core.h>
#include <nlohmann/json.hpp>

#include "KestruneKit/Repositories/RepositoryReader.h"
#include "KestruneKit/Repositories/RepositoryStanding.h"
#include "tools/kestrune/Commands.h"

namespace kestrune::cli {

namespace {

using Json = nlohmann::ordered_json;

Json optionalText(const std::optional<std::string>& text) { return text ? Json(*text) : Json(nullptr); }

Json stateJson(const RepositoryState& state)
{
    Json entry { { "folder", state.folder } };
    if (const auto* failure = state.failure()) {
        entry["standing"] = failure->text;
        entry["problem"] = toString(failure->problem);
        return entry;
    }
    const auto& status = *state.status();
    entry["standing"] = RepositoryStanding::of(status).text();
    entry["problem"] = nullptr;
    entry["branch"] = optionalText(status.branch);
    entry["head"] = optionalText(status.head);
    entry["upstream"] = optionalText(status.upstream);
    entry["ahead"] = status.ahead;
    entry["behind"] = status.behind;
    entry["operation"] = status.operation ? Json(toString(*status.operation)) : Json(nullptr);
    Json changes = Json::array();
    for (const auto& change : status.changes)
        changes.push_back({ { "path", change.path },
                            { "kind", toString(change.kind) },
                            { "staging", toString(change.staging) },
                            { "original", optionalText(change.original) } });
    entry["changes"] = std::move(changes);
    return entry;
}

} // namespace

Action addGitCommand(CLI::App& app)
{
    auto* command = app.add_subcommand("git", "Read git working copies: one line per folder, as the Git widget shows it");
    auto json = std::make_shared<bool>(false);
    auto folders = std::make_shared<std::vector<std::string>>();
    command->add_flag("--json", *json, "Print every reading as JSON, changes included");
    command->add_option("FOLDER", *folders, "Working copies to read")->required();
    return [json, folders] {
        RepositoryReader reader;
        Json readings = Json::array();
        bool allRead = true;
        for (const auto& folder : *folders) {
            RepositoryState state = reader.read(folder, std::chrono::system_clock::now());
            allRead = allRead && state.status();
            if (*json)
                readings.push_back(stateJson(state));
            else
                fmt::print("{}: {}\n", folder, state.failure() ? state.failure()->text : RepositoryStanding::of(*state.status()).text());
        }
        if (*json)
            std::cout << readings.dump() << "\n";
        return allRead ? exitSuccess : exitFailure;
    };
}

} // namespace kestrune::cli
