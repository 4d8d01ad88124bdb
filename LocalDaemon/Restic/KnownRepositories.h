#pragma once

#include <string>

namespace kelvane {

// Which repositories a key has opened, in a file beside the key: where one has been, no other is made without
// a question, also when the index that knows of it is lost. The file names no place, since that may hold a
// password: each line is a checksum of the place and the repository's id. One that cannot be read, or is
// damaged, counts as one that knows every place.
//
// Any thread; blocks on the disk.
class KnownRepositories {
public:
    explicit KnownRepositories(const std::string& passwordFile) : path_(passwordFile + ".repositories") {}

    [[nodiscard]] bool knows(const std::string& location) const;
    // Does nothing when it is known already. A failure is logged.
    void note(const std::string& location, const std::string& repositoryId) const;

private:
    const std::string path_;
};

} // namespace kelvane
