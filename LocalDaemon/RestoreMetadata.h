#pragma once

#include <string>

namespace kelvane {

// Gives one folder the mode, owner, times and extended attributes of another. An owner that only root may
// give stays as it is. Empty, or why it failed. Blocks on the disk.
[[nodiscard]] std::string copyFolderMetadata(const std::string& from, const std::string& to);

} // namespace kelvane
