#pragma once

#include <string>

namespace kelvane {

// Resolves symbolic links in the components of the path that exist. Blocks on the disk.
[[nodiscard]] std::string withoutLinks(const std::string& path);

} // namespace kelvane
