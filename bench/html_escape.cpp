// HTML escaping and unescaping throughput on 64 KiB of prose.

#include <benchmark/benchmark.h>

#include <string>

#include "html/HTMLEntities.h"

namespace {

// Typical campaign prose: mostly ASCII, with a few characters that need escaping.
std::string prose(std::string_view paragraph) {
    std::string text;
    while (text.size() < 64 * 1024) text += paragraph;
    text.resize(64 * 1024);
    return text;
}

const std::string kAscii = prose(
    "Pick up your order at the store on Main Street & 5th Avenue before 6 pm. Show the code at the "
    "counter; our staff will have it ready. Members save 10% on \"Summer Essentials\" and it's the "
    "last week of the offer: buy 2 < 3 items > 1 bonus. Questions? Ask any of our friendly team.\n");

const std::string kAccented = prose(
    "Café crème & crêpes: retrait au magasin « Grand-Rue » avant 18 h. Montrez le code à l'accueil; "
    "l'équipe préparera votre commande. Membres : –10 % sur la sélection d'été. Merci ! ");

void escapeText(benchmark::State& state, const std::string& text, bool named) {
    for (auto _ : state) benchmark::DoNotOptimize(drovel::html::htmlEscape(text, false, false, false, named));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}

void unescapeText(benchmark::State& state, const std::string& text) {
    const std::string escaped = drovel::html::htmlEscape(text, false, false, false, true);
    for (auto _ : state) benchmark::DoNotOptimize(drovel::html::htmlUnescape(escaped));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(escaped.size()));
}

void BM_EscapeAscii(benchmark::State& state) { escapeText(state, kAscii, false); }
void BM_EscapeAsciiNamed(benchmark::State& state) { escapeText(state, kAscii, true); }
void BM_EscapeAccented(benchmark::State& state) { escapeText(state, kAccented, false); }
void BM_UnescapeAscii(benchmark::State& state) { unescapeText(state, kAscii); }
void BM_UnescapeAccented(benchmark::State& state) { unescapeText(state, kAccented); }

}  // namespace

BENCHMARK(BM_EscapeAscii);
BENCHMARK(BM_EscapeAsciiNamed);
BENCHMARK(BM_EscapeAccented);
BENCHMARK(BM_UnescapeAscii);
BENCHMARK(BM_UnescapeAccented);

BENCHMARK_MAIN();
