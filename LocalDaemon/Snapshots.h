#pragma once

#include <cstdint>
#include <string>

namespace kelvane {

enum class ItemKind : std::uint8_t { File, Folder, Link };

// One moment's backup in the repository.
struct Snapshot {
    std::string id;        // 64 hexadecimal digits
    std::int64_t time = 0; // seconds since 1970
    // It holds some paths that were wanted at once, and not all that was to be backed up.
    bool isPartial = false;

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

} // namespace kelvane
