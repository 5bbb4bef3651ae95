// Lines of Codex's app-server, as its reply reader takes them: each a JSON message, the reply's
// "result.rateLimits" decoded.
#include <nlohmann/json.hpp>

#include "KestruneKit/AIUsage/AIUsageCodexLog.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace kestrune;
    auto input = fuzz::text(data, size);
    size_t start = 0;
    while (start <= input.size()) {
        auto end = input.find('\n', start);
        if (end == std::string_view::npos)
            end = input.size();
        auto message = nlohmann::json::parse(input.substr(start, end - start), nullptr, false);
        if (message.is_object()) {
            auto result = message.find("result");
            if (result != message.end() && result->is_object())
                if (auto found = result->find("rateLimits"); found != result->end())
                    (void)decodeCodexRateLimits(*found, std::chrono::system_clock::time_point {});
        }
        start = end + 1;
    }
    (void)codexPlanName(input);
    return 0;
}
