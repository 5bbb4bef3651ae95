#include "KestruneKit/Repositories/RepositoryStanding.h"

#include <algorithm>

#include "KestruneKit/Core/RawNames.h"

namespace kestrune {

namespace {
using Case = RepositoryStanding::Case;
constexpr RawNames<Case, 12> caseNames { { {
    { Case::operation, "operation" },
    { Case::conflicts, "conflicts" },
    { Case::changes, "changes" },
    { Case::diverged, "diverged" },
    { Case::behind, "behind" },
    { Case::ahead, "ahead" },
    { Case::detached, "detached" },
    { Case::gone, "gone" },
    { Case::unpublished, "unpublished" },
    { Case::noCommits, "noCommits" },
    { Case::committed, "committed" },
    { Case::upToDate, "upToDate" },
} } };
}

std::string_view toString(RepositoryStanding::Case standing) { return caseNames.name(standing); }

RepositoryStanding RepositoryStanding::of(const RepositoryStatus& status)
{
    RepositoryStanding result;
    auto conflicts = static_cast<int>(std::count_if(status.changes.begin(), status.changes.end(),
                                                    [](const RepositoryChange& change) { return change.kind == RepositoryChangeKind::conflict; }));
    bool detached = status.branch && status.branch->empty();
    bool noCommits = !status.head || status.head->empty();
    if (status.operation) {
        result.standing = Case::operation;
        result.operation = status.operation;
        result.count = conflicts;
    } else if (conflicts > 0) {
        result.standing = Case::conflicts;
        result.count = conflicts;
    } else if (!status.changes.empty()) {
        result.standing = Case::changes;
        result.count = static_cast<int>(status.changes.size());
    } else if (status.ahead > 0 && status.behind > 0) {
        result.standing = Case::diverged;
        result.ahead = status.ahead;
        result.behind = status.behind;
    } else if (status.behind > 0) {
        result.standing = Case::behind;
        result.count = status.behind;
    } else if (status.ahead > 0) {
        result.standing = Case::ahead;
        result.count = status.ahead;
    } else if (detached && !noCommits) {
        result.standing = Case::detached;
    } else if (status.upstream && status.upstreamGone) {
        result.standing = Case::gone;
        result.upstream = *status.upstream;
    } else if (!status.upstream && !status.remotes.empty() && !noCommits) {
        result.standing = Case::unpublished;
    } else if (noCommits) {
        result.standing = Case::noCommits;
    } else if (!status.upstream) {
        // Nowhere to push: everything that can be done is done once it is committed.
        result.standing = Case::committed;
    } else {
        result.standing = Case::upToDate;
    }
    return result;
}

std::string RepositoryStanding::text(const std::locale& locale) const
{
    switch (standing) {
    case Case::operation:
        if (count == 0 && operation)
            return std::string(label(*operation));
        [[fallthrough]];
    case Case::conflicts:
        return countText(count, "conflict", "conflicts", locale) + " to fix";
    case Case::changes:
        return countText(count, "change", "changes", locale) + " to commit";
    case Case::diverged:
        return groupedNumber(ahead, locale) + " to push, " + groupedNumber(behind, locale) + " to pull";
    case Case::behind:
        return countText(count, "commit", "commits", locale) + " to pull";
    case Case::ahead:
        return countText(count, "commit", "commits", locale) + " to push";
    case Case::detached:
        return "Not on a branch";
    case Case::gone:
        return "Gone from " + upstream;
    case Case::unpublished:
        return "Not pushed yet";
    case Case::noCommits:
        return "No commits yet";
    case Case::committed:
        return "All committed";
    case Case::upToDate:
        return "Up to date";
    }
    return {};
}

} // namespace kestrune
