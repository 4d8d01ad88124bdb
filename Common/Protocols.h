#pragma once

#include "Common/MethodSignature.h"

namespace kelvane {

// The methods of the backup daemon. Each row gives the types of its result and arguments in the published
// type encoding: v void, c bool as a signed char, I unsigned 32-bit, q signed 64-bit, Q unsigned 64-bit, @ a
// property-list object.
inline constexpr MethodDescription KelvaneDaemonProtocol[] = {
    {"terminate", "v16@0:8"},
    {"showRestoreWizard", "v16@0:8"},
    {"restoreWithChoices:", "c24@0:8@16"},
    {"mappedUserAsString:", "@24@0:8@16"},
    {"backedupStateString", "@16@0:8"},
    {"liveStateString", "@16@0:8"},
    {"marketingMessage", "@16@0:8"},
    {"computerNumber", "@16@0:8"},
    {"userEmail", "@16@0:8"},
    {"setValueForProfileKey:withString:", "v32@0:8@16@24"},
    {"stringValueForProfileKey:", "@24@0:8@16"},
    {"backupColorsForFiles:", "@24@0:8@16"},
    {"stringForState:", "@20@0:8I16"},
    {"longlongForState:", "Q20@0:8I16"},
    {"longForState:", "q20@0:8I16"},
    {"endStateHandler", "v16@0:8"},
    {"setStateHandler", "v16@0:8"},
    {"endAlertHandler", "v16@0:8"},
    {"setAlertHandler", "v16@0:8"},
    {"clearAccountOverQuotaTestingFlag", "v16@0:8"},
    {"setAccountOverQuotaTestingFlag:", "v20@0:8c16"},
    {"cancelAllRestoreJobs", "v16@0:8"},
    {"getRestoreJobStatus:", "I20@0:8I16"},
    {"getCurrentRestoreJob", "I16@0:8"},
    {"restoreFile:toPath:version:priority:", "I40@0:8@16@24I32I36"},
    {"setBackupControl:", "v20@0:8I16"},
    {"setPriorityBackup:", "v24@0:8@16"},
    {"removeFileFromBackup:", "v24@0:8@16"},
    {"addFilesToBackup:", "v24@0:8@16"},
    {"addFileToBackup:", "v24@0:8@16"},
    {"getFileTypeToggle:", "I24@0:8@16"},
    {"setFileTypeToggle:toggle:", "v28@0:8@16I24"},
    {"excludedFiles:", "@24@0:8@16"},
    {"policyExcludeList", "@16@0:8"},
    {"unexcludeFileFromBackup:", "I24@0:8@16"},
    {"excludeFileFromBackup:", "I24@0:8@16"},
    {"childrenDictionariesForPath:", "@24@0:8@16"},
    {"dictionaryForPath:withDirSizes:", "@28@0:8@16c24"},
    {"dictionaryForPath:", "@24@0:8@16"},
    {"setServiceState:", "v20@0:8I16"},
    {"serviceState", "I16@0:8"},
    {"daemonState", "@16@0:8"},
    {"serverURL", "@16@0:8"},
    {"setAutomaticMode:", "v20@0:8c16"},
    {"automaticMode", "c16@0:8"},
    {"setDelayShutdown:", "v20@0:8c16"},
    {"delayShutdown", "c16@0:8"},
    {"setLowerPriorityMode:", "v20@0:8c16"},
    {"lowerPriorityMode", "c16@0:8"},
    {"setRecoverMode:", "v20@0:8c16"},
    {"recoverMode", "c16@0:8"},
    {"setIncludeRequired:", "v20@0:8c16"},
    {"setPausedMinutes:", "v20@0:8I16"},
    {"pausedMinutes", "I16@0:8"},
    {"setEnabled:", "v20@0:8c16"},
};

// The methods of a pane that the daemon calls.
inline constexpr MethodDescription KelvaneClientProtocol[] = {
    {"fileChanged:", "v24@0:8@16"},    {"filesChanged:", "v24@0:8@16"},    {"folderChanged:", "v24@0:8@16"},
    {"foldersChanged:", "v24@0:8@16"}, {"stateChanged:", "v20@0:8I16"},    {"statesChanged:", "v24@0:8@16"},
    {"setAlertString:", "v24@0:8@16"}, {"setAlertStrings:", "v24@0:8@16"},
};

} // namespace kelvane
