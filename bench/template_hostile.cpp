// Render time of hostile templates at growing sizes, with a linear complexity fit: the engine's
// work grows linearly with the text, and the fitted coefficient is the time per repetition.

#include <benchmark/benchmark.h>

#include "../tests/template/HostileTemplates.h"
#include "template/Log.h"
#include "template/Render.h"

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

const bool registered = [] {
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
