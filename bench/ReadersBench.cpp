// The readers' parsing throughput (git's porcelain output, the engine's container list) and the
// cost of a whole git read against git status alone, on a repository with 20,000 untracked
// files. Throughput is Google Benchmark's bytes_per_second; the whole reads report their median
// as `median_ms`.

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "KestruneKit/Containers/ContainerList.h"
#include "KestruneKit/DevTools/DevToolBox.h"
#include "KestruneKit/Repositories/RepositoryReader.h"

namespace {

using namespace kestrune;

std::string porcelain(int entries)
{
    std::string output = std::string("# branch.oid 5d1f0c7e9a3b2c4d6e8f0a1b2c3d4e5f6a7b8c9d") + '\0' + "# branch.head main" + '\0'
        + "# branch.upstream origin/main" + '\0' + "# branch.ab +1 -2" + '\0';
    for (int index = 0; index < entries; ++index) {
        std::string path = "src/module" + std::to_string(index % 97) + "/file" + std::to_string(index) + ".cpp";
        switch (index % 4) {
        case 0:
            output += "1 .M N... 100644 100644 100644 3b18e512dba79e4c8300dd08aeb37f8e728b8dad 3b18e512dba79e4c8300dd08aeb37f8e728b8dad " + path + '\0';
            break;
        case 1:
            output += "2 R. N... 100644 100644 100644 3b18e512dba79e4c8300dd08aeb37f8e728b8dad 3b18e512dba79e4c8300dd08aeb37f8e728b8dad R100 " + path + '\0' + path + ".old" + '\0';
            break;
        default:
            output += "? " + path + '\0';
        }
    }
    return output;
}

void BM_ParsePorcelain100k(benchmark::State& state)
{
    std::string output = porcelain(100'000);
    for (auto _ : state) {
        auto status = parseRepositoryStatus(output);
        benchmark::DoNotOptimize(status);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(output.size()));
}
BENCHMARK(BM_ParsePorcelain100k)->Unit(benchmark::kMillisecond);

void BM_DecodeContainerList1000(benchmark::State& state)
{
    std::string body = "[";
    for (int index = 0; index < 1000; ++index) {
        if (index > 0)
            body += ',';
        auto n = std::to_string(index);
        body += R"j({"Id":"4f1c2d3e4f5a6b7c8d9e0f1a2b3c4d5e6f7a8b9c0d1e2f3a4b5c6d7e8f9a)j" + n + R"j(","Names":["/project-service-)j" + n
            + R"j("],"Image":"docker.io/library/postgres:16","ImageID":"sha256:0a1b2c3d4e5f","Command":"docker-entrypoint.sh postgres","Created":1795230368,)j"
            + R"j("Ports":[{"IP":"0.0.0.0","PrivatePort":5432,"PublicPort":)j" + std::to_string(20000 + index) + R"j(,"Type":"tcp"},{"PrivatePort":53,"Type":"udp"}],)j"
            + R"j("Labels":{"com.docker.compose.project":"project)j" + std::to_string(index % 20)
            + R"j(","com.docker.compose.service":"db","com.docker.compose.version":"2.29.1"},"State":"running","Status":"Up 3 hours (healthy)",)j"
            + R"j("HostConfig":{"NetworkMode":"project_default"},"NetworkSettings":{"Networks":{"project_default":{"IPAddress":"172.18.0.2","Gateway":"172.18.0.1"}}},"Mounts":[]})j";
    }
    body += "]";
    for (auto _ : state) {
        auto list = decodeContainerList(body);
        if (!list || list->size() != 1000)
            state.SkipWithError("the list did not decode");
        benchmark::DoNotOptimize(list);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(body.size()));
}
BENCHMARK(BM_DecodeContainerList1000)->Unit(benchmark::kMillisecond);

// One repository for both whole-read benchmarks, made once.
const std::string& untrackedRepository()
{
    static const std::string folder = [] {
        auto path = std::filesystem::temp_directory_path() / "kestrune-bench-20k-untracked";
        if (!std::filesystem::exists(path / "done")) {
            std::filesystem::remove_all(path);
            std::filesystem::create_directories(path);
            auto init = DevToolBox().run(RepositoryReader::locateGit(), { "init", "-q", path.string() }, std::nullopt, {}, Seconds(30));
            if (!init.succeeded())
                return std::string {};
            // All at the top: git folds an untracked folder into one entry.
            for (int index = 0; index < 20'000; ++index)
                std::ofstream(path / ("file" + std::to_string(index) + ".txt")) << index;
            std::ofstream(path / ".git" / "info" / "exclude", std::ios::app) << "done\n";
            std::ofstream(path / "done") << "";
        }
        return path.string();
    }();
    return folder;
}

template<typename Run>
void medianMilliseconds(benchmark::State& state, Run run)
{
    std::vector<double> samples;
    for (auto _ : state) {
        auto began = std::chrono::steady_clock::now();
        run();
        samples.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - began).count());
    }
    std::nth_element(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2), samples.end());
    state.counters["median_ms"] = samples[samples.size() / 2];
}

void BM_GitStatusAlone20kUntracked(benchmark::State& state)
{
    const auto& folder = untrackedRepository();
    if (folder.empty())
        return state.SkipWithError("git init failed");
    DevToolBox box;
    auto git = RepositoryReader::locateGit();
    medianMilliseconds(state, [&] {
        auto run = box.run(git, { "-C", folder, "status", "--porcelain=v2", "--branch", "-z" }, std::nullopt, {}, Seconds(60));
        if (!run.succeeded())
            state.SkipWithError("git status failed");
    });
}
BENCHMARK(BM_GitStatusAlone20kUntracked)->Unit(benchmark::kMillisecond)->Iterations(30);

void BM_KestruneGit20kUntracked(benchmark::State& state)
{
    const auto& folder = untrackedRepository();
    if (folder.empty())
        return state.SkipWithError("git init failed");
    DevToolBox box;
    medianMilliseconds(state, [&] {
        auto run = box.run(DevTool { "kestrune", { KESTRUNE_CLI } }, { "git", folder }, std::nullopt, {}, Seconds(60));
        if (!run.succeeded() || run.output.find("200 changes to commit") == std::string::npos)
            state.SkipWithError("kestrune git failed");
    });
}
BENCHMARK(BM_KestruneGit20kUntracked)->Unit(benchmark::kMillisecond)->Iterations(30);

} // namespace
