#pragma once

#include "Foundation/Value.h"

#include <map>
#include <set>
#include <string>
#include <string_view>

namespace kelvane {

// The parts of the backup that the last verification found to be unrestorable. A value; any thread may
// read one.
struct Damage {
    bool isEverything = false; // It is unknown what is damaged, so everything counts as damaged.
    // Ids, or prefixes of ids, of snapshots that count as damaged as a whole, because they or one of their
    // folders cannot be read.
    std::set<std::string> snapshots;
    // Damaged files, and folders with everything below them, by snapshot id. As in restic's JSON, U+FFFD
    // replaces each byte of a path that is not UTF-8.
    std::map<std::string, std::set<std::string, std::less<>>, std::less<>> paths;

    [[nodiscard]] bool isNone() const { return !isEverything && snapshots.empty() && paths.empty(); }
    // Returns whether the item is damaged. `path` is written as in restic's JSON.
    [[nodiscard]] bool holds(std::string_view snapshotId, std::string_view path) const;

    [[nodiscard]] Value value() const; // The form that is saved in a file.
    [[nodiscard]] static Damage fromValue(const Value& value);

    friend bool operator==(const Damage&, const Damage&) = default;
};

} // namespace kelvane
