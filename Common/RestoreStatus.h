#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// The codes with which `stateChanged:` reports the progress of a restore; panes query the values by the same
// codes.
namespace kelvane::restoreprogress {

inline constexpr std::uint32_t currentFile = 15;     // a string
inline constexpr std::uint32_t currentFileSize = 16; // bytes, unsigned 64-bit
inline constexpr std::uint32_t pendingCount = 35;    // files, signed 64-bit; 0: the restore has ended
inline constexpr std::uint32_t begin = 48;           // has no value to query

[[nodiscard]] constexpr bool isOfRestore(std::uint32_t code) {
    return code == currentFile || code == currentFileSize || code == pendingCount || code == begin;
}

// The kind of the alert that a daemon sends at the end of a restore. Its title is empty.
inline constexpr std::string_view closingAlert = "restore_finished";

} // namespace kelvane::restoreprogress

// A daemon's answers to the status request for a restore job.
namespace kelvane::restorestatus {

inline constexpr std::uint32_t unknown = 0; // no such job, or it ended long ago
inline constexpr std::uint32_t finished = 1;
inline constexpr std::uint32_t incomplete = 2; // ended, but some files were not restored
inline constexpr std::uint32_t cancelled = 3;
inline constexpr std::uint32_t waiting = 50;
inline constexpr std::uint32_t running = 51; // or more

// The priority of a restore that the user starts.
inline constexpr std::uint32_t defaultPriority = 50;

// The ids of the alerts that say why restore jobs wait.
inline constexpr const char* waitAlert = "restore_waits";
inline constexpr const char* listingAlert = "backup_being_listed";

[[nodiscard]] constexpr bool hasEnded(std::uint32_t status) {
    return status < waiting;
}

// Prefix of the profile keys under which the local daemon stores what a job could not restore: one line per
// file with its path and the reason, without control characters. Empty for a job that restored everything.
inline constexpr std::string_view failuresKeyPrefix = "restoreJobFailures.";
[[nodiscard]] inline std::string failuresKey(std::uint32_t job) {
    return std::string(failuresKeyPrefix) + std::to_string(job);
}
[[nodiscard]] inline std::optional<std::uint32_t> jobOfFailuresKey(std::string_view key) {
    if (!key.starts_with(failuresKeyPrefix))
        return std::nullopt;
    std::uint32_t job = 0;
    std::from_chars(key.data() + failuresKeyPrefix.size(), key.data() + key.size(), job);
    return job;
}

} // namespace kelvane::restorestatus
