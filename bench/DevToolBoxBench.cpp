// What one run of a tool costs, from asking to having its result: DevToolBox.run of /bin/true
// next to a bare fork and exec of the same program. Each reports the median of its runs, as
// `median_us`, beside Google Benchmark's mean.

#include <algorithm>
#include <chrono>
#include <vector>

#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include "KestruneKit/DevTools/DevToolBox.h"

namespace {

template<typename Run>
void medianBenchmark(benchmark::State& state, Run run)
{
    std::vector<double> samples;
    samples.reserve(static_cast<size_t>(state.max_iterations));
    for (auto _ : state) {
        auto began = std::chrono::steady_clock::now();
        run();
        samples.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - began).count());
    }
    std::nth_element(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2), samples.end());
    state.counters["median_us"] = samples[samples.size() / 2];
}

void BM_DevToolBoxRunTrue(benchmark::State& state)
{
    kestrune::DevToolBox box;
    kestrune::DevTool truth { "true", { "/bin/true", "/usr/bin/true" } };
    medianBenchmark(state, [&] {
        auto run = box.run(truth, {}, std::nullopt, {}, kestrune::Seconds(10));
        if (!run.succeeded())
            state.SkipWithError("/bin/true failed");
    });
}

void BM_ForkExecTrue(benchmark::State& state)
{
    medianBenchmark(state, [&] {
        pid_t pid = ::fork();
        if (pid == 0) {
            ::execl("/bin/true", "true", static_cast<char*>(nullptr));
            ::_exit(127);
        }
        int status = 0;
        while (::waitpid(pid, &status, 0) < 0) {
        }
    });
}

BENCHMARK(BM_DevToolBoxRunTrue)->Iterations(1000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ForkExecTrue)->Iterations(1000)->Unit(benchmark::kMicrosecond);

} // namespace
