#pragma once

#include "LocalDaemon/Index/BackupIndex.h"
#include "LocalDaemon/Restore/HardLinks.h"
#include "LocalDaemon/Restore/RestorePlan.h"
#include "LocalDaemon/Restore/RestoreTrouble.h"
#include "LocalDaemon/Restore/SavedNodes.h"
#include "LocalDaemon/Restore/Staging/RestoreJob.h"
#include "LocalDaemon/Restore/Staging/RestoreJournal.h"
#include "LocalDaemon/Restore/Staging/RestoreMetadata.h"
#include "LocalDaemon/Restore/Staging/RestoreStaging.h"
#include "Platform/StopSignal.h"

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

namespace kelvane {

// Puts in their places what restic has brought into a staging folder, file by file by a rename, and says what
// is missing. What stands in a place is replaced by a whole file of the right size and by nothing else: no
// folder makes room for a file, no file or link for a folder, and no device, pipe or socket for anything.
//
// Belongs to one thread; blocks on the disk. Ends early when it is stopped.
class RestoreDelivery {
public:
    RestoreDelivery(const BackupIndex& index, const StagingFolder& staging, const FileErrors& errors,
                    RestoreJournal& journal, SavedNodes& nodes, std::string keyFile, const StopSignal& stop);

    // Of all that is to be delivered, before anything is: what has got another item's contents.
    void inspect(const std::vector<RestorePiece>& pieces);
    void deliver(const RestorePiece& piece);
    [[nodiscard]] std::vector<RestoreFailure> takeFailures() { return std::exchange(failures_, {}); }

    // Folders on the way to a piece's own place that were not there and have been made as they were saved.
    // What is put into them changes their times: the metadata is for when that is over.
    struct MadeFolder {
        std::string target;
        FolderMetadata metadata;
    };
    [[nodiscard]] std::vector<MadeFolder> takeMadeFolders() { return std::exchange(made_, {}); }

private:
    struct Place {
        const BackupIndex::Item& item;
        std::string path;   // in the backup
        std::string target; // for people
        int staged;         // the folder that holds what has been brought; -1: it has not been
        int around;         // the folder that it is put into
        std::string name;   // there
    };
    [[nodiscard]] FileDescriptor stagedFolder(std::uint32_t snapshot, const std::string& path) const;
    [[nodiscard]] FileDescriptor folderAround(const RestorePiece& piece, const std::string& path,
                                              std::string& reason);
    [[nodiscard]] FileDescriptor madeParent(const RestorePiece& piece, const std::string& path, int around,
                                            const std::string& target);
    [[nodiscard]] FileDescriptor makeFolder(int around, const std::string& name,
                                            const FolderMetadata* metadata, std::string& reason);
    void deliver(const Place& place, bool isFolderAlone);
    void deliverFile(const Place& place);
    void deliverFolder(const Place& place, bool isAlone);
    void deliverContents(const Place& folder, int staged, int target);
    // Which folders at and below the target hold what is not in the backup, or cannot be read. Whether this
    // one does.
    bool findShared(const BackupIndex::Item& item, int folder);
    // Empty: it is there as it should be.
    [[nodiscard]] std::string faultOf(const Place& place);
    void lookForClashes(const std::vector<RestorePiece>& pieces);
    void lookForClashes(int staged, const std::string& folder, const std::vector<std::string>& names);
    // `staged`: the folder that the item is staged in.
    void noteHardLinks(const BackupIndex::Item& item, int staged, bool isFolderAlone);
    // Whether a file stands there whose name differs only by case or accents, which this disk ignores.
    [[nodiscard]] bool isOthersPlace(const Place& place) const;
    // Of a staged file with several names, of which restic tells one.
    [[nodiscard]] std::string errorOfOtherNames(const struct stat& status) const;
    [[nodiscard]] static bool isTargetInDoubt(const Place& place, const std::string& staged);
    [[nodiscard]] std::string prepare(const Place& place, const SavedAccess& access) const;
    // Empty, or why only the owner gets access to a file or folder.
    [[nodiscard]] std::string lostAccessRules(std::uint32_t snapshot, const std::string& path) const;
    [[nodiscard]] std::string completeAttributes(const Place& place) const;
    [[nodiscard]] bool replacesTheKey(const Place& place) const;
    void fail(const std::string& path, const std::string& reason);

    const BackupIndex& index_;
    const StagingFolder& staging_;
    const FileErrors& errors_;
    RestoreJournal& journal_; // of folders whose owner is given access
    SavedNodes& nodes_;
    const std::string keyFile_; // of the repository in use
    const std::set<std::string> keyPaths_;
    const StopSignal& stop_;
    HardLinks hardLinks_;
    std::map<ino_t, std::string> errorsOfInodes_; // in the staging folder
    std::set<std::string> clashing_;              // paths in the backup
    std::set<const BackupIndex::Item*> shared_;   // elsewhere than in their own places
    std::vector<RestoreFailure> failures_;
    std::vector<MadeFolder> made_;
};

} // namespace kelvane
