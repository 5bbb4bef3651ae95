#include <csignal>
#include <iostream>
#include <vector>

#include <CLI/CLI.hpp>

#include "tools/kestrune/Commands.h"

int main(int argc, char** argv)
{
    using namespace kestrune::cli;

    // A closed reader of our output (`kestrune run ... | head`) must not kill us mid-write.
    std::signal(SIGPIPE, SIG_IGN);

    CLI::App app { "Kestrune Dock's command line: prints what the dock's monitors read on this machine.\n"
                   "With no subcommand, an overview of what every monitor finds here." };
    app.require_subcommand(0, 1);
    Action overview = addOverviewCommand(app);
    Action run = addRunCommand(app);
    Action git = addGitCommand(app);
    Action prs = addPullRequestsCommand(app);
    Action containers = addContainersCommand(app);
    Action usage = addUsageCommand(app);
    Action statusLine = addStatusLineCommand(app);
    Action extract = addExtractCommand(app);
    Action stats = addStatsCommand(app);
    Action smc = addSMCCommand(app);
    Action dock = addDockCommand(app);
    Action widgets = addWidgetsCommand(app);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::CallForAllHelp& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        app.exit(error);
        return exitUsage;
    }

    if (app.got_subcommand("run"))
        return run();
    if (app.got_subcommand("git"))
        return git();
    if (app.got_subcommand("prs"))
        return prs();
    if (app.got_subcommand("containers"))
        return containers();
    if (app.got_subcommand("usage"))
        return usage();
    if (app.got_subcommand("statusline"))
        return statusLine();
    if (app.got_subcommand("extract"))
        return extract();
    if (app.got_subcommand("stats"))
        return stats();
    if (app.got_subcommand("smc"))
        return smc();
    if (app.got_subcommand("dock"))
        return dock();
    if (app.got_subcommand("widgets"))
        return widgets();
    return overview();
}
