// Cleaning throughput of a command's output, on 64 MiB of plain text and of what progress bars,
// coloured compilers and shells that set window titles write.

#include <random>
#include <string>

#include <benchmark/benchmark.h>

#include "KestruneKit/DevTools/ShellCommandOutput.h"

namespace {

constexpr size_t inputSize = 64 * 1024 * 1024;

std::string plainText()
{
    std::mt19937 random(7);
    const std::string words[] = { "compiling", "src/main.cpp", "warning:", "unused", "variable", "[42/311]",
                                  "linking", "done", "0.37s", "PASS", "tests/runner_test.cpp", "ok" };
    std::string text;
    text.reserve(inputSize + 256);
    while (text.size() < inputSize) {
        int count = 4 + static_cast<int>(random() % 10);
        for (int i = 0; i < count; ++i) {
            text += words[random() % std::size(words)];
            text += ' ';
        }
        text.back() = '\n';
    }
    text.resize(inputSize);
    return text;
}

std::string escapeHeavyText()
{
    std::mt19937 random(11);
    std::string text;
    text.reserve(inputSize + 256);
    while (text.size() < inputSize) {
        switch (random() % 4) {
        case 0: // a progress bar redrawn in place
            for (int percent = 0; percent <= 100; percent += 10) {
                text += "\r\x1b[2K[";
                text += std::string(static_cast<size_t>(percent / 5), '#');
                text += std::string(static_cast<size_t>(20 - percent / 5), ' ');
                text += "] " + std::to_string(percent) + "%";
            }
            text += "\n";
            break;
        case 1: // a coloured diagnostic
            text += "\x1b[1m\x1b[31merror:\x1b[0m \x1b[1mexpected ';' after expression\x1b[0m\n";
            break;
        case 2: // a window title and a hyperlink
            text += "\x1b]0;make: building target\x07\x1b]8;;file:///src/a.c\x1b\\a.c\x1b]8;;\x1b\\ \xe2\x9c\x93 built\n";
            break;
        default: // a spinner with backspaces
            for (const char* frame : { "|", "/", "-", "\\" }) {
                text += frame;
                text += "\b";
            }
            text += "resolved\n";
            break;
        }
    }
    text.resize(inputSize);
    return text;
}

void cleanBenchmark(benchmark::State& state, const std::string& input)
{
    for (auto _ : state) {
        auto cleaned = kestrune::ShellCommandOutput::clean(input);
        benchmark::DoNotOptimize(cleaned.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(input.size()));
}

void BM_CleanPlainText(benchmark::State& state)
{
    static const std::string input = plainText();
    cleanBenchmark(state, input);
}

void BM_CleanEscapeHeavyText(benchmark::State& state)
{
    static const std::string input = escapeHeavyText();
    cleanBenchmark(state, input);
}

BENCHMARK(BM_CleanPlainText)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_CleanEscapeHeavyText)->Unit(benchmark::kMillisecond)->MinTime(2.0);

} // namespace
