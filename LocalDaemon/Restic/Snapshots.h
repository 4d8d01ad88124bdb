#pragma once

#include <compare>
#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kelvane {

// As restic writes ids and checksums.
inline constexpr std::string_view hexDigits = "0123456789abcdef";
[[nodiscard]] constexpr bool isHexadecimal(std::string_view text) {
    return text.find_first_not_of(hexDigits) == std::string_view::npos;
}

enum class ItemKind : std::uint8_t { File, Folder, Link };

// One moment's backup in the repository.
struct Snapshot {
    std::string id;        // 64 hexadecimal digits
    std::int64_t time = 0; // seconds since 1970
    // It holds less than was to be backed up: some paths that were wanted at once, or all but a disk that was
    // away or saved files that could not be read. What it lacks does not count as deleted.
    bool isPartial = false;
    // Counts up with each snapshot that this computer makes; 0: it was made before they were counted.
    std::uint64_t sequence = 0;
    std::string parent = {}; // the id of the snapshot that it was compared with; empty: none, or not known
    // The paths that it lacks, with all below them, without their having been deleted; of a complete one
    // those that went while it was made, perhaps to a place that had been read. Empty of a partial one: not
    // known.
    std::vector<std::string> lacks = {};
    std::string tree = {}; // the id of its contents; empty: not known, as of those that the index keeps

    // Whether what was at the path, or some of it, would be in this snapshot if it had been on the disk.
    [[nodiscard]] bool tellsOf(std::string_view path) const;

    friend bool operator==(const Snapshot&, const Snapshot&) = default;
};

// A time of a file. Seconds and nanoseconds stand apart, since 64 bits of nanoseconds end in 2262, and the
// seconds in two halves, so that a time takes twelve bytes: an index holds two for each file.
class FileTime {
public:
    constexpr FileTime() = default;
    // Since 1970; `nanoseconds` is below 1,000,000,000, also before 1970.
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

// Of the last status change of a file that may have changed once more without another time: no file on a disk
// has such a time, so that it counts as changed.
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

// restic keeps times of the years 0 to 9999: of a time beyond these the first or last of them, with the same
// month and day. Whether a saved time is in one of the two.
[[nodiscard]] constexpr bool isAtEndOfKeptTimes(FileTime saved) {
    constexpr std::int64_t beginOfYear1 = -62135596800;
    constexpr std::int64_t beginOfYear9999 = 253370764800;
    return saved.seconds() < beginOfYear1 || saved.seconds() >= beginOfYear9999;
}

// What a snapshot says of a file, folder or link.
struct SnapshotItem {
    std::string path; // absolute and clean, byte for byte as on the disk
    ItemKind kind = ItemKind::File;
    std::uint64_t size = 0;
    FileTime modified = {};
    FileTime changed = {}; // also by a rename or a change of owner or mode
    std::uint32_t uid = 0;
    std::uint32_t gid = 0;
    std::uint16_t mode = 0; // the permissions, with setuid, setgid and sticky
};

// The snapshots from the first made to the last, whatever the clock said: those without a sequence number are
// the older ones, each after its parent and else in the order of time; the others by their numbers.
[[nodiscard]] std::vector<Snapshot> inOrderOfCreation(std::vector<Snapshot> snapshots);

} // namespace kelvane
