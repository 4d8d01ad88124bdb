#pragma once

#include <string>

namespace kelvane {

// The path without symbolic links in any component; as it is when nothing is there. Blocks on the disk.
[[nodiscard]] std::string withoutLinks(const std::string& path);

} // namespace kelvane
