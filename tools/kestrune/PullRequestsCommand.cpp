#include <iostream>

#include <fmt/core.h>
#include <nlohmann/json.hpp>

#include "KestruneKit/GitHub/PullRequestsMonitor.h"
#include "tools/kestrune/Commands.h"

namespace kestrune::cli {

namespace {

using Json = nlohmann::ordered_json;

Json listJson(const PullRequestList& list)
{
    Json items = Json::array();
    for (const auto& pr : list.items) {
        items.push_back({ { "number", pr.number }, { "title", pr.title }, { "url", pr.url }, { "updatedAt", pr.updatedAt },
                          { "isDraft", pr.isDraft }, { "repository", pr.repository }, { "author", pr.author },
                          { "reviewDecision", pr.reviewDecision ? Json(*pr.reviewDecision) : Json(nullptr) },
                          { "checksState", pr.checksState ? Json(*pr.checksState) : Json(nullptr) } });
    }
    return { { "issueCount", list.issueCount }, { "items", std::move(items) } };
}

void printList(const PullRequestList& list, bool showChecks)
{
    for (const auto& pr : list.items) {
        std::string marks;
        if (pr.isDraft)
            marks += " [draft]";
        if (showChecks && pr.checksState)
            marks += " [checks " + *pr.checksState + "]";
        if (showChecks && pr.reviewDecision)
            marks += " [" + *pr.reviewDecision + "]";
        fmt::print("  {}#{} {}{}\n    {}\n", pr.repository, pr.number, pr.title, marks, pr.url);
    }
}

} // namespace

Action addPullRequestsCommand(CLI::App& app)
{
    auto* command = app.add_subcommand("prs", "Pull requests waiting for your review and your own open ones, through gh");
    auto json = std::make_shared<bool>(false);
    auto client = std::make_shared<std::string>();
    command->add_flag("--json", *json, "Print the lists as JSON");
    command->add_option("--gh", *client, "Use this gh instead of looking in its usual places");
    return [json, client] {
        GitHubRequests requests;
        if (!client->empty())
            requests.client.candidates = { *client };
        auto state = PullRequestsMonitor::read(requests);
        bool brew = hasHomebrew();
        if (*json) {
            Json out { { "summary", pullRequestsText::summary(state, brew) },
                       { "failure", state.failure ? Json(toString(*state.failure)) : Json(nullptr) } };
            if (state.report) {
                out["login"] = state.report->login;
                out["review"] = listJson(state.report->review);
                out["mine"] = listJson(state.report->mine);
            }
            std::cout << out.dump() << "\n";
            return state.report ? exitSuccess : exitFailure;
        }
        if (!state.report) {
            if (state.phase == PullRequestsState::Phase::noClient) {
                fmt::print("{}\n", pullRequestsText::noClient(brew));
            } else {
                fmt::print("{}\n{}\n", pullRequestsText::failed, pullRequestsText::failureHint(*state.failure));
            }
            return exitFailure;
        }
        const auto& report = *state.report;
        fmt::print("{}\n", pullRequestsText::summary(state, brew));
        if (report.review.issueCount == 0 && report.mine.issueCount == 0)
            return exitSuccess;
        fmt::print("\n{}\n", report.review.issueCount > 0 ? pullRequestsText::waitingForReview(report.review.issueCount)
                                                           : std::string(pullRequestsText::noneToReview));
        printList(report.review, false);
        fmt::print("\n{}: {}\n", pullRequestsText::yoursSection, pullRequestsText::yoursOpen(report.mine.issueCount));
        printList(report.mine, true);
        return exitSuccess;
    };
}

} // namespace kestrune::cli
