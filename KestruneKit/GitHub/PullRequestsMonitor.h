#pragma once

// OVERVIEW
// The GitHub widget's data: pull requests waiting for the user's review and the user's own open
// ones, asked of the user's signed-in `gh` every two minutes while the widget is on screen.
//
// TYPICAL USAGE
//   PullRequestsMonitor monitor(runtime);
//   monitor.onChange = [&] { redraw(monitor.state()); };
//   monitor.poller().setWanted(tileId, true);
//
// Main thread only.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "KestruneKit/Core/SerialQueue.h"
#include "KestruneKit/DevTools/DevPoller.h"
#include "KestruneKit/DevTools/DevToolBox.h"
#include "KestruneKit/GitHub/GitHubQueries.h"

namespace kestrune {

// Why a request through `gh` came back empty.
enum class GitHubFailure {
    // No `gh` in any of its places; no process was started.
    noClient,
    // Not signed in, or the token was revoked: `gh auth login`.
    signedOut,
    // An organisation withholds access until the token gains its scope or SAML grant.
    needsRefresh,
    offline,
    timedOut,
    // Anything else: the client's own error, or an answer we could not read.
    failed,
};

[[nodiscard]] std::string_view toString(GitHubFailure failure);

// Tells the client's failures apart by its exit status and standard error. Signed out is exit 4
// with "gh auth login" advice; offline is Go's "error connecting to" (or a lower-level dial
// error when gh passes one through).
[[nodiscard]] GitHubFailure gitHubFailure(const DevTool::Run& run);

// One request through gh, blocking: any thread but the main one.
struct GitHubRequests {
    // Review requests change on people's time, and each poll spends GraphQL budget: two minutes
    // keeps the widget fresh at a fraction of the hourly allowance.
    static constexpr Seconds pollInterval { 120.0 };
    // Long enough for a slow network and gh's own retries, short enough that a dead link shows
    // as a failure within a poll.
    static constexpr Seconds timeout { 30.0 };

    DevToolBox box;
    DevTool client = gitHubClient();

    [[nodiscard]] bool hasClient() const { return DevToolBox::locate(client.candidates).has_value(); }
    [[nodiscard]] DevTool::Run graphQL(std::string_view query) const;
    [[nodiscard]] DevTool::Run rest(std::string_view path) const;
};

struct PullRequestsState {
    enum class Phase { looking, noClient, failed, loaded };

    Phase phase = Phase::looking;
    std::optional<GitHubFailure> failure;
    std::optional<PullRequestsReport> report;
};

// The widget's texts.
namespace pullRequestsText {
// Homebrew's text suits a machine that has Homebrew.
[[nodiscard]] std::string_view noClient(bool hasHomebrew);
inline constexpr std::string_view copySignIn = "Copy “gh auth login”";
inline constexpr std::string_view looking = "Looking for pull requests…";
inline constexpr std::string_view lookingShort = "Looking for pull requests";
inline constexpr std::string_view failed = "Couldn’t load pull requests";
[[nodiscard]] std::string_view failureHint(GitHubFailure failure);
inline constexpr std::string_view yoursSection = "Your open pull requests";
[[nodiscard]] std::string waitingForReview(int count);
[[nodiscard]] std::string yoursOpen(int count);
inline constexpr std::string_view noneToReview = "No pull requests waiting for your review";
inline constexpr std::string_view nothingAtAll = "Nothing to review, and none of your pull requests are open";
inline constexpr std::string_view nothingAtAllShort = "No pull requests";
inline constexpr std::string_view checksFailing = "Pull requests, checks failing";
inline constexpr std::string_view openHint = "Click to open your pull requests on GitHub";
inline constexpr std::string_view openYoursTitle = "Your Open Pull Requests";
inline constexpr std::string_view openOnGitHubTitle = "Open Pull Requests on GitHub";
// The face of the widget in one line.
[[nodiscard]] std::string summary(const PullRequestsState& state, bool hasHomebrew);
} // namespace pullRequestsText

[[nodiscard]] bool hasHomebrew();

class PullRequestsMonitor {
public:
    explicit PullRequestsMonitor(Runtime& runtime, KestruneActivity& activity = KestruneActivity::shared(),
                                 std::shared_ptr<const GitHubRequests> requests = nullptr);
    PullRequestsMonitor(const PullRequestsMonitor&) = delete;
    PullRequestsMonitor& operator=(const PullRequestsMonitor&) = delete;

    [[nodiscard]] const PullRequestsState& state() const { return state_; }
    [[nodiscard]] DevPoller& poller();
    void refresh();

    std::function<void()> onChange;

    // One blocking read, for the command line and the worker alike.
    [[nodiscard]] static PullRequestsState read(const GitHubRequests& requests);

private:
    Runtime& runtime_;
    KestruneActivity& activity_;
    std::shared_ptr<const GitHubRequests> requests_;
    PullRequestsState state_;
    bool reading_ = false;
    std::unique_ptr<DevPoller> poller_;
    std::shared_ptr<PullRequestsMonitor*> self_;
    SerialQueue queue_;
};

} // namespace kestrune
