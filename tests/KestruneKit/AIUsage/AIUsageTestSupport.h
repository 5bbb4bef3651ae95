#pragma once

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>

#include "KestruneKit/AIUsage/AIUsageTally.h"
#include "tests/helpers/TestSupport.h"

namespace kestrune::test {

// The checked-in home folder's files are dated around this moment: Wednesday 2026-08-19, noon UTC.
inline Date fixtureNow() { return dateFromMillis(*parseISODate("2026-08-19T12:00:00Z")); }

// Weeks and days in UTC, starting on Sunday, whatever the machine's zone.
inline AIUsageWindows fixtureWindows(Date now = fixtureNow())
{
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    return aiUsageWindows(now, 0);
}

// A copy of the checked-in home folder, so that counts may change it.
inline void copyFixtureHome(const TemporaryFolder& folder)
{
    std::filesystem::copy(std::string(KESTRUNE_TEST_SOURCES) + "/KestruneKit/AIUsage/home", folder.path(),
                          std::filesystem::copy_options::recursive);
}

} // namespace kestrune::test
