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

// Moves what restic has restored from a staging folder to its targets, file by file with a rename, and
// reports what is missing. An existing file or link is replaced only by a link or by a complete file of the
// right size. A folder never replaces a file or link, and nothing replaces a folder, device, pipe or socket.
//
// Belongs to one thread; blocks on the disk. Ends early when it is stopped.
class RestoreDelivery {
public:
    RestoreDelivery(const BackupIndex& index, const StagingFolder& staging, const FileErrors& errors,
                    RestoreJournal& journal, SavedNodes& nodes, std::string keyFile, const StopSignal& stop);

    // Must be called with all pieces before the first is delivered: finds staged items that may have another
    // item's contents.
    void inspect(const std::vector<RestorePiece>& pieces);
    void deliver(const RestorePiece& piece);
    [[nodiscard]] std::vector<RestoreFailure> takeFailures() { return std::exchange(failures_, {}); }

    // Missing parent folders of a piece's original location, created with their saved metadata.
    // Delivering into them changes their times, so their metadata is applied again at the end.
    struct MadeFolder {
        std::string target;
        FolderMetadata metadata;
    };
    [[nodiscard]] std::vector<MadeFolder> takeMadeFolders() { return std::exchange(made_, {}); }

private:
    struct Place {
        const BackupIndex::Item& item;
        std::string path;   // The path in the backup.
        std::string target; // For messages and comparisons; the target is reached through `around`.
        int staged;         // The folder that contains the staged item, -1 when it is not staged.
        int around;         // The target's parent folder.
        std::string name;   // The name in that folder.
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
    // Records which folders at and below the target cannot be read, or contain files at any depth that are
    // not in the backup. Returns whether this folder is one of them.
    bool findShared(const BackupIndex::Item& item, int folder);
    // Returns empty when the staged item matches the backup, otherwise why it must not be delivered.
    [[nodiscard]] std::string faultOf(const Place& place);
    void lookForClashes(const std::vector<RestorePiece>& pieces);
    void lookForClashes(int staged, const std::string& folder, const std::vector<std::string>& names);
    // `staged`: the folder in which the item is staged.
    void noteHardLinks(const BackupIndex::Item& item, int staged, bool isFolderAlone);
    // Returns whether the target's name leads to an existing file whose name differs by case or accents,
    // which this file system ignores.
    [[nodiscard]] bool isPlaceOfOthers(const Place& place) const;
    // Returns restic's error for a staged file with several names, of which restic reports only one; empty
    // when there is none.
    [[nodiscard]] std::string errorOfOtherNames(const struct stat& status) const;
    [[nodiscard]] static bool isTargetInDoubt(const Place& place, const std::string& staged);
    [[nodiscard]] std::string prepare(const Place& place, const SavedAccess& access) const;
    // Returns empty, or why only the owner gets access to a file or folder.
    [[nodiscard]] std::string lostAccessRules(std::uint32_t snapshot, const std::string& path) const;
    [[nodiscard]] std::string completeAttributes(const Place& place) const;
    [[nodiscard]] bool replacesTheKey(const Place& place) const;
    void fail(const std::string& path, const std::string& reason);

    const BackupIndex& index_;
    const StagingFolder& staging_;
    const FileErrors& errors_;
    RestoreJournal& journal_; // Records the folders whose owner is given access.
    SavedNodes& nodes_;
    const std::string keyFile_; // The key file of the repository in use.
    const std::set<std::string> keyPaths_;
    const StopSignal& stop_;
    HardLinks hardLinks_;
    std::map<ino_t, std::string> errorsOfInodes_; // By inode in the staging folder.
    std::set<std::string> clashing_;              // Paths in the backup whose names clash.
    // Folders whose existing target elsewhere has other files in it, or whose contents failed: that target
    // keeps its owner, attributes and times.
    std::set<const BackupIndex::Item*> shared_;
    std::vector<RestoreFailure> failures_;
    std::vector<MadeFolder> made_;
};

} // namespace kelvane
