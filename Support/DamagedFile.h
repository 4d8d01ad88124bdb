#pragma once

#include <string>

namespace kelvane {

// Renames a damaged file to "<path>.damaged", replacing an earlier one, and logs this with the reason. If
// that fails, logs it and returns false. May be called from any thread; blocks on the disk.
[[nodiscard]] bool setAside(const std::string& path, const std::string& reason);

} // namespace kelvane
