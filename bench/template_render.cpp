// Parse+render time of typical notification templates: lexing, parsing with the notification
// context, and joining, as the notification set-up renders each text.

#include <benchmark/benchmark.h>

#include "template/Render.h"

namespace {

using drovel::templating::makeAppContext;
using drovel::templating::render;

const auto& appContext() {
    static const auto context =
        makeAppContext({{"first_name", "ann"}, {"points", "120"}, {"store", "Main St"}, {"tier", "gold"},
                        {"visits", "4"}, {"promo", "Two for one on all salads today"}, {"url", "https://ex.com/a b?c=d"}});
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
BENCHMARK_CAPTURE(renderTemplate, filters_in_text,
                  "{{ app.first_name | capitalize }}, {{ app.points | plus: 50 }} points waiting at "
                  "{{ app.store | upcase }}");
BENCHMARK_CAPTURE(renderTemplate, tier_perks,
                  "{% if app.tier == 'gold' %}Gold perk: free coffee{% elsif app.tier == 'silver' %}Silver perk: 10% off"
                  "{% else %}Welcome!{% endif %}");
BENCHMARK_CAPTURE(renderTemplate, visit_loop,
                  "{% assign n = app.visits | plus: 1 %}Visit #{{ n }}: {% for i in (1..3) %}{{ i }}"
                  "{% unless forloop.last %}, {% endunless %}{% endfor %}");
BENCHMARK_CAPTURE(renderTemplate, promo_and_url,
                  "{{ app.promo | default: 'Deals inside' | truncate: 20 }} - {{ app.url | url_encode }}");

}  // namespace

BENCHMARK_MAIN();
