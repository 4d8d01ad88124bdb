#include "Bench/Budgets.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <map>
#include <optional>
#include <string>

namespace kelvane::bench {
namespace {

using Run = benchmark::BenchmarkReporter::Run;

// Prints results as usual and keeps the best of each benchmark, because other load only adds to a time.
class Results : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            hasFailed_ = hasFailed_ || run.error_occurred;
            if (run.run_type == Run::RT_Iteration && !run.error_occurred)
                keep(run);
        }
        ConsoleReporter::ReportRuns(runs);
    }

    [[nodiscard]] bool hasFailed() const { return hasFailed_; }
    [[nodiscard]] std::optional<double> find(std::string_view name) const {
        const auto found = best_.find(name);
        return found == best_.end() ? std::nullopt : std::optional(found->second);
    }

private:
    void keep(const Run& run) {
        std::string name = run.run_name.function_name;
        if (!run.run_name.args.empty())
            name += '/' + run.run_name.args;
        keep(name, run.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(run.time_unit));
        for (const auto& [counter, value] : run.counters)
            keep(name + ':' + counter, value);
    }
    void keep(const std::string& name, double value) {
        const auto [place, isNew] = best_.try_emplace(name, value);
        place->second = std::min(place->second, value);
    }

    std::map<std::string, double, std::less<>> best_;
    bool hasFailed_ = false;
};

// Returns false when a budget is exceeded. Skips budgets whose benchmark or reference did not run.
bool reportBudgets(const Results& results) {
    bool areKept = true;
    std::printf("\n%-44s %-48s %9s %9s\n", "benchmark", "reference", "ratio", "at most");
    for (const Budget& budget : budgets) {
        const auto value = results.find(budget.name);
        const auto reference = results.find(budget.reference);
        if (!value || !reference)
            continue;
        const double ratio = *value / *reference;
        const bool isKept = ratio <= budget.limit;
        areKept = areKept && isKept;
        std::printf("%-44s %-48s %9.3f %9.3f%s\n", budget.name.data(), budget.reference.data(), ratio,
                    budget.limit, isKept ? "" : "  EXCEEDED");
    }
    return areKept;
}

} // namespace
} // namespace kelvane::bench

// Exit status: 0, 1 when a benchmark has failed, 2 for invalid arguments, 3 when a budget is exceeded.
int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    kelvane::bench::Results results;
    benchmark::RunSpecifiedBenchmarks(&results);
    benchmark::Shutdown();
    const bool areBudgetsKept = kelvane::bench::reportBudgets(results);
    if (results.hasFailed())
        return 1;
    return areBudgetsKept ? 0 : 3;
}
