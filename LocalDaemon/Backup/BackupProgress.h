#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>

namespace kelvane {

// The progress and speed of a backup, from restic's output. restic's byte count includes unchanged
// files, which it skips without reading them: only intervals without such a file show how fast files are
// read and saved.
//
// A value without a clock of its own. Times must not go back.
class BackupProgress {
public:
    using Clock = std::chrono::steady_clock;

    // `unchanged`: bytes that restic counts without reading them. `pending`: bytes to save; none when
    // unknown.
    BackupProgress(std::uint64_t unchanged, std::optional<std::uint64_t> pending)
        : unchanged_(unchanged), pending_(pending) {}

    void noteUnchangedFile() { hasPassedUnchanged_ = true; }
    void noteSavedFile(std::uint64_t size) { savedFiles_ += size; }
    // `bytes`: the count that restic prints.
    void noteStatus(std::uint64_t bytes, Clock::time_point now);

    // Returns a lower bound of the bytes read from changed files, including unfinished ones.
    [[nodiscard]] std::uint64_t bytesSaved() const;
    // None while unknown, as in the first seconds or while only unchanged files pass.
    [[nodiscard]] std::optional<std::uint64_t> bytesPerSecond() const;
    [[nodiscard]] std::optional<std::uint64_t> secondsLeft() const;

private:
    // The interval between two statuses.
    struct Sample {
        Clock::time_point end;
        Clock::duration duration;
        std::uint64_t bytes;
    };

    const std::uint64_t unchanged_;
    const std::optional<std::uint64_t> pending_;
    std::uint64_t savedFiles_ = 0; // In bytes.
    std::uint64_t saved_ = 0;      // In bytes, including unfinished files.
    std::uint64_t counted_ = 0;    // In bytes, as restic has counted them.
    std::optional<Clock::time_point> lastStatus_;
    bool hasPassedUnchanged_ = false; // Since the last status.
    bool hadPassedUnchanged_ = false; // In the interval that the last status ended.
    std::deque<Sample> samples_;
};

} // namespace kelvane
