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

// What the person who runs the daemon has laid down; panes only read it.
struct Configuration {
    std::string serverURL = "localhost";
    std::string userEmail;
    std::uint32_t computerNumber = 0; // also tells this computer's snapshots from others in the repository
    std::uint32_t quotaMB = 0;        // 0: no limit
    std::string home;                 // what automatic mode backs up
    // Wildcard patterns of what is never backed up unless a person adds it: real paths that end in "/" or a
    // star.
    std::vector<std::string> policy;
    std::vector<std::string> volumes = {}; // further folders that automatic mode backs up
    RepositoryPlace repository = {};       // an empty location: the one that was given makes no sense
    std::chrono::minutes interval{15};     // from the end of a backup to the next one
    // For so long the backup keeps what has gone from the disk or from the selection.
    std::chrono::days keep{30};
    // What a backup itself changes, and which would never be backed up as it is: left out as by the policy.
    std::set<std::string, std::less<>> ownFiles = {};
};

// What holds where the configuration says nothing: absolute paths.
struct ConfigurationDefaults {
    std::string home;
    RepositoryPlace repository;
    std::set<std::string, std::less<>> ownFiles = {}; // beside the repository, which is always one of them
    std::uint32_t computerNumber = 1;
};
[[nodiscard]] ConfigurationDefaults usualDefaults();

// The file is a property list in either form. None is no fault; one that cannot be read, and an entry that
// makes no sense, is logged, and such an entry has its default; the repository then has no place. Entries of
// `settled` come before the file's.
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
                                              const Volumes& volumes, const Dictionary& settled = {});

// Why the first of such entries that makes no sense makes none, for people; empty: all of them do.
[[nodiscard]] std::string faultIn(const Dictionary& entries, const Volumes& volumes);

// A policy pattern as panes know it: with its volume's name, and with the separator that it ends in.
[[nodiscard]] std::string volumePattern(const std::string& pattern, const Volumes& volumes);

} // namespace kelvane
