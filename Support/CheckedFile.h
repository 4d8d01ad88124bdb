#pragma once

#include "Foundation/Value.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace kelvane {

// A file that keeps a dictionary as a property list, with a checksum: where a bit of it is wrong it counts as
// damaged, instead of saying something else. Any thread; the calls block on the disk.

struct CheckedReading {
    enum class State { Missing, Whole, Damaged, Unreadable };
    State state = State::Missing;
    Value value;        // a dictionary when it is whole
    std::string reason; // of the last two
};

// `name`: of the entry that holds the dictionary. Files of versions without a checksum are that dictionary
// itself, and are read as well. More than `limit` bytes count as damaged.
[[nodiscard]] CheckedReading readCheckedFile(const std::string& path, std::string_view name,
                                             std::size_t limit);

// Replaces the file as a whole, for its owner alone, and makes its folder if need be. Returns why it failed;
// empty: it did not.
[[nodiscard]] std::string replaceCheckedFile(const std::string& path, std::string_view name,
                                             const Value& value);

} // namespace kelvane
