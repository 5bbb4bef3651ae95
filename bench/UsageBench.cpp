// The Claude Code counter on a generated folder of logs, as the issue's figures ask:
//
//   kestrune-usage-bench generate FOLDER [MIB] [SEED]   writes FOLDER/.claude/projects (default 1024 MiB)
//   kestrune-usage-bench measure FOLDER                 prints the figures
//
// The generated mix follows what real transcripts hold: about two assistant lines per reply
// (one per content block, the same usage on each), user lines carrying tool results with a long
// tail of large ones, file-history snapshots and progress lines; about a thousand files whose
// sizes have a long tail too. Every reply falls inside this week. `bench/usage-figures` runs both.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/core.h>

#include "KestruneKit/AIUsage/AIUsageClaudeCounter.h"

namespace {

using namespace kestrune;
using Clock = std::chrono::steady_clock;

std::string isoTime(int64_t millis)
{
    std::time_t seconds = millis / 1000;
    std::tm parts {};
    gmtime_r(&seconds, &parts);
    char text[40];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    return fmt::format("{}.{:03}Z", text, millis % 1000);
}

std::string filler(std::mt19937_64& random, size_t length)
{
    static const std::string words = "the quick brown fox jumps over the lazy dog while reading src/main.cpp:42 and \\\"quoted\\\" text ";
    std::string text;
    text.reserve(length);
    size_t at = random() % words.size();
    while (text.size() < length) {
        text += words[at];
        at = (at + 1) % words.size();
    }
    return text;
}

int generate(const std::string& folder, int64_t mebibytes, uint64_t seed)
{
    std::mt19937_64 random(seed);
    std::lognormal_distribution<double> fileSizes(0.0, 1.2);
    std::lognormal_distribution<double> toolSizes(7.5, 1.8);
    auto windows = aiUsageWindows(std::chrono::system_clock::now(), localeFirstWeekday());
    int64_t span = std::max<int64_t>(windows.now - windows.weekStart, 3600 * 1000);
    int64_t total = mebibytes << 20;
    int64_t written = 0;
    int files = 0;
    int64_t replies = 0;
    // Mean file size about total / 1000, with the lognormal's long tail.
    double meanFile = static_cast<double>(total) / 1000 / std::exp(0.72);
    while (written < total) {
        std::string project = fmt::format("{}/.claude/projects/-Users-dev-project{}", folder, files % 40);
        std::filesystem::create_directories(project);
        std::string path = fmt::format("{}/{:08x}-session-{}.jsonl", project, random() & 0xffffffff, files);
        auto size = std::min<int64_t>(static_cast<int64_t>(meanFile * fileSizes(random)) + 4096, total - written + 4096);
        std::ofstream out(path, std::ios::binary);
        std::string buffer;
        int64_t fileBytes = 0;
        int64_t time = windows.now - static_cast<int64_t>(random() % static_cast<uint64_t>(span));
        while (fileBytes < size) {
            time += 1000 + static_cast<int64_t>(random() % 20000);
            std::string line;
            int kind = static_cast<int>(random() % 100);
            if (kind < 45) {
                ++replies;
                auto id = fmt::format("msg_{:016x}", random());
                auto request = fmt::format("req_{:016x}", random());
                int blocks = 1 + static_cast<int>(random() % 3);
                int input = static_cast<int>(random() % 50), output = static_cast<int>(random() % 2000);
                int created = static_cast<int>(random() % 5000), read = static_cast<int>(random() % 150000);
                for (int block = 0; block < blocks; ++block)
                    line += fmt::format(
                        R"({{"parentUuid":"{:016x}","isSidechain":false,"userType":"external","cwd":"/Users/dev/project","sessionId":"s{}","version":"2.1.50","gitBranch":"main","message":{{"id":"{}","type":"message","role":"assistant","model":"claude-sonnet-4-5","content":[{{"type":"text","text":"{}"}}],"stop_reason":"tool_use","stop_sequence":null,"usage":{{"input_tokens":{},"cache_creation_input_tokens":{},"cache_read_input_tokens":{},"cache_creation":{{"ephemeral_5m_input_tokens":0,"ephemeral_1h_input_tokens":{}}},"output_tokens":{},"service_tier":"standard"}}}},"requestId":"{}","type":"assistant","uuid":"{:016x}","timestamp":"{}"}})"
                        "\n",
                        random(), files, id, filler(random, 200 + random() % 1500), input, created, read, created, output, request, random(),
                        isoTime(time));
            } else if (kind < 85) {
                auto length = static_cast<size_t>(std::min(toolSizes(random), 8e6));
                line = fmt::format(
                    R"({{"parentUuid":"{:016x}","isSidechain":false,"type":"user","message":{{"role":"user","content":[{{"tool_use_id":"toolu_{:016x}","type":"tool_result","content":"{}"}}]}},"uuid":"{:016x}","timestamp":"{}"}})"
                    "\n",
                    random(), random(), filler(random, length), random(), isoTime(time));
            } else if (kind < 95) {
                line = fmt::format(
                    R"({{"type":"file-history-snapshot","messageId":"{:016x}","snapshot":{{"messageId":"{:016x}","trackedFileBackups":{{"src/main.cpp":{{"backupFileName":"{:016x}@v2","version":2,"backupTime":"{}"}}}},"timestamp":"{}"}},"isSnapshotUpdate":false}})"
                    "\n",
                    random(), random(), random(), isoTime(time), isoTime(time));
            } else {
                line = fmt::format(R"({{"type":"progress","data":{{"type":"hook_progress","hookEvent":"PostToolUse","hookName":"PostToolUse:Bash","command":"{}"}},"parentToolUseID":"toolu_{:016x}","uuid":"{:016x}","timestamp":"{}"}})"
                                   "\n",
                                   filler(random, 80), random(), random(), isoTime(time));
            }
            buffer += line;
            fileBytes += static_cast<int64_t>(line.size());
            if (buffer.size() > (1 << 20)) {
                out << buffer;
                buffer.clear();
            }
        }
        out << buffer;
        written += fileBytes;
        ++files;
    }
    fmt::print("wrote {} files, {:.1f} MiB, about {} replies\n", files, static_cast<double>(written) / (1 << 20), replies);
    return 0;
}

double seconds(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

uint64_t folderBytes(const std::string& root)
{
    uint64_t bytes = 0;
    listFiles(root, [](std::string_view) { return true; }, [&](const std::string&, const AIUsageFileStamp& stamp) { bytes += stamp.size; });
    return bytes;
}

// Peak resident size, in KiB, of a child that runs `work`.
long childPeak(const std::function<void()>& work)
{
    pid_t child = ::fork();
    if (child == 0) {
        work();
        ::_exit(0);
    }
    int status = 0;
    rusage usage {};
    ::wait4(child, &status, 0, &usage);
    return usage.ru_maxrss;
}

int measure(const std::string& folder)
{
    auto windows = aiUsageWindows(std::chrono::system_clock::now(), localeFirstWeekday());
    std::string root = folder + "/.claude/projects";
    double bytes = static_cast<double>(folderBytes(root));

    // Warm the page cache, then time cat over the same files: the floor of reading them at all.
    (void)std::system(fmt::format("find '{}' -name '*.jsonl' -print0 | xargs -0 cat > /dev/null", root).c_str());
    auto start = Clock::now();
    (void)std::system(fmt::format("find '{}' -name '*.jsonl' -print0 | xargs -0 cat > /dev/null", root).c_str());
    double cat = seconds(start);

    double first = 1e9;
    AIUsageTokenUse use;
    size_t replies = 0;
    for (int run = 0; run < 3; ++run) {
        AIUsageClaudeCounter counter(folder);
        start = Clock::now();
        use = counter.count(windows);
        first = std::min(first, seconds(start));
    }
    fmt::print("folder: {:.0f} MiB\n", bytes / (1 << 20));
    fmt::print("first full count: {:.3f} s, {:.2f} GB/s ({} tokens this week)\n", first, bytes / first / 1e9, use.week);
    fmt::print("cat of the same files: {:.3f} s, {:.2f} GB/s; count / cat = {:.2f}\n", cat, bytes / cat / 1e9, first / cat);

    // One reply appended to one file, then counted again.
    AIUsageClaudeCounter counter(folder);
    (void)counter.count(windows);
    std::string target;
    listFiles(root, [](std::string_view path) { return endsWith(path, ".jsonl"); }, [&](const std::string& path, const AIUsageFileStamp&) {
        if (target.empty())
            target = path;
    });
    std::vector<double> recounts;
    for (int run = 0; run < 9; ++run) {
        std::ofstream(target, std::ios::app) << fmt::format(
            R"({{"type":"assistant","message":{{"id":"msg_appended{}","usage":{{"input_tokens":10,"output_tokens":5}}}},"requestId":"req_a{}","timestamp":"{}"}})"
            "\n",
            run, run, isoTime(windows.now - 1000));
        start = Clock::now();
        (void)counter.count(windows);
        recounts.push_back(seconds(start));
    }
    std::sort(recounts.begin(), recounts.end());
    fmt::print("re-count after one appended reply: median {:.2f} ms\n", recounts[recounts.size() / 2] * 1000);

    // Peak memory of a first count, less that of the same process doing nothing.
    long idle = childPeak([] {});
    long counting = childPeak([&] {
        AIUsageClaudeCounter fresh(folder);
        (void)fresh.count(windows);
        replies = 0;
    });
    fmt::print("peak memory of a first count: {:.1f} MiB above an idle process\n", static_cast<double>(counting - idle) / 1024);

    // Most files last written before this week: they are not opened at all.
    size_t aged = 0;
    timespec old[2] = { { windows.weekStart / 1000 - 30 * 86400, 0 }, { windows.weekStart / 1000 - 30 * 86400, 0 } };
    std::vector<std::pair<std::string, AIUsageFileStamp>> files;
    listFiles(root, [](std::string_view) { return true; }, [&](const std::string& path, const AIUsageFileStamp& stamp) { files.emplace_back(path, stamp); });
    for (size_t index = 0; index < files.size(); ++index)
        if (index % 10 != 0 && ::utimensat(AT_FDCWD, files[index].first.c_str(), old, 0) == 0)
            ++aged;
    AIUsageClaudeCounter outside(folder);
    start = Clock::now();
    (void)outside.count(windows);
    double mostlyOld = seconds(start);
    start = Clock::now();
    size_t listed = 0;
    listFiles(root, [](std::string_view path) { return endsWith(path, ".jsonl"); }, [&](const std::string&, const AIUsageFileStamp&) { ++listed; });
    double listing = seconds(start);
    fmt::print("{} of {} files aged to before this week: count {:.1f} ms ({} files opened); listing the tree alone {:.1f} ms\n", aged,
               files.size(), mostlyOld * 1000, outside.filesOpened(), listing * 1000);
    // Put the dates back, so that the folder can be measured again.
    for (const auto& [path, stamp] : files) {
        timespec back[2] = { { stamp.modifiedNanos / 1000000000, stamp.modifiedNanos % 1000000000 },
                             { stamp.modifiedNanos / 1000000000, stamp.modifiedNanos % 1000000000 } };
        ::utimensat(AT_FDCWD, path.c_str(), back, 0);
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    std::string command = argc > 1 ? argv[1] : "";
    if (command == "generate" && argc >= 3)
        return generate(argv[2], argc > 3 ? std::stoll(argv[3]) : 1024, argc > 4 ? std::stoull(argv[4]) : 1);
    if (command == "measure" && argc >= 3)
        return measure(argv[2]);
    fmt::print(stderr, "usage: kestrune-usage-bench generate FOLDER [MIB] [SEED] | measure FOLDER\n");
    return 2;
}
