// Parse+render time of typical notification templates: lexing, parsing with the notification
// context, and joining, as the notification set-up renders each text.

#include <benchmark/benchmark.h>

#include "template/Render.h"

namespace {

using drovel::templating::makeAppContext;
using drovel::templating::render;

const auto& appContext() {
    static const auto context =
        makeAppContext({{"first_name", "ann"}, {"points", "120"}, {"store", "Main St"}, {"tier", "gold"}});
    return context;
}

void renderTemplate(benchmark::State& state, const char* text) {
    const auto& context = appContext();
    for (auto _ : state) benchmark::DoNotOptimize(render(text, context));
    state.counters["renders/s"] = benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

BENCHMARK_CAPTURE(renderTemplate, greeting, "Hi {{ app.first_name }}, your order is ready!");
BENCHMARK_CAPTURE(renderTemplate, points_with_filter,
                  "{{ app.first_name }}, {{ app.points | plus: 50 }} points waiting at {{ app.store }}");
BENCHMARK_CAPTURE(renderTemplate, tier_conditional,
                  "{% if app.tier == 'gold' %}Gold perk: free coffee{% elsif app.tier == 'silver' %}Silver perk"
                  "{% else %}Welcome!{% endif %}");

}  // namespace

BENCHMARK_MAIN();
