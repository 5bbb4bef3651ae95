#include "KestruneKit/GitHub/GitHubQueries.h"

#include <nlohmann/json.hpp>

#include "KestruneKit/Core/JsonFields.h"

namespace kestrune {

namespace {

using Json = nlohmann::json;

// A path into nested objects, or null when any step is missing.
const Json& at(const Json& root, std::initializer_list<const char*> path)
{
    static const Json null;
    const Json* node = &root;
    for (const char* key : path) {
        if (!node->is_object())
            return null;
        auto found = node->find(key);
        if (found == node->end())
            return null;
        node = &*found;
    }
    return *node;
}

std::optional<std::string> optionalText(const Json& value)
{
    return value.is_string() ? std::optional(value.get<std::string>()) : std::nullopt;
}

PullRequestList decodeList(const Json& search)
{
    PullRequestList list;
    list.issueCount = jsonInteger(search, "issueCount");
    const Json& nodes = at(search, { "nodes" });
    if (!nodes.is_array())
        return list;
    for (const auto& node : nodes) {
        // Search results that are not pull requests come back as empty objects.
        if (!node.is_object() || !node.contains("number"))
            continue;
        if (list.items.size() == PullRequestList::itemLimit)
            break;
        PullRequest item;
        item.number = jsonInteger(node, "number");
        item.title = jsonText(node, "title");
        item.url = jsonText(node, "url");
        item.updatedAt = jsonText(node, "updatedAt");
        item.isDraft = at(node, { "isDraft" }).is_boolean() && node["isDraft"].get<bool>();
        item.repository = jsonText(at(node, { "repository" }), "nameWithOwner");
        item.author = jsonText(at(node, { "author" }), "login");
        item.reviewDecision = optionalText(at(node, { "reviewDecision" }));
        const Json& commits = at(node, { "commits", "nodes" });
        if (commits.is_array() && !commits.empty())
            item.checksState = optionalText(at(commits.back(), { "commit", "statusCheckRollup", "state" }));
        list.items.push_back(std::move(item));
    }
    return list;
}

template<typename Decode>
auto decodeWith(std::string_view answer, Decode decode) -> decltype(decode(Json {}))
{
    auto root = Json::parse(answer, nullptr, false);
    if (root.is_discarded())
        return std::nullopt;
    try {
        return decode(root);
    } catch (const Json::exception&) {
        return std::nullopt;
    }
}

} // namespace

DevTool gitHubClient()
{
#if defined(__APPLE__)
    return { "gh", { "/opt/homebrew/bin/gh", "/usr/local/bin/gh" } };
#else
    return { "gh", { "/opt/homebrew/bin/gh", "/usr/local/bin/gh", "/usr/bin/gh" } };
#endif
}

const std::string_view pullRequestsQuery = R"(query=query {
  viewer { login }
  review: search(query: "is:pr is:open archived:false review-requested:@me sort:updated-desc", type: ISSUE, first: 20) {
    issueCount
    nodes { ... on PullRequest { number title url updatedAt isDraft repository { nameWithOwner } author { login } } }
  }
  mine: search(query: "is:pr is:open archived:false author:@me sort:updated-desc", type: ISSUE, first: 20) {
    issueCount
    nodes { ... on PullRequest { number title url updatedAt isDraft reviewDecision repository { nameWithOwner }
      commits(last: 1) { nodes { commit { statusCheckRollup { state } } } } } }
  }
})";

const std::string_view contributionCalendarQuery = R"(query=query {
  viewer {
    login
    url
    contributionsCollection {
      contributionCalendar {
        totalContributions
        weeks { contributionDays { date weekday contributionCount contributionLevel } }
      }
    }
  }
})";

const std::string_view recentRepositoriesPath = "user/repos?sort=pushed&direction=desc&per_page=20&affiliation=owner,collaborator,organization_member";

std::vector<std::string> graphQLArguments(std::string_view query)
{
    return { "api", "graphql", "-f", std::string(query) };
}

std::string workflowRunsPath(std::string_view nameWithOwner)
{
    return "repos/" + std::string(nameWithOwner) + "/actions/runs?per_page=" + std::to_string(workflowRunsPerRepository);
}

std::optional<PullRequestsReport> decodePullRequests(std::string_view answer)
{
    return decodeWith(answer, [](const Json& root) -> std::optional<PullRequestsReport> {
        const Json& data = at(root, { "data" });
        if (!data.is_object() || !at(data, { "viewer" }).is_object())
            return std::nullopt;
        return PullRequestsReport { jsonText(data["viewer"], "login"), decodeList(at(data, { "review" })), decodeList(at(data, { "mine" })) };
    });
}

std::optional<ContributionCalendar> decodeContributionCalendar(std::string_view answer)
{
    return decodeWith(answer, [](const Json& root) -> std::optional<ContributionCalendar> {
        const Json& viewer = at(root, { "data", "viewer" });
        const Json& calendar = at(viewer, { "contributionsCollection", "contributionCalendar" });
        if (!calendar.is_object())
            return std::nullopt;
        ContributionCalendar result { jsonText(viewer, "login"), jsonText(viewer, "url"), jsonInteger(calendar, "totalContributions"), {} };
        const Json& weeks = at(calendar, { "weeks" });
        for (const auto& week : weeks.is_array() ? weeks : Json::array()) {
            auto& days = result.weeks.emplace_back();
            const Json& contributionDays = at(week, { "contributionDays" });
            for (const auto& day : contributionDays.is_array() ? contributionDays : Json::array())
                days.push_back({ jsonText(day, "date"), jsonInteger(day, "weekday"), jsonInteger(day, "contributionCount"), jsonText(day, "contributionLevel") });
        }
        return result;
    });
}

std::optional<std::vector<std::string>> decodeRepositoryNames(std::string_view answer)
{
    return decodeWith(answer, [](const Json& root) -> std::optional<std::vector<std::string>> {
        if (!root.is_array())
            return std::nullopt;
        std::vector<std::string> names;
        for (const auto& repository : root)
            if (auto name = jsonText(repository, "full_name"); !name.empty())
                names.push_back(std::move(name));
        return names;
    });
}

std::optional<std::vector<WorkflowRun>> decodeWorkflowRuns(std::string_view repository, std::string_view answer)
{
    return decodeWith(answer, [repository](const Json& root) -> std::optional<std::vector<WorkflowRun>> {
        const Json& runs = at(root, { "workflow_runs" });
        if (!runs.is_array())
            return std::nullopt;
        std::vector<WorkflowRun> result;
        for (const auto& run : runs)
            result.push_back({ std::string(repository), jsonText(run, "name"), jsonText(run, "head_branch"), jsonText(run, "status"),
                               jsonText(run, "conclusion"), jsonText(run, "html_url"), jsonText(run, "updated_at") });
        return result;
    });
}

} // namespace kestrune
