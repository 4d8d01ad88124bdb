#pragma once

#include "LocalDaemon/Restic/Snapshots.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// In restic's JSON, U+FFFD replaces each byte of a name that is not UTF-8, so several names may look
// alike in it. restic's plain listing has the original names.

// Returns the name as restic's JSON has it.
[[nodiscard]] std::string nameInResticJson(std::string_view name);
// Returns whether the name may have lost bytes in JSON.
[[nodiscard]] bool mayHaveLostBytes(std::string_view nameInJson);

// Returns the paths on the disk that look like this one in restic's JSON: several when their names look
// alike, none when no such item exists. A path that has lost no bytes is returned unchecked. Blocks on the
// disk.
[[nodiscard]] std::vector<std::string> pathsOnDisk(const std::string& pathInJson);

// Corrects the paths of a JSON listing line by line from the plain listing of the same snapshot. Both
// have the same order.
class PlainListing {
public:
    // `headerLines` is the number of lines before the first path. `items` is everything that the JSON
    // listing has.
    PlainListing(std::vector<SnapshotItem>& items, std::size_t headerLines)
        : items_(items), headerLines_(headerLines) {}

    void take(std::string_view line);
    // Returns whether both listings have the same items.
    [[nodiscard]] bool isWhole() const { return isSame_ && next_ == items_.size(); }

private:
    std::vector<SnapshotItem>& items_;
    std::size_t headerLines_;
    std::size_t next_ = 0;
    std::string path_; // The lines read so far of the next path, since a name may contain line breaks.
    std::size_t lineCount_ = 0;
    bool isSame_ = true;
};

} // namespace kelvane
