#pragma once

#include <string_view>

namespace kelvane::bench {

// What a benchmark may cost at most, as a share of its reference, which is measured in the same run. A
// benchmark with arguments is named with them, "match/2000", and one of its counters behind a colon,
// "match:bytes".
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
