#include <filesystem>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "KestruneKit/Core/ManualRuntime.h"
#include "KestruneKit/GitHub/PullRequestsMonitor.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune {
namespace {

using Phase = PullRequestsState::Phase;
const std::string recordedAnswer = KESTRUNE_TEST_SOURCES "/KestruneKit/GitHub/pull-requests.json";

// Requests through the stand-in gh, answering as told.
class GitHubTest : public ::testing::Test {
protected:
    std::shared_ptr<GitHubRequests> requests(const std::string& answer, int exitStatus = 0, const std::string& error = "") const
    {
        Environment base = processEnvironment();
        base["GH_STANDIN_LOG"] = folder.file("arguments");
        base["GH_STANDIN_ANSWER"] = answer;
        base["GH_STANDIN_EXIT"] = std::to_string(exitStatus);
        base["GH_STANDIN_ERROR"] = error;
        auto result = std::make_shared<GitHubRequests>(GitHubRequests { DevToolBox(base), DevTool { "gh", { KESTRUNE_TEST_HELPERS "/gh" } } });
        return result;
    }

    std::vector<std::string> recordedArguments() const
    {
        std::vector<std::string> arguments;
        std::string log = test::readFile(folder.file("arguments"));
        for (size_t start = 0, end; (end = log.find('\0', start)) != std::string::npos; start = end + 1)
            arguments.push_back(log.substr(start, end - start));
        return arguments;
    }

