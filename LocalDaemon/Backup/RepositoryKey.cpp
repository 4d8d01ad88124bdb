#include "LocalDaemon/Backup/RepositoryKey.h"

#include "Common/StandingAlert.h"
#include "Platform/Files/MountTable.h"
#include "Support/Logging.h"

#include <sys/stat.h>
#include <unistd.h>

namespace kelvane {
namespace {

bool isRepository(const std::string& folder) {
    return !folder.empty() && silentMountAround(folder).empty() &&
           ::access((folder + "/config").c_str(), F_OK) == 0;
}

void warnOfReaders(const std::string& secret) {
    struct stat status {};
    if (::stat(secret.c_str(), &status) == 0 && (status.st_mode & (S_IRWXG | S_IRWXO)) != 0)
        logWarning("Other users may read or change %@, which contains a secret: run chmod 600 on it.",
                   secret);
}

} // namespace

void checkRepositoryKey(const RepositoryPlace& place, const IndexKeeper& keeper, Alerts& alerts,
                        const std::string& configurationPath) {
    if (place.location.empty())
        return alerts.raise({.kind = "no_place",
                             .severity = "error",
                             .title = "No valid repository is configured.",
                             .body = "Nothing is backed up. Fix 'repository' in the configuration, " +
                                     configurationPath +
                                     ", and restart the backup daemon; its log has the reason."});
    const Restic& restic = keeper.repository().restic();
    if (!place.environment.empty() || restic.withoutSecrets(place.location) != place.location)
        warnOfReaders(configurationPath);
    const std::string& path = place.passwordFile;
    warnOfReaders(path);
    if (!keeper.index()->repositoryId().empty() || isRepository(localFolderOf(place.location))) {
        if (::access(path.c_str(), F_OK) != 0)
            logError("The key of the backup is missing: put your copy of it back at %@.", path);
    }
}

void announceRepositoryKey(Alerts& alerts, const std::string& path) {
    logWarning("A key for the backup has been made: %@. Keep a copy of it somewhere else, on paper or on "
               "another disk: without it nobody can read the backup, not even you.",
               path);
    alerts.raise({.kind = "key_made",
                  .severity = "warning",
                  .title = "Keep a copy of the backup's key.",
                  .body = "Without it nobody can read the backup, not even you. Copy it to another disk or "
                          "print it: " +
                          path,
                  .actions = {std::string(dismissAction)}});
}

} // namespace kelvane
