#include "Support/WildcardMatch.h"

#include <benchmark/benchmark.h>
#include <string>

namespace kelvane {
namespace {

// A pattern of 20 "**a" and a "b" against a text of many "a" without a "b": with naive backtracking the
// number of attempts doubles with each letter. Here each row may take at most 2.5 times as long as the row
// above it, which has half the text.
void wildcardOf20DeepStars(benchmark::State& state) {
    std::string pattern;
    for (int i = 0; i < 20; ++i)
        pattern += "**a";
    pattern += 'b';
    const std::string text(static_cast<std::size_t>(state.range(0)), 'a');
    for ([[maybe_unused]] auto step : state)
        benchmark::DoNotOptimize(WildcardMatch(pattern, text));
    state.SetComplexityN(state.range(0));
}
BENCHMARK(wildcardOf20DeepStars)->RangeMultiplier(2)->Range(256, 32768)->Complexity();

// The cost of a typical exclude rule.
void wildcardOfAnExclusion(benchmark::State& state) {
    for ([[maybe_unused]] auto step : state)
        benchmark::DoNotOptimize(WildcardMatch("/Users/*/Library/Caches/**.tmp",
                                               "/Users/bob/Library/Caches/com.example.app/data/a.tmp"));
}
BENCHMARK(wildcardOfAnExclusion);

} // namespace
} // namespace kelvane
