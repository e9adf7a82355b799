// Render time of hostile templates at growing sizes, with a linear complexity fit: the engine's
// work grows linearly with the text, and the fitted coefficient is the time per repetition.
// Then the expensive templates that the rendering budget abandons, with the time of one
// rendering and its peak heap (bytes allocated through operator new beyond those at its start).

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>

#include "../tests/template/HostileTemplates.h"
#include "template/Log.h"
#include "template/Render.h"

namespace {

std::atomic<std::size_t> heapInUse{0};
std::atomic<std::size_t> heapPeak{0};

}  // namespace

void* operator new(std::size_t size) {
    void* block = std::malloc(size ? size : 1);
    if (!block) throw std::bad_alloc();
    std::size_t now = heapInUse.fetch_add(malloc_usable_size(block), std::memory_order_relaxed) + malloc_usable_size(block);
    std::size_t peak = heapPeak.load(std::memory_order_relaxed);
    while (now > peak && !heapPeak.compare_exchange_weak(peak, now, std::memory_order_relaxed)) {}
    return block;
}

// This operator new takes its blocks from malloc, so free is the matching release; GCC cannot
// see that and warns where it inlines the pair.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void operator delete(void* block) noexcept {
    if (!block) return;
    heapInUse.fetch_sub(malloc_usable_size(block), std::memory_order_relaxed);
    std::free(block);
}
#pragma GCC diagnostic pop

void operator delete(void* block, std::size_t) noexcept { operator delete(block); }

namespace {

using namespace drovel::templating;

void renderHostile(benchmark::State& state, const testing::Hostile* hostile) {
    setLogHandler([](std::string_view) {});
    std::string text = hostile->make(static_cast<std::size_t>(state.range(0)));
    Token::Value::Dictionary variables;
    variables.set("a", Token::Value::integer(1));
    for (auto _ : state) {
        auto context = std::make_shared<Context>(variables);
        benchmark::DoNotOptimize(renderTemplate(text, context));
    }
    state.SetComplexityN(state.range(0));
    state.counters["template_bytes"] = static_cast<double>(text.size());
    setLogHandler(nullptr);
}

void renderExpensive(benchmark::State& state, const testing::Expensive* expensive) {
    setLogHandler([](std::string_view) {});
    std::size_t peak = 0;
    for (auto _ : state) {
        std::size_t start = heapInUse.load();
        heapPeak.store(start);
        auto rendering = renderTemplate(expensive->text, std::make_shared<Context>());
        peak = std::max(peak, heapPeak.load() - start);
        if (!rendering.abandoned) state.SkipWithError("not abandoned");
        benchmark::DoNotOptimize(rendering);
    }
    state.counters["peak_heap_MB"] = static_cast<double>(peak) / (1 << 20);
    state.counters["template_bytes"] = static_cast<double>(expensive->text.size());
    setLogHandler(nullptr);
}

const bool registered = [] {
    for (const auto& expensive : testing::expensiveTemplates())
        benchmark::RegisterBenchmark(("expensive/" + std::string(expensive.name)).c_str(), renderExpensive, &expensive)
            ->Unit(benchmark::kMillisecond);
    for (const auto& hostile : testing::hostileTemplates()) {
        std::size_t unit = hostile.make(1).size();
        // From about 16 KB to about 1 MB of template.
        auto first = static_cast<std::int64_t>(std::max<std::size_t>(1, (1 << 14) / unit));
        benchmark::RegisterBenchmark(("hostile/" + std::string(hostile.name)).c_str(), renderHostile, &hostile)
            ->RangeMultiplier(4)
            ->Range(first, first * 64)
            ->Complexity(benchmark::oN)
            ->Unit(benchmark::kMillisecond);
    }
    return true;
}();

}  // namespace

BENCHMARK_MAIN();
