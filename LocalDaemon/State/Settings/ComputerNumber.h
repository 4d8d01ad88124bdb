#pragma once

#include <cstdint>
#include <string>

namespace kelvane {

struct ComputerNumber {
    std::uint32_t number = 0; // 1 to 2^31-1
    std::string refusal;      // Why there is no number; empty when there is one.
};

// What tells this daemon's snapshots from others' in one repository, kept as a text in the file at `path`,
// with a copy in the folder of the indexes that serves where the first is lost or
// damaged; of two numbers the one written last counts. Where there is neither it is
// made from the machine, the user and `indexPath`, the beginning of the names of
// indexes, so that two users or two homes of one machine have two. The machine's own number, the same at
// every start, is taken where it cannot be kept, and where there is an index already; both are logged. A file
// that cannot be read is left as it is, and refused where there is no copy: with another number the backup
// would begin anew.
//
// A pane and its web pages see it, so the machine's own identity cannot be read from it. Blocks on the disk.
[[nodiscard]] ComputerNumber computerNumber(const std::string& path, const std::string& indexPath);

} // namespace kelvane
