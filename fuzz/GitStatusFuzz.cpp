// git status --porcelain=v2 output, the configuration listing and git's error text.
#include "KestruneKit/Repositories/RepositoryReader.h"
#include "KestruneKit/Repositories/RepositoryStanding.h"
#include "KestruneKit/Repositories/RepositoryStatus.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace kestrune;
    auto input = fuzz::text(data, size);
    RepositoryStatus status = parseRepositoryStatus(input);
    if (status.changes.size() > 200)
        __builtin_trap();
    (void)RepositoryStanding::of(status).text();
    (void)RepositoryReader::programsFromListing(input);
    (void)RepositoryReader::failureFromErrorOutput(input);
    return 0;
}
