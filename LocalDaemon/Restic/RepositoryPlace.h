#pragma once

#include <map>
#include <string>

namespace kelvane {

// Where the backup is kept, and what it takes to get there.
struct RepositoryPlace {
    std::string location; // a folder, or whatever else restic takes; may hold a password
    std::string passwordFile;
    std::string cacheFolder;
    std::map<std::string, std::string> environment = {}; // more variables for restic: a service's keys
    std::string program = "restic";
};

// A location without the scheme that restic may have in front of a folder, "local:".
[[nodiscard]] std::string withoutScheme(const std::string& location);

// The folder of a repository that is one on this machine; empty: it is elsewhere.
[[nodiscard]] std::string localFolderOf(const std::string& location);

// The text without the names and passwords that the location may contain.
[[nodiscard]] std::string withoutCredentials(const std::string& location, std::string text);

// The location for people, without any secret: of a folder on a disk the name of the disk, and the folder.
// Does not access the disk.
[[nodiscard]] std::string destinationText(const std::string& location);

// Makes a file with a random key, which only its owner may read, unless there is a file. Returns why it could
// not be made; empty when it stands. `isNew` says whether it was made.
[[nodiscard]] std::string ensurePasswordFile(const std::string& path, bool& isNew);

} // namespace kelvane
