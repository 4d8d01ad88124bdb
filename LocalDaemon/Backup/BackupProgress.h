#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>

namespace kelvane {

// How far a backup has come and how fast it is, from what restic prints. restic's count of bytes includes the
// files that have not changed, which it passes without reading them: only what it counts while it passes no
// such file says how fast files are read and saved.
//
// A value without a clock of its own. Times must not go back.
class BackupProgress {
public:
    using Clock = std::chrono::steady_clock;

    // `unchanged`: bytes that restic counts without reading them. `pending`: bytes to save; none: not known.
    BackupProgress(std::uint64_t unchanged, std::optional<std::uint64_t> pending)
        : unchanged_(unchanged), pending_(pending) {}

    void noteUnchangedFile() { hasPassedUnchanged_ = true; }
    void noteSavedFile(std::uint64_t size) { savedFiles_ += size; }
    // `bytes`: as restic counts them.
    void noteStatus(std::uint64_t bytes, Clock::time_point now);

    // At least so many bytes of changed files have been read; also of a file that is not finished.
    [[nodiscard]] std::uint64_t bytesSaved() const;
    // None before it is known.
    [[nodiscard]] std::optional<std::uint64_t> bytesPerSecond() const;
    [[nodiscard]] std::optional<std::uint64_t> secondsLeft() const;

private:
    // Between two statuses.
    struct Sample {
        Clock::time_point end;
        Clock::duration duration;
        std::uint64_t bytes;
    };

    const std::uint64_t unchanged_;
    const std::optional<std::uint64_t> pending_;
    std::uint64_t savedFiles_ = 0; // bytes
    std::uint64_t saved_ = 0;      // bytes, also of files that are not finished
    std::uint64_t counted_ = 0;    // bytes, as restic has counted them
    std::optional<Clock::time_point> lastStatus_;
    bool hasPassedUnchanged_ = false; // since the last status
    bool hadPassedUnchanged_ = false; // before it
    std::deque<Sample> samples_;
};

} // namespace kelvane