    test::TemporaryFolder folder;
};

TEST_F(GitHubTest, AsksForPullRequestsWithTheFixedQueryAndDecodesBothLists)
{
    auto state = PullRequestsMonitor::read(*requests(recordedAnswer));
    std::vector<std::string> expected { "api", "graphql", "-f", std::string(pullRequestsQuery) };
    EXPECT_EQ(recordedArguments(), expected);
    EXPECT_TRUE(pullRequestsQuery.starts_with("query=query {\n  viewer { login }\n  review: search(query: \"is:pr is:open archived:false review-requested:@me sort:updated-desc\", type: ISSUE, first: 20) {\n"));
    EXPECT_TRUE(pullRequestsQuery.ends_with("      commits(last: 1) { nodes { commit { statusCheckRollup { state } } } } } }\n  }\n}"));

    ASSERT_EQ(state.phase, Phase::loaded);
    const auto& report = *state.report;
    EXPECT_EQ(report.login, "octo-dev");
    EXPECT_EQ(report.review.issueCount, 27);
    // The empty node (an issue, not a pull request) is skipped.
    ASSERT_EQ(report.review.items.size(), 2u);
    EXPECT_EQ(report.review.items[0], (PullRequest { 812, "Cache the dock's icon atlas", "https://github.com/kestrune/dock/pull/812",
                                                     "2026-11-20T16:02:11Z", false, "kestrune/dock", "maria", std::nullopt, std::nullopt }));
    EXPECT_TRUE(report.review.items[1].isDraft);
    EXPECT_EQ(report.review.items[1].author, "");
    ASSERT_EQ(report.mine.items.size(), 2u);
    EXPECT_EQ(report.mine.items[0].reviewDecision, "APPROVED");
    EXPECT_EQ(report.mine.items[0].checksState, "FAILURE");
    EXPECT_EQ(report.mine.items[1].reviewDecision, std::nullopt);
    EXPECT_EQ(report.mine.items[1].checksState, std::nullopt);
    EXPECT_EQ(pullRequestsText::summary(state, false), "Pull requests, checks failing");
}

TEST_F(GitHubTest, ListsCarryAtMostTwentyWhileTheCountGivesTheTotal)
{
    nlohmann::json nodes = nlohmann::json::array();
    for (int number = 1; number <= 25; ++number)
        nodes.push_back({ { "number", number }, { "title", "t" }, { "url", "u" }, { "updatedAt", "d" }, { "isDraft", false },
                          { "repository", { { "nameWithOwner", "o/r" } } }, { "author", { { "login", "a" } } } });
    nlohmann::json answer { { "data", { { "viewer", { { "login", "me" } } },
                                        { "review", { { "issueCount", 123 }, { "nodes", nodes } } },
                                        { "mine", { { "issueCount", 0 }, { "nodes", nlohmann::json::array() } } } } } };
    auto report = decodePullRequests(answer.dump());
    ASSERT_TRUE(report);
    EXPECT_EQ(report->review.items.size(), 20u);
    EXPECT_EQ(report->review.issueCount, 123);
    EXPECT_EQ(pullRequestsText::summary({ Phase::loaded, std::nullopt, report }, false), "123 pull requests waiting for your review");

    report->review = {};
    EXPECT_EQ(pullRequestsText::summary({ Phase::loaded, std::nullopt, report }, false), "Nothing to review, and none of your pull requests are open");
    report->mine.issueCount = 1;
    EXPECT_EQ(pullRequestsText::summary({ Phase::loaded, std::nullopt, report }, false), "1 pull request of yours open");

    for (std::string_view bad : { "", "[]", "{\"data\":null,\"errors\":[{\"message\":\"x\"}]}", "{\"data\":{\"viewer\":7}}", "{\"data\":{\"viewer\":{\"login\":1}" })
        EXPECT_FALSE(decodePullRequests(bad)) << bad;
}

TEST_F(GitHubTest, TellsFailuresApartFromExitStatusAndErrorText)
{
    struct Row { int status; std::string error; GitHubFailure failure; std::string summary; };
    // What gh 2.23 prints signed out and offline, captured from the real client.
    std::vector<Row> rows {
        { 4, "To get started with GitHub CLI, please run:  gh auth login\nAlternatively, populate the GH_TOKEN environment variable with a GitHub API authentication token.\n",
          GitHubFailure::signedOut, "Couldn’t load pull requests" },
        { 1, "error connecting to api.github.com\ncheck your internet connection or https://githubstatus.com\n",
          GitHubFailure::offline, "Pull requests show here again once you’re back online" },
        { 1, "GraphQL: Resource protected by organization SAML enforcement. You must grant your OAuth token access to this organization. (search)\n",
          GitHubFailure::needsRefresh, "Couldn’t load pull requests" },
        { 1, "error: your authentication token is missing required scopes [read:org]\nTo request it, run:  gh auth refresh -s read:org\n",
          GitHubFailure::needsRefresh, "Couldn’t load pull requests" },
        { 1, "HTTP 401: Bad credentials (https://api.github.com/graphql)\nTry authenticating with:  gh auth login\n",
          GitHubFailure::signedOut, "Couldn’t load pull requests" },
        { 1, "HTTP 502: Bad Gateway\n", GitHubFailure::failed, "Couldn’t load pull requests" },
    };
    for (const auto& row : rows) {
        auto state = PullRequestsMonitor::read(*requests("", row.status, row.error));
        EXPECT_EQ(state.phase, Phase::failed) << row.error;
        EXPECT_EQ(state.failure, row.failure) << row.error;
        EXPECT_EQ(pullRequestsText::summary(state, false), row.summary) << row.error;
    }
    EXPECT_EQ(pullRequestsText::failureHint(GitHubFailure::needsRefresh), "Some organisations need gh auth refresh");

    // A successful exit with an answer that is not the one asked for.
    folder.write("garbage", "<html>");
    EXPECT_EQ(PullRequestsMonitor::read(*requests(folder.file("garbage"))).failure, GitHubFailure::failed);
}

TEST_F(GitHubTest, WithNoClientNothingIsStarted)
{
    GitHubRequests none { DevToolBox(), DevTool { "gh", { folder.file("no-gh"), folder.file("nor-here") } } };
    auto state = PullRequestsMonitor::read(none);
    EXPECT_EQ(state.phase, Phase::noClient);
    EXPECT_EQ(pullRequestsText::summary(state, false), "Install gh from GitHub, then sign in with gh auth login in Terminal");
    EXPECT_EQ(pullRequestsText::summary(state, true), "Install it with Homebrew in Terminal, then sign in with gh auth login");
    EXPECT_EQ(gitHubClient().candidates.front(), "/opt/homebrew/bin/gh");
}

TEST_F(GitHubTest, CalendarAndWorkflowRunsGoThroughTheClient)
{
    folder.write("calendar.json", R"({"data":{"viewer":{"login":"me","url":"https://github.com/me","contributionsCollection":{"contributionCalendar":
        {"totalContributions":1500,"weeks":[{"contributionDays":[{"date":"2026-11-15","weekday":0,"contributionCount":3,"contributionLevel":"FIRST_QUARTILE"}]}]}}}}})");
    auto requestsForCalendar = requests(folder.file("calendar.json"));
    auto calendar = decodeContributionCalendar(requestsForCalendar->graphQL(contributionCalendarQuery).output);
    EXPECT_EQ(recordedArguments(), (std::vector<std::string> { "api", "graphql", "-f", std::string(contributionCalendarQuery) }));
    EXPECT_TRUE(contributionCalendarQuery.starts_with("query=query {\n  viewer {\n    login\n    url\n    contributionsCollection {\n"));
    ASSERT_TRUE(calendar);
    EXPECT_EQ(calendar->total, 1500);
    ASSERT_EQ(calendar->weeks.size(), 1u);
    EXPECT_EQ(calendar->weeks[0][0].level, "FIRST_QUARTILE");

    std::filesystem::remove(folder.file("arguments"));
    folder.write("repos.json", R"([{"full_name":"me/dock"},{"name":"no full name"}])");
    auto names = decodeRepositoryNames(requests(folder.file("repos.json"))->rest(recentRepositoriesPath).output);
    EXPECT_EQ(recordedArguments(), (std::vector<std::string> { "api", "user/repos?sort=pushed&direction=desc&per_page=20&affiliation=owner,collaborator,organization_member" }));
    EXPECT_EQ(names, (std::vector<std::string> { "me/dock" }));
    EXPECT_EQ(workflowRunsPath("me/dock"), "repos/me/dock/actions/runs?per_page=5");
    auto runs = decodeWorkflowRuns("me/dock", R"({"total_count":1,"workflow_runs":[{"name":"CI","head_branch":"main","status":"completed","conclusion":"failure","html_url":"h","updated_at":"u"}]})");
    ASSERT_TRUE(runs && runs->size() == 1);
    EXPECT_EQ((*runs)[0].conclusion, "failure");
}

