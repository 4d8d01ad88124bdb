#pragma once

#include "LocalDaemon/Restore/Staging/RestoreJournal.h"
#include "Platform/StopSignal.h"

#include <optional>
#include <string>
#include <sys/types.h>

namespace kelvane {

// The owner of a folder may do everything in it, for as long as this lives, where this user may see to that
// and has need of it. The journal tells of it meanwhile, so that the next start ends it after a kill.
class AccessForOwner {
public:
    // A descriptor, for which O_PATH is enough, and the same folder's path for the journal.
    AccessForOwner(int folder, std::string path, RestoreJournal& journal);
    ~AccessForOwner();
    AccessForOwner(const AccessForOwner&) = delete;
    AccessForOwner& operator=(const AccessForOwner&) = delete;

private:
    const int folder_;
    const std::string path_;
    RestoreJournal& journal_;
    std::optional<mode_t> before_; // none: it is as it was
};

// False with errno.
[[nodiscard]] bool makeOwnerAccessible(int folder);

// Gives back the mode to a folder whose owner a killed process has given access, if it has not been changed
// since. False: the folder cannot be reached for now.
[[nodiscard]] bool endAccess(const std::string& path, mode_t before);

// As `removeStaging`, also from a folder that its owner may not write to; what is removed leaves the journal.
void removeStagingOf(RestoreJournal& journal, const std::string& path, const StopSignal* stop = nullptr);

} // namespace kelvane
