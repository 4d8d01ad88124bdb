#pragma once

#include "LocalDaemon/Restore/Staging/RestoreJournal.h"
#include "Platform/StopSignal.h"

#include <optional>
#include <string>
#include <sys/types.h>

namespace kelvane {

// Gives the owner of a folder full access for the lifetime of this object, where that is needed and this
// user is allowed to. The journal records it meanwhile, so that the next start restores the mode after a
// kill.
class AccessForOwner {
public:
    // Takes a descriptor, for which O_PATH is enough, and the same folder's path for the journal.
    AccessForOwner(int folder, std::string path, RestoreJournal& journal);
    ~AccessForOwner();
    AccessForOwner(const AccessForOwner&) = delete;
    AccessForOwner& operator=(const AccessForOwner&) = delete;

private:
    const int folder_;
    const std::string path_;
    RestoreJournal& journal_;
    std::optional<mode_t> before_; // None when the mode was not changed.
};

// Adds full access for the owner to the mode of a file or folder, for good. Returns false and sets errno on
// failure.
[[nodiscard]] bool makeOwnerAccessible(int folder);

// Restores the mode of a folder whose owner was given access by a process that was killed, unless the
// mode has been changed since. Returns false when the folder cannot be reached for now.
[[nodiscard]] bool endAccess(const std::string& path, mode_t before);

// Like `removeStaging`, but also from a folder that its owner may not write to; removed folders are
// dropped from the journal.
void removeJournaledStaging(RestoreJournal& journal, const std::string& path,
                            const StopSignal* stop = nullptr);

} // namespace kelvane