TEST_F(GitHubTest, MonitorPollsWhileWantedAndKeepsTheLastListThroughAFailure)
{
    ManualRuntime runtime;
    KestruneActivity activity;
    auto good = requests(recordedAnswer);
    PullRequestsMonitor monitor(runtime, activity, good);
    int changes = 0;
    monitor.onChange = [&] { ++changes; };
    EXPECT_EQ(monitor.state().phase, Phase::looking);
    monitor.poller().setWanted("tile", true);
    ASSERT_TRUE(runtime.runUntil([&] { return changes == 1; }, Seconds(60)));
    EXPECT_EQ(monitor.state().phase, Phase::loaded);

    // The client starts failing (the environment is read per run, so swap the answer file away).
    std::filesystem::remove(folder.file("arguments"));
    good->box = DevToolBox([&] { auto e = processEnvironment(); e["GH_STANDIN_LOG"] = folder.file("arguments"); e["GH_STANDIN_EXIT"] = "1";
                                 e["GH_STANDIN_ERROR"] = "error connecting to api.github.com\n"; return e; }());
    runtime.advance(GitHubRequests::pollInterval);
    ASSERT_TRUE(runtime.runUntil([&] { return changes == 2; }, Seconds(60)));
    EXPECT_EQ(monitor.state().phase, Phase::failed);
    EXPECT_EQ(monitor.state().failure, GitHubFailure::offline);
    ASSERT_TRUE(monitor.state().report);
    EXPECT_EQ(monitor.state().report->login, "octo-dev");
}

} // namespace
} // namespace kestrune
