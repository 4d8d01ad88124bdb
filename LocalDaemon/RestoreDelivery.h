#pragma once

#include "LocalDaemon/BackupIndex.h"
#include "LocalDaemon/RestoreJob.h"
#include "LocalDaemon/RestoreTrouble.h"
#include "Platform/ChildProgram.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// Puts in their places what restic has brought into a staging folder, file by file by a rename, and says what
// is missing. What stands in a place is replaced by a whole file of the right size and by nothing else: no
// folder makes room for a file, and no file or link for a folder.
//
// Belongs to one thread; blocks on the disk. Ends early when it is stopped.
class RestoreDelivery {
public:
    struct Staged {
        std::string folder; // holds a folder for each snapshot, named by its number
        // What restic has said went wrong, by path.
        ErrorsByPath errors;
    };

    RestoreDelivery(const BackupIndex& index, const Staged& staged, const StopSignal& stop)
        : index_(index), staged_(staged), stop_(stop) {}

    void deliver(const BackupIndex::Item& item, const std::string& target);
    [[nodiscard]] std::vector<RestoreFailure> takeFailures() { return std::exchange(failures_, {}); }

private:
    [[nodiscard]] std::string stagedPath(std::uint32_t snapshot, const std::string& path) const;
    void deliverFile(const BackupIndex::Item& item, const std::string& target);
    void deliverFolder(const BackupIndex::Item& folder, const std::string& target);
    void deliverUnspeakable(const std::string& stagedFolder, const std::string& target);
    // Empty: it is there as it should be.
    [[nodiscard]] std::string faultOf(const BackupIndex::Item& item, const std::string& path,
                                      const std::string& staged) const;
    void fail(const std::string& path, const std::string& reason);

    const BackupIndex& index_;
    const Staged& staged_;
    const StopSignal& stop_;
    std::vector<RestoreFailure> failures_;
};

// What restic has said on standard error of single files, by their path in the snapshot; names may hold line
// ends.
[[nodiscard]] ErrorsByPath errorsByPath(const BackupIndex& index, std::string_view errors);

} // namespace kelvane
