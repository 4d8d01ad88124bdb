#pragma once

#include <cstdint>
#include <string_view>

// Values of the backup state, which grows while a daemon starts.
namespace kelvane::backupstate {

inline constexpr std::uint32_t rulesAreLoaded = 26; // or more: panes may request rules and policy

} // namespace kelvane::backupstate

// The keys of the dictionary that the daemon returns from `daemonState`.
namespace kelvane::statekey {

inline constexpr std::string_view backedUpFileCount = "backedUpFileCount";   // unsigned 32-bit
inline constexpr std::string_view backedupFileSize = "backedupFileSize";     // unsigned 64-bit, bytes
inline constexpr std::string_view pendingFileCount = "pendingFileCount";     // unsigned 32-bit
inline constexpr std::string_view pendingFileSize = "pendingFileSize";       // unsigned 64-bit, bytes
inline constexpr std::string_view currentBackupFile = "currentBackupFile";   // path
inline constexpr std::string_view currentRestoreFile = "currentRestoreFile"; // path
inline constexpr std::string_view statusString = "statusString";
inline constexpr std::string_view backupState = "backupState";             // unsigned 32-bit, see above
inline constexpr std::string_view currentRestoreJob = "currentRestoreJob"; // unsigned 32-bit
inline constexpr std::string_view isBackupNeeded = "isBackupNeeded";
// Whether the last backup had to leave out files that it could not read.
inline constexpr std::string_view hasUnreadFiles = "hasUnreadFiles";
inline constexpr std::string_view lowerPriorityMode = "lowerPriorityMode";
inline constexpr std::string_view paused = "paused";
inline constexpr std::string_view recoverMode = "recoverMode";
inline constexpr std::string_view serviceState = "serviceState"; // a ServiceState
inline constexpr std::string_view isQuotaLimited = "isQuotaLimited";
inline constexpr std::string_view isOverQuota = "isOverQuota";
inline constexpr std::string_view quotaMB = "quotaMB";                       // unsigned 32-bit
inline constexpr std::string_view backupControlFlags = "backupControlFlags"; // unsigned 32-bit

// Keys of extensions; absent when the daemon does not have the extension.
inline constexpr std::string_view extensions = "extensions"; // array of names
inline constexpr std::string_view alerts = "alerts"; // array of StandingAlert dictionaries, most severe first
inline constexpr std::string_view lastBackupDate = "lastBackupDate";
inline constexpr std::string_view nextBackupDate = "nextBackupDate";
inline constexpr std::string_view pausedUntil = "pausedUntil";       // a date
inline constexpr std::string_view destination = "destination";       // text for the user
inline constexpr std::string_view waitingFor = "waitingFor";         // a sentence: why no backup is running
inline constexpr std::string_view bytesPerSecond = "bytesPerSecond"; // unsigned 64-bit
inline constexpr std::string_view secondsLeft = "secondsLeft";       // unsigned 64-bit
inline constexpr std::string_view lastVerifiedDate = "lastVerifiedDate";
inline constexpr std::string_view lastVerification = "lastVerification"; // a sentence
// 0 to 1, while a verification runs.
inline constexpr std::string_view verificationProgress = "verificationProgress";
inline constexpr std::string_view damagedFileCount = "damagedFileCount"; // unsigned 64-bit
// Whether damage of the backup is known, even if it affects only an earlier version of a file.
inline constexpr std::string_view isBackupDamaged = "isBackupDamaged";

} // namespace kelvane::statekey
