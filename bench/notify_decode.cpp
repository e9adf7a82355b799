// Decoding of a campaigns download: the generated 10,000 pairs, 500 campaigns and 2,000 sites
// (about 3.5 MB). Target: under 15 ms.
//
//   bench_notify_decode                      run the benchmark
//   bench_notify_decode --write FILE         write the generated download to FILE and stop

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <fstream>

#include "DownloadGenerator.h"
#include "drovel/notify/NotifyNotificationsResponse.h"

namespace {

const std::string& download() {
    static const std::string text = drovel::bench::generateDownload();
    return text;
}

void BM_DecodeDownload(benchmark::State& state) {
    const std::string& text = download();
    for (auto _ : state) {
        auto response = drovel::notify::NotifyNotificationsResponse::fromJson(text);
        if (!response) {
            state.SkipWithError(response.error()->description().c_str());
            break;
        }
        benchmark::DoNotOptimize(response.value().data.data());
        // Only the decoding is measured, not the release of the records.
        state.PauseTiming();
        { auto released = std::move(response); }
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
    state.counters["MB"] = static_cast<double>(text.size()) / 1e6;
}
BENCHMARK(BM_DecodeDownload)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "--write") == 0) {
        std::ofstream out(argv[2], std::ios::binary);
        out << download();
        if (!out) {
            std::fprintf(stderr, "cannot write %s\n", argv[2]);
            return 1;
        }
        std::printf("wrote %zu bytes to %s\n", download().size(), argv[2]);
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
