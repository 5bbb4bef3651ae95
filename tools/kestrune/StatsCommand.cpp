#include <iostream>

#include <fmt/core.h>
#include <nlohmann/json.hpp>

#include "KestruneKit/Core/CountText.h"
#include "KestruneKit/Core/Environment.h"
#include "KestruneKit/Core/LoopRuntime.h"
#include "KestruneKit/SystemStats/SMCReader.h"
#include "KestruneKit/SystemStats/SystemStatsSampler.h"
#include "tools/kestrune/Commands.h"

namespace kestrune::cli {

namespace {

using Json = nlohmann::ordered_json;

Json readingJson(const SystemStatsReading& reading)
{
    Json cores = Json::array();
    for (const auto& core : reading.cores)
        cores.push_back({ { "busy", core.busy }, { "kind", toString(core.kind) } });
    return { { "cpu", reading.cpu },
             { "cpuUser", reading.cpuUser },
             { "cpuSystem", reading.cpuSystem },
             { "cores", std::move(cores) },
             { "memoryUsed", reading.memoryUsed },
             { "memoryTotal", reading.memoryTotal },
             { "pressure", toString(reading.pressure) },
             { "swapUsed", reading.swapUsed },
             { "down", reading.down },
             { "up", reading.up },
             { "gpu", reading.gpu ? Json(*reading.gpu) : Json(nullptr) },
             { "diskFree", reading.diskFree },
             { "diskTotal", reading.diskTotal } };
}

std::string bytesText(double bytes)
{
    const char* units[] = { "B", "KB", "MB", "GB", "TB" };
    int unit = 0;
    while (bytes >= 1000 && unit < 4) {
        bytes /= 1000;
        ++unit;
    }
    return unit == 0 ? fmt::format("{:.0f} {}", bytes, units[unit]) : fmt::format("{:.1f} {}", bytes, units[unit]);
}

void printReading(const SystemStatsReading& reading)
{
    fmt::print("CPU {:.0f}% (user {:.0f}%, system {:.0f}%)\n", reading.cpu * 100, reading.cpuUser * 100, reading.cpuSystem * 100);
    for (size_t core = 0; core < reading.cores.size(); ++core)
        fmt::print("  core {:>2}  {:>3.0f}%  {}\n", core, reading.cores[core].busy * 100, toString(reading.cores[core].kind));
    fmt::print("Memory {} of {}, pressure {}, swap {}\n", bytesText(static_cast<double>(reading.memoryUsed)),
               bytesText(static_cast<double>(reading.memoryTotal)), toString(reading.pressure), bytesText(static_cast<double>(reading.swapUsed)));
    fmt::print("Network down {}/s, up {}/s\n", bytesText(reading.down), bytesText(reading.up));
    fmt::print("GPU {}\n", reading.gpu ? fmt::format("{:.0f}%", *reading.gpu * 100) : std::string("no figure"));
    fmt::print("Disk {} free of {}\n", bytesText(static_cast<double>(reading.diskFree)), bytesText(static_cast<double>(reading.diskTotal)));
}

int printStats(bool json, double interval, int count)
{
    LoopRuntime runtime;
    SystemStatsSampler sampler(runtime, std::make_unique<SystemStatsProbe>(homeFolder()));
    int printed = 0;
    // The first sample only sets the CPU baseline; what follows is measured against it.
    sampler.onChange = [&] {
        if (sampler.samples() == 1)
            return;
        if (json)
            std::cout << readingJson(sampler.snapshot().reading).dump() << std::endl;
        else
            printReading(sampler.snapshot().reading);
        if (++printed >= count)
            runtime.quit();
        else if (!json)
            fmt::print("\n");
    };
    auto token = sampler.demand(SystemStatsParts::all(), Seconds(interval));
    runtime.run();
    return exitSuccess;
}

int decodeSMC(const std::string& type, const std::string& hex)
{
    std::vector<uint8_t> bytes;
    std::string digits;
    for (char c : hex)
        if (!std::isspace(static_cast<unsigned char>(c)))
            digits += c;
    if (digits.starts_with("0x") || digits.starts_with("0X"))
        digits.erase(0, 2);
    if (digits.size() % 2 != 0 || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        fmt::print(stderr, "kestrune smc decode: “{}” is not a whole number of hexadecimal bytes\n", hex);
        return exitUsage;
    }
    for (size_t at = 0; at < digits.size(); at += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(at, 2), nullptr, 16)));
    auto value = SMCDecoder::decode(type, bytes);
    if (!value) {
        fmt::print("no value: “{}” does not decode {} byte{}\n", type, bytes.size(), bytes.size() == 1 ? "" : "s");
        return exitFailure;
    }
    fmt::print("{}\n", *value);
    return exitSuccess;
}

} // namespace

Action addStatsCommand(CLI::App& app)
{
    auto* command = app.add_subcommand("stats", "CPU, memory, network, GPU and disk, sampled as the system widgets sample them");
    auto json = std::make_shared<bool>(false);
    auto interval = std::make_shared<double>(1.0);
    auto count = std::make_shared<int>(1);
    command->add_flag("--json", *json, "One JSON object per sample");
    command->add_option("--interval", *interval, "Seconds between samples (0.5 to 60)")->check(CLI::PositiveNumber);
    command->add_option("--count", *count, "How many samples to print")->check(CLI::PositiveNumber);
    return [json, interval, count] { return printStats(*json, *interval, *count); };
}

Action addSMCCommand(CLI::App& app)
{
    auto* command = app.add_subcommand("smc", "The Mac's system management controller's values");
    auto* decode = command->add_subcommand("decode", "Decode a key's bytes by its four-character type");
    auto type = std::make_shared<std::string>();
    auto hex = std::make_shared<std::string>();
    decode->add_option("TYPE", *type, "The data type, e.g. sp78, \"flt \", ui16")->required();
    decode->add_option("HEXBYTES", *hex, "The bytes in hexadecimal, e.g. 1a80")->required();
    command->require_subcommand(1, 1);
    return [type, hex] { return decodeSMC(*type, *hex); };
}

} // namespace kestrune::cli
