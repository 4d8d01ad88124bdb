#pragma once

#include <cstdint>
#include <string>

namespace kelvane {

// What tells this daemon's snapshots from others' in one repository: 1 to 2^31-1, kept as a text in the file
// at `path`. It is made, once, from the machine, the user and `indexPath`, the beginning of the names of
// indexes, so that two users or two homes of one machine have two. Where there is an index without such a
// file, the machine's own number has been used for it, and stays.
//
// That it cannot be kept is logged. A pane and its web pages see it, so the machine's own identity cannot be
// read from it. Blocks on the disk.
[[nodiscard]] std::uint32_t computerNumber(const std::string& path, const std::string& indexPath);

} // namespace kelvane
