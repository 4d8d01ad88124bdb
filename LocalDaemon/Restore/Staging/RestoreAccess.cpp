#include "LocalDaemon/Restore/Staging/RestoreAccess.h"

#include "Foundation/CleanPath.h"
#include "Foundation/Format.h"
#include "LocalDaemon/Restore/Staging/RestoreStaging.h"
#include "Support/Logging.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvane {
namespace {

bool isAccessible(int folder) {
    return ::faccessat(folder, ".", R_OK | W_OK | X_OK, AT_EACCESS) == 0;
}

bool setMode(int folder, mode_t mode) {
    return ::chmod(pathOfDescriptor(folder).c_str(), mode) == 0;
}

void logModeNotRestored(const std::string& path) {
    logWarning("The mode of %@ cannot be restored: %@", path, errorText());
}

} // namespace

bool makeOwnerAccessible(int folder) {
    struct stat status {};
    return ::fstat(folder, &status) == 0 &&
           ((status.st_mode & S_IRWXU) == S_IRWXU || setMode(folder, (status.st_mode & modeBits) | S_IRWXU));
}

AccessForOwner::AccessForOwner(int folder, std::string path, RestoreJournal& journal)
    : folder_(folder), path_(std::move(path)), journal_(journal) {
    struct stat status {};
    if (isAccessible(folder) || ::fstat(folder, &status) != 0 || status.st_uid != ::geteuid() ||
        (status.st_mode & S_IRWXU) == S_IRWXU)
        return;
    before_ = status.st_mode & modeBits;
    journal_.accessGiven(path_, *before_);
    if (setMode(folder, *before_ | S_IRWXU))
        return;
    journal_.accessEnded(path_);
    before_.reset();
}

AccessForOwner::~AccessForOwner() {
    if (!before_)
        return;
    if (setMode(folder_, *before_))
        journal_.accessEnded(path_);
    else
        logModeNotRestored(path_);
}

bool endAccess(const std::string& path, mode_t before) {
    if (!path.starts_with('/'))
        return true;
    const FileDescriptor folder = openFolder(path);
    struct stat status {};
    // If its parent folder exists, the folder was deleted; otherwise the disk may not be mounted.
    if (!folder || ::fstat(folder.get(), &status) != 0)
        return folder || static_cast<bool>(openFolder(std::string(folderOf(path))));
    const bool isAsLeft = (status.st_mode & modeBits) == (before | S_IRWXU);
    if (isAsLeft && !setMode(folder.get(), before))
        logModeNotRestored(path);
    return true;
}

void removeJournaledStaging(RestoreJournal& journal, const std::string& path, const StopSignal* stop) {
    const std::string around(folderOf(path));
    const FileDescriptor folder = path.starts_with('/') ? openFolder(around) : FileDescriptor();
    const AccessForOwner access(folder.get(), around, journal);
    if (removeStaging(path, stop))
        journal.stagingGone(path);
}

} // namespace kelvane
