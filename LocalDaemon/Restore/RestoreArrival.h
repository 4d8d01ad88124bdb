#pragma once

#include "LocalDaemon/Index/BackupIndex.h"

#include <chrono>
#include <functional>
#include <string>

namespace kelvane {

// The files that restic has restored so far, which restic does not report itself. A file counts before its
// contents have arrived if its space could be allocated at once, which gives it its full size.
struct Arrival {
    std::uint64_t files = 0; // Files of full size.
    std::uint64_t bytes = 0;
    std::string newestFile; // The name of the newest file.
    std::uint64_t newestSize = 0;
    FileTime lastChange; // The latest change of any file.

    friend bool operator==(const Arrival&, const Arrival&) = default;
};
[[nodiscard]] Arrival arrivalIn(const std::string& stagingFolder, const BackupIndex& index);

// Follows a restic call by the files in its staging folder. Belongs to the thread that makes the call.
class ArrivalWatch {
public:
    struct Options {
        std::string stagingFolder;
        const BackupIndex& index;
        std::function<void(const Arrival&)> onArrival; // Called when more data has arrived.
        // Called with true when nothing has arrived for half a minute, with false when data arrives again.
        std::function<void(bool isQuiet)> onQuiet = [](bool) {};
        std::chrono::milliseconds stallTimeout = std::chrono::minutes(5);
    };
    explicit ArrivalWatch(Options options);

    // Call this from the restic call's `onTick`. Calls `onArrival` if more data has arrived. Returns false
    // when nothing has arrived for longer than `stallTimeout`.
    [[nodiscard]] bool poll();
    static constexpr std::chrono::milliseconds interval{500};

private:
    using Clock = std::chrono::steady_clock;

    const Options options_;
    Arrival last_;
    Clock::time_point lastArrival_ = Clock::now();
    Clock::time_point nextPoll_;
    bool isQuiet_ = false;
};

} // namespace kelvane
