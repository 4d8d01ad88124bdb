#pragma once

#include <cstdint>
#include <string>

namespace kelvane {

// Whether a damaged file is renamed, or also remains under its own name until a new file replaces it, so that
// a reader does not mistake it for one that never existed. Without hard links it is renamed in both cases.
enum class DamagedFile : std::uint8_t { Renamed, Remains };

// Keeps a damaged file as "<path>.damaged", replacing an earlier one, and logs this with the reason. If that
// fails, logs it and returns why; otherwise an empty string. May be called from any thread; blocks on the
// disk.
[[nodiscard]] std::string setAside(const std::string& path, const std::string& reason,
                                   DamagedFile file = DamagedFile::Renamed);

} // namespace kelvane
