#pragma once

#include <functional>

#include <CLI/CLI.hpp>

namespace kestrune::cli {

// Exit statuses of every subcommand.
constexpr int exitSuccess = 0;
constexpr int exitFailure = 1;
constexpr int exitUsage = 2;

// Each subcommand adds itself to the app and returns what to run when it was chosen; the
// returned function gives the exit status.
using Action = std::function<int()>;

Action addOverviewCommand(CLI::App& app);
Action addRunCommand(CLI::App& app);
Action addGitCommand(CLI::App& app);
Action addPullRequestsCommand(CLI::App& app);
Action addContainersCommand(CLI::App& app);
Action addUsageCommand(CLI::App& app);
Action addStatusLineCommand(CLI::App& app);
Action addExtractCommand(CLI::App& app);
Action addStatsCommand(CLI::App& app);
Action addSMCCommand(CLI::App& app);
Action addDockCommand(CLI::App& app);
Action addWidgetsCommand(CLI::App& app);

} // namespace kestrune::cli
