#pragma once

#include <map>
#include <string>

namespace kelvane {

// The location of the repository and the credentials for it.
struct RepositoryPlace {
    std::string location; // A folder, or any other location that restic accepts; may contain a password.
    std::string passwordFile;
    std::string cacheFolder;
    // Additional environment variables for restic, such as access keys of a service.
    std::map<std::string, std::string> environment = {};
    std::string program = "restic";
};

// Returns the location without the scheme "local:", which restic allows before a folder.
[[nodiscard]] std::string withoutScheme(const std::string& location);

// Returns the folder of a local repository, empty for any other. Links in the path are resolved, unless it
// is on a remote file system that does not respond.
[[nodiscard]] std::string localFolderOf(const std::string& location);

// Returns the text without user names and passwords that the location contains.
[[nodiscard]] std::string withoutCredentials(const std::string& location, std::string text);

// Returns the location for the user, without secrets: for a folder on a removable disk the disk's name
// and the folder. Does not access the disk.
[[nodiscard]] std::string destinationText(const std::string& location);

// Creates a file with a random key that only its owner may read, unless the file exists. Returns the
// reason of a failure, empty on success. `isNew` is set to whether the file was created.
[[nodiscard]] std::string ensurePasswordFile(const std::string& path, bool& isNew);

} // namespace kelvane
