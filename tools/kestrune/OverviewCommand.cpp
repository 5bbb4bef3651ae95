#include <iostream>

#include <fmt/core.h>
#include <nlohmann/json.hpp>

#include "KestruneKit/DevTools/DevTool.h"
#include "KestruneKit/DevTools/DevToolBox.h"
#include "tools/kestrune/Commands.h"

namespace kestrune::cli {

Action addOverviewCommand(CLI::App& app)
{
    auto json = std::make_shared<bool>(false);
    app.add_flag("--json", *json, "Print the overview as JSON");
    return [json] {
        nlohmann::ordered_json tools = nlohmann::ordered_json::array();
        if (!*json)
            fmt::print("Command-line tools the developer monitors run:\n");
        for (const auto& tool : DevTool::known()) {
            auto found = DevToolBox::locate(tool.candidates);
            if (*json) {
                tools.push_back({ { "tool", tool.name },
                                  { "path", found ? nlohmann::ordered_json(*found) : nlohmann::ordered_json(nullptr) },
                                  { "candidates", tool.candidates } });
                continue;
            }
            if (found) {
                fmt::print("  {:<8} {}\n", tool.name, *found);
            } else {
                std::string places;
                for (const auto& candidate : tool.candidates)
                    places += (places.empty() ? "" : ", ") + candidate;
                fmt::print("  {:<8} not installed (looked in {})\n", tool.name, places);
            }
        }
        if (*json)
            std::cout << nlohmann::ordered_json { { "tools", tools } }.dump() << "\n";
        return exitSuccess;
    };
}

} // namespace kestrune::cli
