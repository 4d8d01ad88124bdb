#pragma once

#include "Foundation/Value.h"

#include <map>
#include <set>
#include <string>
#include <string_view>

namespace kelvane {

// What of the backup cannot be given back, as far as the last verification has found out. A value; any thread
// may read one.
struct Damage {
    bool isEverything = false; // nobody can tell what is whole
    // Ids of snapshots, or their beginnings, of which nothing can be read for certain.
    std::set<std::string> snapshots;
    // By the id of a snapshot: files, and folders with all that is in them. restic's JSON has U+FFFD for each
    // byte that is not UTF-8, and so have these paths.
    std::map<std::string, std::set<std::string, std::less<>>, std::less<>> paths;

    [[nodiscard]] bool isNone() const { return !isEverything && snapshots.empty() && paths.empty(); }
    // `path` as restic's JSON writes it.
    [[nodiscard]] bool holds(std::string_view snapshotId, std::string_view path) const;

    [[nodiscard]] Value value() const; // for a file
    [[nodiscard]] static Damage fromValue(const Value& value);

    friend bool operator==(const Damage&, const Damage&) = default;
};

} // namespace kelvane
