#pragma once

#include "LocalDaemon/Index/BackupIndex.h"
#include "Platform/StopSignal.h"

#include <chrono>
#include <functional>
#include <string>
#include <thread>

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

// Looks after a call of restic on a thread of its own: tells what has arrived, and stops the call when
// nothing has come for longer than the patience, when `stop` is set, or when it is asked to. The thread has
// ended when this has.
class ArrivalWatch {
public:
    struct Options {
        std::string stagingFolder;
        const BackupIndex& index;
        const StopSignal& stop;
        // On the watch's thread, when more has come.
        std::function<void(const Arrival&)> onArrival;
        // Also there: nothing has come for a while, or something has again.
        std::function<void(bool isQuiet)> onQuiet = [](bool) {};
        std::chrono::milliseconds patience = std::chrono::minutes(5);
    };
    explicit ArrivalWatch(Options options);
    ~ArrivalWatch();
    ArrivalWatch(const ArrivalWatch&) = delete;
    ArrivalWatch& operator=(const ArrivalWatch&) = delete;

    [[nodiscard]] const StopSignal& callStop() const { return callStop_; }
    void stopCall() { callStop_.set(); }

private:
    void watch();

    const Options options_;
    StopSignal callStop_;
    StopSignal ended_;
    std::thread thread_;
};

} // namespace kelvane
