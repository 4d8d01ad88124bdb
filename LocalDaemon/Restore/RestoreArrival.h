#pragma once

#include "LocalDaemon/Index/BackupIndex.h"

#include <chrono>
#include <functional>
#include <string>

namespace kelvane {

// What restic has brought so far; it says nothing of that itself. A file has its size from the beginning
// where the disk can give it the room at once.
struct Arrival {
    std::uint64_t files = 0; // that are as large as they should be
    std::uint64_t bytes = 0;
    std::string newestFile; // its name
    std::uint64_t newestSize = 0;
    FileTime lastChange; // of any file

    friend bool operator==(const Arrival&, const Arrival&) = default;
};
[[nodiscard]] Arrival arrivalIn(const std::string& stagingFolder, const BackupIndex& index);

// Follows a call of restic by what arrives in its staging folder. Belongs to the thread that makes the call.
class ArrivalWatch {
public:
    struct Options {
        std::string stagingFolder;
        const BackupIndex& index;
        std::function<void(const Arrival&)> onArrival; // when more has come
        // Nothing has come for a while, or something has again.
        std::function<void(bool isQuiet)> onQuiet = [](bool) {};
        std::chrono::milliseconds patience = std::chrono::minutes(5);
    };
    explicit ArrivalWatch(Options options);

    // For the call's ticks. Tells what has arrived since the last one; false when nothing has for longer than
    // the patience.
    [[nodiscard]] bool look();
    static constexpr std::chrono::milliseconds interval{500};

private:
    using Clock = std::chrono::steady_clock;

    const Options options_;
    Arrival last_;
    Clock::time_point lastArrival_ = Clock::now();
    Clock::time_point nextLook_;
    bool isQuiet_ = false;
};

} // namespace kelvane
