#pragma once

#include "Foundation/Value.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace kelvane {

// Functions for a file that contains a dictionary as a property list and a checksum, so that a flipped bit is
// detected and not read as other settings. May be called from any thread; they block on the disk.

struct CheckedReading {
    enum class State { Missing, Whole, Damaged, Unreadable };
    State state = State::Missing;
    Value value;        // the dictionary, if the file is whole
    std::string reason; // why the file is damaged or unreadable
};

// Reads the dictionary from the entry `name`. A file without a checksum, as earlier versions wrote it, is
// that dictionary itself. A file of more than `limit` bytes counts as damaged.
[[nodiscard]] CheckedReading readCheckedFile(const std::string& path, std::string_view name,
                                             std::size_t limit);

// Replaces the file atomically with mode 0600, and creates its folder if necessary. Returns the reason for a
// failure; empty on success. A file that could not be read with that limit is not written.
[[nodiscard]] std::string replaceCheckedFile(const std::string& path, std::string_view name,
                                             const Value& value, std::size_t limit);

} // namespace kelvane
