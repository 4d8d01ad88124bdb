#pragma once

#include <string_view>

namespace kelvane::bench {

// The maximum cost of a benchmark, as a ratio to its reference in the same run. Benchmarks with arguments are
// named like "match/2000", and counters like "match:bytes".
struct Budget {
    std::string_view name;
    std::string_view reference;
    double limit = 0;
};

inline constexpr Budget budgets[] = {
    {"callServiceState", "pingPongServiceState", 1.5},
    {"callDaemonState", "pingPongDaemonState", 1.5},
    {"readFileDictionaries", "readFileDictionariesByLibplist", 0.2},
    {"writeFileDictionaries", "writeFileDictionariesByPython", 0.05},
    {"fileNodesOf100000Dictionaries:bytesPerNode", "fileNodesOf100000Dictionaries:dictionaryBytes", 2},
    {"backupColumnIsFilled/10000", "backupColumnBare/10000", 3},
    {"wildcardOf20DeepStars/32768", "wildcardOf20DeepStars/16384", 2.5},
};

} // namespace kelvane::bench
