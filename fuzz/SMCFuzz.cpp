// The controller's value bytes for each type code: four bytes of type, then the value.
#include <cmath>

#include "KestruneKit/SystemStats/SMCReader.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace kestrune;
    if (size < 4)
        return 0;
    auto value = SMCDecoder::decode(fuzz::text(data, 4), std::span<const uint8_t>(data + 4, size - 4));
    if (value && !std::isfinite(*value))
        __builtin_trap();
    return 0;
}
