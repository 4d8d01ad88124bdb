#pragma once

#include <string>

namespace kelvane {

// The path without symbolic links in those of its components that are there. Blocks on the disk.
[[nodiscard]] std::string withoutLinks(const std::string& path);

} // namespace kelvane
