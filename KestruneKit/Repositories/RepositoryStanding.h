#pragma once

#include <locale>
#include <string>
#include <variant>

#include "KestruneKit/Core/CountText.h"
#include "KestruneKit/Repositories/RepositoryStatus.h"

namespace kestrune {

// A status summed up in one short text for the face of the Git widget: the first case that
// applies, in the order below, wins.
struct RepositoryStanding {
    enum class Case { operation, conflicts, changes, diverged, behind, ahead, detached, gone, unpublished, noCommits, committed, upToDate };

    Case standing = Case::upToDate;
    std::optional<RepositoryOperation> operation;
    // Conflicts for operation and conflicts, changes for changes, commits for behind and ahead.
    int count = 0;
    int ahead = 0;
    int behind = 0;
    std::string upstream;

    [[nodiscard]] static RepositoryStanding of(const RepositoryStatus& status);
    [[nodiscard]] std::string text(const std::locale& locale = userLocale()) const;
};

[[nodiscard]] std::string_view toString(RepositoryStanding::Case standing);

} // namespace kestrune
