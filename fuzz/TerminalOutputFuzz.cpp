// A command's raw terminal output, cleaned as the Commands card shows it.
#include "KestruneKit/DevTools/ShellCommandOutput.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace kestrune;
    std::string cleaned = ShellCommandOutput::clean(fuzz::text(data, size));
    if (ShellCommandOutput::lastLine(cleaned, 40).size() > 4 * 40)
        __builtin_trap();
    return 0;
}
