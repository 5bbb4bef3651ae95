#include "KestruneKit/GitHub/PullRequestsMonitor.h"

#include <algorithm>

#include "KestruneKit/Core/CountText.h"
#include "KestruneKit/Core/Environment.h"
#include "KestruneKit/Core/RawNames.h"

namespace kestrune {

namespace {
constexpr RawNames<GitHubFailure, 6> failureNames { { {
    { GitHubFailure::noClient, "noClient" },
    { GitHubFailure::signedOut, "signedOut" },
    { GitHubFailure::needsRefresh, "needsRefresh" },
    { GitHubFailure::offline, "offline" },
    { GitHubFailure::timedOut, "timedOut" },
    { GitHubFailure::failed, "failed" },
} } };

bool mentions(std::string_view text, std::initializer_list<std::string_view> words)
{
    return std::any_of(words.begin(), words.end(), [&](std::string_view word) { return text.find(word) != std::string_view::npos; });
}
} // namespace

std::string_view toString(GitHubFailure failure) { return failureNames.name(failure); }

GitHubFailure gitHubFailure(const DevTool::Run& run)
{
    if (run.failure) {
        switch (*run.failure) {
        case DevTool::Run::Failure::notFound:
            return GitHubFailure::noClient;
        case DevTool::Run::Failure::timedOut:
            return GitHubFailure::timedOut;
        case DevTool::Run::Failure::couldNotLaunch:
            return GitHubFailure::failed;
        }
    }
    const auto& error = run.errorOutput;
    // Organisation access first: its advice names gh auth refresh, and some of it also says 401.
    if (mentions(error, { "gh auth refresh", "SAML", "has not been granted the required scopes", "needs the \"" }))
        return GitHubFailure::needsRefresh;
    if (run.status == 4 || mentions(error, { "gh auth login", "HTTP 401", "Bad credentials", "not logged into" }))
        return GitHubFailure::signedOut;
    if (mentions(error, { "error connecting to", "dial tcp", "no such host", "i/o timeout", "network is unreachable",
                          "connection refused", "TLS handshake timeout" }))
        return GitHubFailure::offline;
    return GitHubFailure::failed;
}

DevTool::Run GitHubRequests::graphQL(std::string_view query) const
{
    // gh's own prompts and update notices stay off: nobody is there to answer them.
    return box.run(client, graphQLArguments(query), std::nullopt,
                   { { "GH_PROMPT_DISABLED", "1" }, { "GH_NO_UPDATE_NOTIFIER", "1" }, { "NO_COLOR", "1" } }, timeout);
}

DevTool::Run GitHubRequests::rest(std::string_view path) const
{
    return box.run(client, { "api", std::string(path) }, std::nullopt,
                   { { "GH_PROMPT_DISABLED", "1" }, { "GH_NO_UPDATE_NOTIFIER", "1" }, { "NO_COLOR", "1" } }, timeout);
}

bool hasHomebrew()
{
    return isExecutableFile("/opt/homebrew/bin/brew") || isExecutableFile("/usr/local/bin/brew") || isExecutableFile("/home/linuxbrew/.linuxbrew/bin/brew");
}

namespace pullRequestsText {

std::string_view noClient(bool hasHomebrew)
{
    return hasHomebrew ? "Install it with Homebrew in Terminal, then sign in with gh auth login"
                       : "Install gh from GitHub, then sign in with gh auth login in Terminal";
}

std::string_view failureHint(GitHubFailure failure)
{
    switch (failure) {
    case GitHubFailure::offline:
        return "Pull requests show here again once you’re back online";
    case GitHubFailure::signedOut:
        return "Sign in with gh auth login in Terminal";
    default:
        return "Some organisations need gh auth refresh";
    }
}

std::string waitingForReview(int count) { return countText(count, "pull request", "pull requests") + " waiting for your review"; }
std::string yoursOpen(int count) { return countText(count, "pull request", "pull requests") + " of yours open"; }

std::string summary(const PullRequestsState& state, bool hasHomebrew)
{
    switch (state.phase) {
    case PullRequestsState::Phase::looking:
        return std::string(looking);
    case PullRequestsState::Phase::noClient:
        return std::string(noClient(hasHomebrew));
    case PullRequestsState::Phase::failed:
        if (state.failure == GitHubFailure::offline)
            return std::string(failureHint(GitHubFailure::offline));
        return std::string(failed);
    case PullRequestsState::Phase::loaded:
        break;
    }
    const auto& report = *state.report;
    if (std::any_of(report.mine.items.begin(), report.mine.items.end(), [](const PullRequest& pr) { return pr.checksFailing(); }))
        return std::string(checksFailing);
    if (report.review.issueCount > 0)
        return waitingForReview(report.review.issueCount);
    if (report.mine.issueCount > 0)
        return yoursOpen(report.mine.issueCount);
    return std::string(nothingAtAll);
}

} // namespace pullRequestsText

PullRequestsMonitor::PullRequestsMonitor(Runtime& runtime, KestruneActivity& activity, std::shared_ptr<const GitHubRequests> requests)
    : runtime_(runtime)
    , activity_(activity)
    , requests_(requests ? std::move(requests) : std::make_shared<const GitHubRequests>())
    , self_(std::make_shared<PullRequestsMonitor*>(this))
{
}

PullRequestsState PullRequestsMonitor::read(const GitHubRequests& requests)
{
    PullRequestsState state;
    if (!requests.hasClient()) {
        state.phase = PullRequestsState::Phase::noClient;
        state.failure = GitHubFailure::noClient;
        return state;
    }
    auto run = requests.graphQL(pullRequestsQuery);
    if (!run.succeeded()) {
        state.failure = gitHubFailure(run);
        state.phase = state.failure == GitHubFailure::noClient ? PullRequestsState::Phase::noClient : PullRequestsState::Phase::failed;
        return state;
    }
    state.report = decodePullRequests(run.output);
    if (!state.report) {
        state.phase = PullRequestsState::Phase::failed;
        state.failure = GitHubFailure::failed;
        return state;
    }
    state.phase = PullRequestsState::Phase::loaded;
    return state;
}

DevPoller& PullRequestsMonitor::poller()
{
    if (!poller_)
        poller_ = std::make_unique<DevPoller>(runtime_, activity_, GitHubRequests::pollInterval, [this] { refresh(); });
    return *poller_;
}

void PullRequestsMonitor::refresh()
{
    // One request at a time: a slow network must not stack polls up behind each other.
    if (reading_)
        return;
    reading_ = true;
    std::weak_ptr<PullRequestsMonitor*> weak = self_;
    queue_.async([weak, requests = requests_, &runtime = runtime_] {
        auto state = read(*requests);
        runtime.post([weak, state = std::move(state)]() mutable {
            auto self = weak.lock();
            if (!self || !*self)
                return;
            auto& monitor = **self;
            monitor.reading_ = false;
            // A failed poll keeps the last list on screen: only the phase and reason change.
            if (!state.report && monitor.state_.report)
                state.report = monitor.state_.report;
            monitor.state_ = std::move(state);
            if (monitor.onChange)
                monitor.onChange();
        });
    });
}

} // namespace kestrune
