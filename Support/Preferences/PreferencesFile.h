#pragma once

#include "Foundation/Value.h"

#include <string>
#include <string_view>

namespace kelvane {

// The file of the preferences domain: a dictionary as a binary property list, which several processes share.
//
// Readers need no lock, because the file is always replaced atomically. A writer locks a second file beside
// it, since a lock on the replaced file would protect nothing, reads the file again and changes one key, so
// that processes do not overwrite each other's changes.
//
// Any thread may call it. It blocks on the disk, and for at most two seconds on another writer.
class PreferencesFile {
public:
    explicit PreferencesFile(std::string path) : path_(std::move(path)) {}

    enum class Content {
        Read,
        Absent,     // there is no file
        Damaged,    // the file can be read but does not contain a dictionary
        Unreadable, // no permission, a link, a folder, or far too large: must not be replaced
    };
    struct Reading {
        Content content;
        Dictionary entries = {};
        std::string error = {};
        std::string damage = {}; // of a damaged one: the error without the path
    };
    [[nodiscard]] Reading read() const;

    struct Writing {
        std::string error;          // empty when it succeeded
        bool isValueAtFault = true; // writing another key may succeed
    };
    // Sets one key. `entries` has the contents of the file that the caller knows, and receives the new ones.
    // A damaged file is renamed to "<path>.damaged" and created again from `entries`. On failure the file and
    // `entries` do not change.
    [[nodiscard]] Writing set(std::string_view key, const Value& value, Dictionary& entries) const;

private:
    [[nodiscard]] Writing setLocked(std::string_view key, const Value& value, Dictionary& entries) const;

    std::string path_;
};

} // namespace kelvane
