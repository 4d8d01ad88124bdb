#pragma once

#include <string>

namespace kelvane {

// Remembers, in a file beside the key, which repositories the key has opened: at a location where there
// was one, the daemon does not create another without asking, even when its index is lost. The file
// contains no location, since a location may contain a password: each line is a checksum of the location
// and the repository's id. An unreadable or damaged file counts as one that knows every location.
//
// Any thread; blocks on the disk.
class KnownRepositories {
public:
    explicit KnownRepositories(const std::string& passwordFile) : path_(passwordFile + ".repositories") {}

    [[nodiscard]] bool knows(const std::string& location) const;
    // Does nothing when the repository is already known. A failure is logged.
    void note(const std::string& location, const std::string& repositoryId) const;

private:
    const std::string path_;
};

} // namespace kelvane
