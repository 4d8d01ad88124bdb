#pragma once

#include <string>

namespace kelvane {

// Renames a file that cannot be read to "<path>.damaged", over what was set aside there before, and logs it
// with the reason. False, which is logged as well: it stands where it stood. Any thread; blocks on the disk.
[[nodiscard]] bool setAside(const std::string& path, const std::string& reason);

} // namespace kelvane
