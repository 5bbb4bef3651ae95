// gh's answers: the GraphQL searches and calendar, and the REST lists.
#include "KestruneKit/GitHub/GitHubQueries.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace kestrune;
    auto input = fuzz::text(data, size);
    (void)decodePullRequests(input);
    (void)decodeContributionCalendar(input);
    (void)decodeRepositoryNames(input);
    (void)decodeWorkflowRuns("owner/name", input);
    return 0;
}
