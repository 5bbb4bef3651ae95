#include "KestruneKit/Repositories/RepositoryStatus.h"

#include <charconv>

#include "KestruneKit/Core/RawNames.h"

namespace kestrune {

namespace {

using Kind = RepositoryChangeKind;
using Staging = RepositoryChange::Staging;
using Operation = RepositoryOperation;
using Problem = RepositoryProblem;

constexpr RawNames<Kind, 6> kindNames { { {
    { Kind::modified, "modified" },
    { Kind::added, "added" },
    { Kind::deleted, "deleted" },
    { Kind::renamed, "renamed" },
    { Kind::conflict, "conflict" },
    { Kind::untracked, "untracked" },
} } };

constexpr RawNames<Kind, 6> kindLabels { { {
    { Kind::modified, "Modified" },
    { Kind::added, "Added" },
    { Kind::deleted, "Deleted" },
    { Kind::renamed, "Renamed" },
    { Kind::conflict, "Conflict" },
    { Kind::untracked, "Untracked" },
} } };

constexpr RawNames<Staging, 3> stagingNames { { {
    { Staging::none, "none" },
    { Staging::partly, "partly" },
    { Staging::fully, "fully" },
} } };

constexpr RawNames<Operation, 6> operationNames { { {
    { Operation::merging, "merging" },
    { Operation::rebasing, "rebasing" },
    { Operation::cherryPicking, "cherryPicking" },
    { Operation::reverting, "reverting" },
    { Operation::bisecting, "bisecting" },
    { Operation::applying, "applying" },
} } };

constexpr RawNames<Operation, 6> operationLabels { { {
    { Operation::merging, "Merging" },
    { Operation::rebasing, "Rebasing" },
    { Operation::cherryPicking, "Cherry-picking" },
    { Operation::reverting, "Reverting" },
    { Operation::bisecting, "Bisecting" },
    { Operation::applying, "Applying patches" },
} } };

constexpr RawNames<Problem, 6> problemNames { { {
    { Problem::missing, "missing" },
    { Problem::noAccess, "noAccess" },
    { Problem::notRepository, "notRepository" },
    { Problem::timedOut, "timedOut" },
    { Problem::noGit, "noGit" },
    { Problem::failed, "failed" },
} } };

constexpr RawNames<Problem, 6> problemLabels { { {
    { Problem::missing, "Not found" },
    { Problem::noAccess, "No access" },
    { Problem::notRepository, "Not a repository" },
    { Problem::timedOut, "Too slow to read" },
    { Problem::noGit, "Git isn’t installed" },
    { Problem::failed, "Git couldn’t read it" },
} } };

// Splits off the text before the next space; returns it and leaves the rest in `text`.
std::string_view nextField(std::string_view& text)
{
    auto space = text.find(' ');
    auto field = text.substr(0, space);
    text = space == std::string_view::npos ? std::string_view {} : text.substr(space + 1);
    return field;
}

// "+12" or "-3": the sign is dropped, the rest read as a decimal; anything else counts as 0.
int signedCount(std::string_view token)
{
    if (token.size() < 2)
        return 0;
    int value = 0;
    auto digits = token.substr(1);
    auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error != std::errc() || end != digits.data() + digits.size() || value < 0)
        return 0;
    return value;
}

// X is the index against HEAD, Y the working tree against the index; '.' is unchanged.
RepositoryChange changeFromColumns(std::string_view xy, bool renamed)
{
    RepositoryChange change;
    char x = xy.size() > 0 ? xy[0] : '.';
    char y = xy.size() > 1 ? xy[1] : '.';
    if (renamed && x == 'R')
        change.kind = Kind::renamed;
    else if (x == 'A' || x == 'C')
        change.kind = Kind::added;
    else if (x == 'D' || y == 'D')
        change.kind = Kind::deleted;
    else if (renamed)
        change.kind = Kind::renamed;
    else
        change.kind = Kind::modified;
    if (x == '.')
        change.staging = Staging::none;
    else if (y == '.')
        change.staging = Staging::fully;
    else
        change.staging = Staging::partly;
    return change;
}

void readHeader(std::string_view record, RepositoryStatus& status, bool& sawAheadBehind)
{
    std::string_view rest = record;
    (void)nextField(rest); // "#"
    auto key = nextField(rest);
    auto value = rest;
    if (key == "branch.oid") {
        status.head = value == "(initial)" ? std::string {} : std::string(value);
    } else if (key == "branch.head") {
        status.branch = value == "(detached)" ? std::string {} : std::string(value);
    } else if (key == "branch.upstream") {
        status.upstream = std::string(value);
    } else if (key == "branch.ab") {
        status.ahead = signedCount(nextField(value));
        status.behind = signedCount(nextField(value));
        sawAheadBehind = true;
    }
}

// Skips `count` space-separated fields and returns what follows: the path, which may itself
// hold spaces.
std::optional<std::string_view> afterFields(std::string_view record, int count)
{
    for (int field = 0; field < count; ++field) {
        auto space = record.find(' ');
        if (space == std::string_view::npos)
            return std::nullopt;
        record.remove_prefix(space + 1);
    }
    if (record.empty())
        return std::nullopt;
    return record;
}

} // namespace

