#pragma once

#include "LocalDaemon/Restic/Snapshots.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// restic's JSON has U+FFFD for each byte of a name that is not UTF-8, so that several names may look alike in
// it. Its plain listing and the disk have the names themselves.

// As restic's JSON has it.
[[nodiscard]] std::string nameInResticJson(std::string_view name);
// Whether bytes may have been lost.
[[nodiscard]] bool mayHaveLostBytes(std::string_view nameInJson);

// What is on the disk at a path of restic's JSON: several when their names look alike there, none when it has
// gone. Blocks on the disk.
[[nodiscard]] std::vector<std::string> pathsOnDisk(const std::string& pathInJson);

// Corrects the paths of a listing in JSON, line by line, from the plain listing of the same snapshot. Both
// come in the same order.
class PlainListing {
public:
    // `headerLines` is how many lines stand before the first path. `items` are all that JSON lists.
    PlainListing(std::vector<SnapshotItem>& items, std::size_t headerLines)
        : items_(items), headerLines_(headerLines) {}

    void take(std::string_view line);
    // Whether both listings hold the same.
    [[nodiscard]] bool isWhole() const { return isSame_ && next_ == items_.size(); }

private:
    std::vector<SnapshotItem>& items_;
    std::size_t headerLines_;
    std::size_t next_ = 0;
    std::string path_; // of the next one, as far as its lines have come: a name may hold line breaks
    std::size_t lineCount_ = 0;
    bool isSame_ = true;
};

} // namespace kelvane
