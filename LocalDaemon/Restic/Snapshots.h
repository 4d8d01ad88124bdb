#pragma once

#include <compare>
#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kelvane {

// The digits in restic's ids and checksums.
inline constexpr std::string_view hexDigits = "0123456789abcdef";
[[nodiscard]] constexpr bool isHexadecimal(std::string_view text) {
    return text.find_first_not_of(hexDigits) == std::string_view::npos;
}

enum class ItemKind : std::uint8_t { File, Folder, Link };

// One snapshot in the repository.
struct Snapshot {
    std::string id;        // 64 hexadecimal digits
    std::int64_t time = 0; // seconds since 1970
    // The snapshot does not contain everything that is selected: it was made of some paths only, or a
    // disk was not mounted, or saved files could not be read. What it lacks does not count as deleted.
    bool isPartial = false;
    // Increases with each snapshot that this computer makes; 0 for a snapshot of an older version
    // without numbers.
    std::uint64_t sequence = 0;
    // The id of the snapshot that it was compared with; empty when there was none or it is unknown.
    std::string parent = {};
    // The paths that it lacks, with everything below them, although they may not have been deleted. For
    // a complete snapshot, those that disappeared while it was made, perhaps into a folder that had
    // already been read. Empty for a partial snapshot means unknown.
    std::vector<std::string> lacks = {};
    // The id of its root tree; empty when unknown, as for snapshots loaded from the index.
    std::string tree = {};

    // Returns whether items at or below the path would be in this snapshot if they had existed.
    [[nodiscard]] bool tellsOf(std::string_view path) const;

    friend bool operator==(const Snapshot&, const Snapshot&) = default;
};

// A file's time. Nanoseconds since 1970 in 64 bits would end in 2262, so seconds and nanoseconds are
// separate, and the seconds are stored in two halves so that a time takes twelve bytes: an index has two
// of them for each file.
class FileTime {
public:
    constexpr FileTime() = default;
    // Seconds since 1970; `nanoseconds` is below 1,000,000,000, also for times before 1970.
    constexpr explicit FileTime(std::int64_t seconds, std::uint32_t nanoseconds = 0)
        : low_(static_cast<std::uint32_t>(seconds)),
          high_(static_cast<std::int32_t>(seconds >> 32U)),
          nanoseconds_(nanoseconds) {}
    constexpr explicit FileTime(const timespec& time)
        : FileTime(time.tv_sec, static_cast<std::uint32_t>(time.tv_nsec)) {}

    [[nodiscard]] constexpr std::int64_t seconds() const {
        return static_cast<std::int64_t>(high_) * (std::int64_t{1} << 32U) + low_;
    }
    [[nodiscard]] constexpr std::uint32_t nanoseconds() const { return nanoseconds_; }
    [[nodiscard]] constexpr timespec asTimespec() const { return {seconds(), nanoseconds_}; }

    friend constexpr auto operator<=>(const FileTime& left, const FileTime& right) {
        return std::pair(left.seconds(), left.nanoseconds_) <=>
               std::pair(right.seconds(), right.nanoseconds_);
    }
    friend constexpr bool operator==(const FileTime&, const FileTime&) = default;

private:
    std::uint32_t low_ = 0;
    std::int32_t high_ = 0;
    std::uint32_t nanoseconds_ = 0;
};

// Marks the inode change time (ctime) of a file that may have changed again within the same clock tick. No
// file has such a time, so the file counts as changed.
inline constexpr std::uint32_t uncertainBit = std::uint32_t{1} << 31U;
[[nodiscard]] constexpr FileTime asUncertain(FileTime time) {
    return FileTime(time.seconds(), time.nanoseconds() | uncertainBit);
}
[[nodiscard]] constexpr FileTime asCertain(FileTime time) {
    return FileTime(time.seconds(), time.nanoseconds() & ~uncertainBit);
}
[[nodiscard]] constexpr bool isUncertain(FileTime time) {
    return (time.nanoseconds() & uncertainBit) != 0;
}

// Returns whether a saved time is in the first or the last year that restic keeps. restic keeps the
// years 0 to 9999 and moves any other time into the nearer of the two, with the same month and day.
[[nodiscard]] constexpr bool isAtEndOfKeptTimes(FileTime saved) {
    constexpr std::int64_t beginOfYear1 = -62135596800;
    constexpr std::int64_t beginOfYear9999 = 253370764800;
    return saved.seconds() < beginOfYear1 || saved.seconds() >= beginOfYear9999;
}

// A file, folder or link as a snapshot lists it.
struct SnapshotItem {
    std::string path; // Absolute and clean, with the same bytes as on the disk.
    ItemKind kind = ItemKind::File;
    std::uint64_t size = 0;
    FileTime modified = {};
    // The inode change time (ctime), which renaming and a change of owner or mode also update.
    FileTime changed = {};
    std::uint32_t uid = 0;
    std::uint32_t gid = 0;
    std::uint16_t mode = 0; // The permissions, with setuid, setgid and sticky bits.
};

// Returns the snapshots in the order of their creation, whatever the clock said: first those without a
// sequence number, each after its parent and otherwise by time, then the others by number.
[[nodiscard]] std::vector<Snapshot> inOrderOfCreation(std::vector<Snapshot> snapshots);

} // namespace kelvane
