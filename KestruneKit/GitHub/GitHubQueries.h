#pragma once

// The requests the GitHub readers send through the user's own signed-in `gh`, and decoding of
// its answers into values. These strings are the contract with GitHub: change them only
// together with the decoders below.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KestruneKit/DevTools/DevTool.h"

namespace kestrune {

// Where `gh` is looked for, in order.
[[nodiscard]] DevTool gitHubClient();

// The form field given to `gh api graphql -f`.
extern const std::string_view pullRequestsQuery;
extern const std::string_view contributionCalendarQuery;

// `gh api graphql -f <query>`.
[[nodiscard]] std::vector<std::string> graphQLArguments(std::string_view query);

// The user's 20 most recently pushed repositories: owned, shared, or through an organisation.
extern const std::string_view recentRepositoriesPath;
// How many runs are asked for per repository: the card shows the latest few, and a small page
// keeps twenty requests cheap against the REST budget.
constexpr int workflowRunsPerRepository = 5;
// "repos/OWNER/NAME/actions/runs?per_page=5": the repository's own REST path, from its full name.
[[nodiscard]] std::string workflowRunsPath(std::string_view nameWithOwner);

struct PullRequest {
    int number = 0;
    std::string title;
    std::string url;
    std::string updatedAt;
    bool isDraft = false;
    std::string repository;
    // Review requests only; empty for a deleted ("ghost") author.
    std::string author;
    // The user's own only: "APPROVED", "CHANGES_REQUESTED", "REVIEW_REQUIRED", or none.
    std::optional<std::string> reviewDecision;
    // The user's own only: the combined state of the checks on the last commit ("SUCCESS",
    // "FAILURE", "ERROR", "PENDING", "EXPECTED"), or none when nothing runs.
    std::optional<std::string> checksState;

    [[nodiscard]] bool checksFailing() const { return checksState == "FAILURE" || checksState == "ERROR"; }
    bool operator==(const PullRequest&) const = default;
};

struct PullRequestList {
    static constexpr size_t itemLimit = 20;
    // All that match, which may be more than the items carried.
    int issueCount = 0;
    std::vector<PullRequest> items;
};

struct PullRequestsReport {
    std::string login;
    PullRequestList review;
    PullRequestList mine;
};

struct ContributionDay {
    std::string date;
    int weekday = 0;
    int count = 0;
    // "NONE", "FIRST_QUARTILE" ... "FOURTH_QUARTILE".
    std::string level;
};

struct ContributionCalendar {
    std::string login;
    std::string url;
    int total = 0;
    std::vector<std::vector<ContributionDay>> weeks;
};

struct WorkflowRun {
    std::string repository;
    std::string name;
    std::string branch;
    // "queued", "in_progress", "completed" ...
    std::string status;
    // Set once completed: "success", "failure", "cancelled" ...
    std::string conclusion;
    std::string url;
    std::string updatedAt;
};

// Each returns nothing when the answer is not the shape asked for (bad JSON, GraphQL errors
// with no data).
[[nodiscard]] std::optional<PullRequestsReport> decodePullRequests(std::string_view answer);
[[nodiscard]] std::optional<ContributionCalendar> decodeContributionCalendar(std::string_view answer);
[[nodiscard]] std::optional<std::vector<std::string>> decodeRepositoryNames(std::string_view answer);
[[nodiscard]] std::optional<std::vector<WorkflowRun>> decodeWorkflowRuns(std::string_view repository, std::string_view answer);

} // namespace kestrune
