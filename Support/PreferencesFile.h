#pragma once

#include "Foundation/Value.h"

#include <string>
#include <string_view>

namespace kelvane {

// The file that keeps the preferences domain: one dictionary as a binary property list, shared with other
// processes.
//
// A reader needs no lock, because the file is only ever replaced as a whole. A writer locks a second file
// beside it (a lock on the file that is replaced would guard nothing), reads again, and changes one key: two
// processes lose nothing of each other. Any thread; blocks on the disk, and on another writer for at most two
// seconds.
class PreferencesFile {
public:
    explicit PreferencesFile(std::string path) : path_(std::move(path)) {}

    enum class Content {
        Read,
        Absent,     // there is no file
        Damaged,    // a file of ours to read, but what it holds is no dictionary
        Unreadable, // not permitted, a link, a folder, far too large: nothing that may be replaced
    };
    struct Reading {
        Content content;
        Dictionary entries;
        std::string error;
    };
    [[nodiscard]] Reading read() const;

    struct Writing {
        std::string error;          // empty when it succeeded
        bool isValueAtFault = true; // another key may fare better
    };
    // Sets one key. `entries` is what the caller knows of the file: afterwards what the file holds now. A
    // damaged file is kept beside as "<path>.damaged" and made anew from `entries`. When it fails, the file
    // and `entries` are as they were.
    [[nodiscard]] Writing set(std::string_view key, const Value& value, Dictionary& entries) const;

private:
    [[nodiscard]] Writing setLocked(std::string_view key, const Value& value, Dictionary& entries) const;
    [[nodiscard]] bool keepDamaged(const std::string& reason) const;

    std::string path_;
};

} // namespace kelvane
