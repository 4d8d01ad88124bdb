#pragma once

#include "Foundation/Value.h"
#include "LocalDaemon/Restic/RepositoryPlace.h"
#include "Platform/Files/Volumes.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace kelvane {

// What the user who runs the daemon has configured; panes can only read it.
struct Configuration {
    std::string serverURL = "localhost";
    std::string userEmail;
    std::uint32_t computerNumber = 0; // Also identifies this computer's snapshots in a shared repository.
    std::uint32_t quotaMB = 0;        // 0 for no limit.
    std::string home;                 // The folder that automatic mode backs up.
    // Wildcard patterns of the exclusion policy: real paths that end in "/" or an asterisk. The user can
    // include single paths again.
    std::vector<std::string> policy;
    std::vector<std::string> volumes = {}; // Additional folders that automatic mode backs up.
    RepositoryPlace repository = {};       // The location is empty when the configured one is invalid.
    std::chrono::minutes interval{15};     // From the end of a backup to the start of the next one.
    // How long deleted and excluded files are kept in the backup.
    std::chrono::days keep{30};
    // Files that a backup itself changes, which would always be pending; excluded like the policy.
    std::set<std::string, std::less<>> ownFiles = {};
};

// The defaults of the configuration: absolute paths.
struct ConfigurationDefaults {
    std::string home;
    RepositoryPlace repository;
    // The files and folders of the daemon itself, in addition to the repository, which is always one of them.
    std::set<std::string, std::less<>> ownFiles = {};
    std::uint32_t computerNumber = 1;
};
[[nodiscard]] ConfigurationDefaults usualDefaults();

// Reads a property list, binary or XML. A missing file is not an error. A file that cannot be read and an
// invalid entry are logged, and the defaults apply; but if the file or the entry `repository` is unusable,
// the repository has no location. Entries of `overrides` precede those of the file.
//
//   homeFolder, volumes              absolute paths; links are resolved where the folders exist
//   repository                       an absolute path or another location that restic supports, such as
//                                    "sftp:joe@host:/backup"
//   passwordFile, resticProgram      absolute paths
//   environment                      strings: environment variables of restic
//   intervalMinutes, keepDays        1 and up
//   quotaMB                          0 for no limit
//   userEmail, serverURL             strings
//   computerNumber                   1 and up; by default that of the defaults
//   policyExcludeList                real or volume paths as in `policy`; by default caches, trash, temporary
//                                    files and the kernel's virtual file systems
[[nodiscard]] Configuration readConfiguration(const std::string& path, const ConfigurationDefaults& defaults,
                                              const Volumes& volumes, const Dictionary& overrides = {});

// Returns why the first invalid entry is invalid, for the user; empty when all are valid.
[[nodiscard]] std::string faultIn(const Dictionary& entries, const Volumes& volumes);

// Returns a policy pattern as panes know it: with its volume's name and the trailing separator.
[[nodiscard]] std::string volumePattern(const std::string& pattern, const Volumes& volumes);

} // namespace kelvane
