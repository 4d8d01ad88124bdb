#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kelvane {

enum class ItemKind : std::uint8_t { File, Folder, Link };

// One moment's backup in the repository.
struct Snapshot {
    std::string id;        // 64 hexadecimal digits
    std::int64_t time = 0; // seconds since 1970
    // It holds some paths that were wanted at once, and not all that was to be backed up.
    bool isPartial = false;
    // Counts up with each snapshot that this computer makes; 0: it was made before they were counted.
    std::uint64_t sequence = 0;
    std::string parent = {}; // the id of the snapshot that it was compared with; empty: none, or not known

    friend bool operator==(const Snapshot&, const Snapshot&) = default;
};

// What a snapshot says of a file, folder or link.
struct SnapshotItem {
    std::string path; // absolute and clean; what is no UTF-8 in it has become U+FFFD
    ItemKind kind = ItemKind::File;
    std::uint64_t size = 0;
    std::int64_t modified = 0; // nanoseconds since 1970
    std::int64_t changed = 0;  // likewise: also by a rename or a change of owner or mode
    std::uint32_t uid = 0;
    std::uint32_t gid = 0;
};

// The snapshots from the first made to the last, whatever the clock said: those without a sequence number are
// the older ones, each after its parent and else in the order of time; the others by their numbers.
[[nodiscard]] std::vector<Snapshot> inOrderOfCreation(std::vector<Snapshot> snapshots);

} // namespace kelvane
