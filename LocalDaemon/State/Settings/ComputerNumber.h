#pragma once

#include <cstdint>
#include <string>

namespace kelvane {

struct ComputerNumber {
    std::uint32_t number = 0; // 1 to 2^31-1
    std::string refusal;      // Why there is no number; empty when there is one.
};

// Returns the number that distinguishes this daemon's snapshots from others' in a shared repository. It is
// kept as text in the file at `path`, with a copy in the folder of the indexes, which is used when the file
// is lost or damaged; if they differ, the one written last counts. Without either, the number is derived
// from the machine, the user and `indexPath`, the prefix of the names of index files, so that two users or
// two homes of one machine have different numbers. The machine's own number, the same at every start, is
// used when the number cannot be saved, and when there is an index already; both are logged. A file that
// cannot be read is not changed, and without a copy there is no number: with another one the backup would
// start from scratch.
//
// Panes and their web pages see the number, so it does not reveal the machine's own identity. Blocks on the
// disk.
[[nodiscard]] ComputerNumber computerNumber(const std::string& path, const std::string& indexPath);

} // namespace kelvane
