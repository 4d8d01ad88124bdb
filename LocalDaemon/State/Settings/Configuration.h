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

// The configuration by the user who runs the daemon; panes can only read it.
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
    // In addition to the repository, which is always one of them.
    std::set<std::string, std::less<>> ownFiles = {};
    std::uint32_t computerNumber = 1;
};
[[nodiscard]] ConfigurationDefaults usualDefaults();

// The file is a property list in either form. None is no fault; one that cannot be read, and an entry that
// makes no sense, is logged, and such an entry has its default; the repository then has no place. Entries of
// `overrides` come before the file's.
//
//   homeFolder, volumes              absolute paths; links are resolved as far as the folders are there
//   repository                       an absolute path or what else restic takes, "sftp:joe@host:/backup"
//   passwordFile, resticProgram      absolute paths
//   environment                      texts: what restic finds in its environment
//   intervalMinutes, keepDays        1 and up
//   quotaMB                          0: no limit
//   userEmail, serverURL             texts
//   computerNumber                   1 and up; by default that of the defaults
//   policyExcludeList                real or volume paths as in `policy`; by default caches, trash, temporary
//                                    files and what the kernel makes up
[[nodiscard]] Configuration readConfiguration(const std::string& path, const ConfigurationDefaults& defaults,
                                              const Volumes& volumes, const Dictionary& overrides = {});

// Returns why the first invalid entry is invalid, for the user; empty when all are valid.
[[nodiscard]] std::string faultIn(const Dictionary& entries, const Volumes& volumes);

// Returns a policy pattern as panes know it: with its volume's name and the trailing separator.
[[nodiscard]] std::string volumePattern(const std::string& pattern, const Volumes& volumes);

} // namespace kelvane
