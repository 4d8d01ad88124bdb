#include "LocalDaemon/Backup/BackupProgress.h"

#include <algorithm>
#include <utility>

namespace kelvane {
namespace {

using namespace std::chrono_literals;

constexpr auto window = 30s; // The speed is averaged over this time.
constexpr auto leastTime = 3s;

} // namespace

// restic prints an unchanged file before it counts its bytes, which may therefore be counted one status
// later: an interval is a sample only if neither it nor the one before has such a file.
void BackupProgress::noteStatus(std::uint64_t bytes, Clock::time_point now) {
    const std::uint64_t added = bytes - std::min(bytes, std::exchange(counted_, bytes));
    const auto since = std::exchange(lastStatus_, now);
    const bool hasPassed = std::exchange(hasPassedUnchanged_, false);
    const bool hadPassed = std::exchange(hadPassedUnchanged_, hasPassed);
    if (since && !hasPassed && !hadPassed) {
        saved_ += added;
        samples_.push_back({now, now - *since, added});
    }
    saved_ = std::max(saved_, savedFiles_);
    while (!samples_.empty() && samples_.front().end <= now - window)
        samples_.pop_front();
}

std::uint64_t BackupProgress::bytesSaved() const {
    return std::max({saved_, savedFiles_, counted_ - std::min(counted_, unchanged_)});
}

std::optional<std::uint64_t> BackupProgress::bytesPerSecond() const {
    Clock::duration duration{};
    std::uint64_t bytes = 0;
    for (const Sample& sample : samples_) {
        duration += sample.duration;
        bytes += sample.bytes;
    }
    if (duration < leastTime)
        return std::nullopt;
    return static_cast<std::uint64_t>(static_cast<double>(bytes) /
                                      std::chrono::duration<double>(duration).count());
}

std::optional<std::uint64_t> BackupProgress::secondsLeft() const {
    const std::uint64_t speed = bytesPerSecond().value_or(0);
    const std::uint64_t left = pending_.value_or(0) - std::min(pending_.value_or(0), bytesSaved());
    if (speed == 0 || left == 0)
        return std::nullopt;
    return (left - 1) / speed + 1;
}

} // namespace kelvane
