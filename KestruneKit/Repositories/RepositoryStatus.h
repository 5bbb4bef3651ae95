#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "KestruneKit/Core/Runtime.h"

namespace kestrune {

enum class RepositoryChangeKind { modified, added, deleted, renamed, conflict, untracked };

[[nodiscard]] std::string_view toString(RepositoryChangeKind kind);
[[nodiscard]] std::optional<RepositoryChangeKind> repositoryChangeKindFromString(std::string_view raw);
// "Modified", "Added" ... "Untracked".
[[nodiscard]] std::string_view label(RepositoryChangeKind kind);

struct RepositoryChange {
    // How much of the change is in the index.
    enum class Staging { none, partly, fully };

    std::string path;
    RepositoryChangeKind kind = RepositoryChangeKind::modified;
    Staging staging = Staging::none;
    // The old path of a rename.
    std::optional<std::string> original;

    bool operator==(const RepositoryChange&) const = default;
};

[[nodiscard]] std::string_view toString(RepositoryChange::Staging staging);

enum class RepositoryOperation { merging, rebasing, cherryPicking, reverting, bisecting, applying };

[[nodiscard]] std::string_view toString(RepositoryOperation operation);
[[nodiscard]] std::optional<RepositoryOperation> repositoryOperationFromString(std::string_view raw);
// "Merging", "Rebasing" ... "Applying patches".
[[nodiscard]] std::string_view label(RepositoryOperation operation);

// One reading of a working copy.
struct RepositoryStatus {
    // Kept changes; the rest of a longer list is read and dropped.
    static constexpr size_t changeLimit = 200;

    // Empty when HEAD is detached.
    std::optional<std::string> branch;
    // Empty before the first commit.
    std::optional<std::string> head;
    std::optional<std::string> upstream;
    int ahead = 0;
    int behind = 0;
    std::vector<RepositoryChange> changes;
    std::optional<RepositoryOperation> operation;

    // Git names an upstream but gives no ahead/behind counts for it: the remote branch is gone.
    bool upstreamGone = false;
    // The repository's remotes, by name; none means there is nowhere to push.
    std::vector<std::string> remotes;

    bool operator==(const RepositoryStatus&) const = default;
};

// Reads git's `status --porcelain=v2 --branch -z` output. Entries past `changeLimit` are scanned
// and dropped. Malformed records are skipped; the reading never fails.
[[nodiscard]] RepositoryStatus parseRepositoryStatus(std::string_view output);

// Why a folder could not be read. The first four are the folder's; noGit and failed are the
// monitor's own (git is missing, or git failed with a text of its own).
enum class RepositoryProblem { missing, noAccess, notRepository, timedOut, noGit, failed };

[[nodiscard]] std::string_view toString(RepositoryProblem problem);
[[nodiscard]] std::optional<RepositoryProblem> repositoryProblemFromString(std::string_view raw);

struct RepositoryFailure {
    RepositoryProblem problem = RepositoryProblem::failed;
    // What the user reads: the problem's label, or for `failed`, git's failure in words.
    std::string text;

    bool operator==(const RepositoryFailure&) const = default;
};

[[nodiscard]] RepositoryFailure repositoryFailure(RepositoryProblem problem);

struct RepositoryState {
    std::string folder;
    std::variant<RepositoryStatus, RepositoryFailure> reading;
    Date readAt;

    [[nodiscard]] const RepositoryStatus* status() const { return std::get_if<RepositoryStatus>(&reading); }
    [[nodiscard]] const RepositoryFailure* failure() const { return std::get_if<RepositoryFailure>(&reading); }
};

} // namespace kestrune