std::string_view toString(RepositoryChangeKind kind) { return kindNames.name(kind); }
std::optional<RepositoryChangeKind> repositoryChangeKindFromString(std::string_view raw) { return kindNames.value(raw); }
std::string_view label(RepositoryChangeKind kind) { return kindLabels.name(kind); }
std::string_view toString(RepositoryChange::Staging staging) { return stagingNames.name(staging); }
std::string_view toString(RepositoryOperation operation) { return operationNames.name(operation); }
std::optional<RepositoryOperation> repositoryOperationFromString(std::string_view raw) { return operationNames.value(raw); }
std::string_view label(RepositoryOperation operation) { return operationLabels.name(operation); }
std::string_view toString(RepositoryProblem problem) { return problemNames.name(problem); }
std::optional<RepositoryProblem> repositoryProblemFromString(std::string_view raw) { return problemNames.value(raw); }

RepositoryFailure repositoryFailure(RepositoryProblem problem)
{
    return { problem, std::string(problemLabels.name(problem)) };
}

RepositoryStatus parseRepositoryStatus(std::string_view output)
{
    RepositoryStatus status;
    bool sawAheadBehind = false;
    size_t position = 0;
    auto nextRecord = [&]() -> std::optional<std::string_view> {
        if (position >= output.size())
            return std::nullopt;
        auto end = output.find('\0', position);
        if (end == std::string_view::npos)
            end = output.size();
        auto record = output.substr(position, end - position);
        position = end + 1;
        return record;
    };

    // Git prints the header records before any entry, so the branch is known by the time the
    // first change is read; past the cap, entries are only stepped over (a rename still takes its
    // second record with it).
    while (auto record = nextRecord()) {
        if (record->empty())
            continue;
        bool keep = status.changes.size() < RepositoryStatus::changeLimit;
        switch ((*record)[0]) {
        case '#':
            if (record->starts_with("# "))
                readHeader(*record, status, sawAheadBehind);
            break;
        case '1':
            // 1 XY sub mH mI mW hH hI path
            if (auto path = afterFields(*record, 8); path && keep) {
                auto change = changeFromColumns(record->substr(2, 2), false);
                change.path = std::string(*path);
                status.changes.push_back(std::move(change));
            }
            break;
        case '2': {
            // 2 XY sub mH mI mW hH hI Xscore path, then the original path as a record of its own.
            auto original = nextRecord();
            if (auto path = afterFields(*record, 9); path && keep) {
                auto change = changeFromColumns(record->substr(2, 2), true);
                change.path = std::string(*path);
                if (original && !original->empty())
                    change.original = std::string(*original);
                status.changes.push_back(std::move(change));
            }
            break;
        }
        case 'u':
            // u XY sub m1 m2 m3 mW h1 h2 h3 path
            if (auto path = afterFields(*record, 10); path && keep)
                status.changes.push_back({ std::string(*path), Kind::conflict, Staging::none, std::nullopt });
            break;
        case '?':
            if (record->size() > 2 && (*record)[1] == ' ' && keep)
                status.changes.push_back({ std::string(record->substr(2)), Kind::untracked, Staging::none, std::nullopt });
            break;
        default:
            // "!" (ignored) and anything a later git may add.
            break;
        }
    }
    status.upstreamGone = status.upstream && !sawAheadBehind;
    return status;
}

} // namespace kestrune
