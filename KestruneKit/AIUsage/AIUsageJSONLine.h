#pragma once
// The log counters' use of simdjson's on-demand parser, on one line inside a read buffer.

#include <simdjson.h>

#include "KestruneKit/AIUsage/AIUsageTokenCounter.h"

namespace kestrune {

namespace ondemand = simdjson::ondemand;

static_assert(aiUsageReadPadding >= simdjson::SIMDJSON_PADDING);

// The line as a JSON object; `readable` bytes from its start may be read (the buffer's padding
// included). False for anything else. The document must outlive the object.
inline bool openObject(ondemand::parser& parser, const char* line, size_t length, size_t readable, ondemand::document& document,
                       ondemand::object& object)
{
    return parser.iterate(line, length, readable).get(document) == simdjson::SUCCESS && document.get_object().get(object) == simdjson::SUCCESS;
}

} // namespace kestrune
