#include "LocalDaemon/Panes/NodeAnswers.h"

#include "Common/FileNode/FileNode.h"
#include "Foundation/CleanPath.h"
#include "Foundation/Format.h"
#include "Foundation/PathComponents.h"
#include "Foundation/Unicode.h"
#include "LocalDaemon/Index/LeftOut.h"
#include "LocalDaemon/Panes/NodeStatus.h"
#include "LocalDaemon/Scan/FolderContents.h"
#include "Platform/Files/MountTable.h"
#include "Support/Logging.h"
#include "Support/PathHelpers.h"

#include <algorithm>
#include <limits>
#include <map>
#include <set>

namespace kelvane {
namespace {

using Kind = FileAttributes::Kind;

// A larger answer would take seconds and hundreds of megabytes on both sides.
constexpr std::size_t mostChildren = 500'000;

std::uint32_t narrowed(std::uint64_t count) {
    return static_cast<std::uint32_t>(
        std::min<std::uint64_t>(count, std::numeric_limits<std::uint32_t>::max()));
}

std::string reasonOfIncomplete(bool isSilent, int error) {
    if (isSilent)
        return "its file system does not respond";
    return error == 0 ? formatText("it has more than %llu entries", mostChildren) : errorText(error);
}

} // namespace

// A request, whose whole answer uses the same rules and volumes.
class NodeAnswers::Request {
public:
    explicit Request(const NodeAnswers& answers)
        : state_(*answers.state_),
          fileSystem_(*answers.fileSystem_),
          tree_(*answers.tree_),
          selection_(answers.disks_->selection()),
          index_(state_.index()),
          resolver_(answers.disks_->pathResolver()) {}

    struct File {
        std::string path;          // Real, without links.
        FileAttributes attributes; // For a file that is missing on the disk, the saved attributes.
        bool isMissing = false;
        bool isSilent = false; // The mount there does not respond and is not accessed.
    };
    [[nodiscard]] std::optional<std::string> realPath(const Value& asked) {
        const auto path = resolver_.realPath(asked.stringValue());
        if (const std::string mount = path ? silentMountOver(*path) : std::string(); !mount.empty())
            return mount == path ? path : std::nullopt;
        return resolver_.pathWithoutLinks(asked.stringValue());
    }
    [[nodiscard]] std::optional<File> fileAt(const Value& asked) {
        const std::optional<std::string> path = realPath(asked);
        return path ? fileAtRealPath(*path) : std::nullopt;
    }
    [[nodiscard]] std::optional<File> fileAtRealPath(const std::string& path) {
        if (const std::string mount = silentMountOver(path); !mount.empty()) {
            File silent{.path = path, .attributes = {}, .isSilent = true};
            silent.attributes.kind = Kind::Directory;
            return mount == path ? std::optional(std::move(silent)) : std::nullopt;
        }
        if (const auto attributes = fileSystem_.attributes(path))
            return File{.path = path, .attributes = *attributes};
        const BackupIndex::Item* const item = index_->find(path);
        return item && item->snapshot != 0 ? std::optional(missingFile(path, *item)) : std::nullopt;
    }
    [[nodiscard]] const Volumes& volumes() const { return resolver_.volumes(); }
    [[nodiscard]] const BackupRules& rules() const { return selection_.rules(); }

    // Returns the names of all entries of the folder, on the disk and in the backup.
    [[nodiscard]] std::set<std::string> namesIn(const File& folder) const {
        FolderListing listing;
        listing.isComplete = folder.isMissing;
        if (!folder.isMissing && !folder.isSilent)
            listing = fileSystem_.list(folder.path, mostChildren);
        if (!listing.isComplete)
            KelvaneCLog("The listing of %@ is incomplete: %@", folder.path,
                        reasonOfIncomplete(folder.isSilent, listing.error));
        std::set<std::string> names(listing.names.begin(), listing.names.end());
        if (const BackupIndex::Item* const saved = index_->find(folder.path))
            for (const BackupIndex::Item& item : index_->children(*saved))
                names.emplace(index_->nameOf(item));
        return names;
    }
    [[nodiscard]] FileTotals totalsBelow(const File& folder, const std::atomic<bool>& stopping) const {
        if (folder.isSilent)
            return {};
        if (!folder.isMissing)
            return kelvane::totalsBelow(folder.path, stopping);
        return index_->totalsOf(*index_->find(folder.path));
    }

    [[nodiscard]] NodeStatus statusOf(const File& file, const BackupStanding& standing) {
        const Verdict verdict = verdictOf(file);
        const bool isPartial =
            file.attributes.kind == Kind::Directory && kelvane::isPartial(rules(), file.path, verdict.isIn());
        return kelvane::statusOf(file.path, file.attributes.kind, verdict, isPartial, standing);
    }
    [[nodiscard]] std::int32_t colorOf(const File& file) { return statusOf(file, standingOf(file)).color; }

    // `asked` is the path as the pane sent it. Without a file, only the rules or the mount table know
    // the path.
    [[nodiscard]] FileNodeRef node(const std::string& asked, const std::optional<File>& file) {
        const FileNodeRef node = KelvaneFileNode::create(lastPathComponent(asked), false);
        node->setPath(asked);
        if (file) {
            describe(*node, *file);
        } else {
            node->setBackupFlags(Backup_Missing);
            node->setBackupColor(Backup_Color_None);
        }
        return node;
    }
    // A volume is named by its mount point.
    [[nodiscard]] FileNodeRef volumeNode(const std::string& asked, const std::optional<File>& file) {
        const FileNodeRef node = this->node(asked, file);
        node->setFileName(volumes().mountPointOf(asked).value_or(asked));
        node->setDisplayName(kelv_volumeDisplayName(node->fileName(), volumes()));
        node->setIsDirectory(true);
        return node;
    }

private:
    void describe(KelvaneFileNode& node, const File& file) {
        node.setIsDirectory(file.attributes.kind == Kind::Directory);
        node.setSizeValue(file.attributes.size);
        node.setTotalCount(file.attributes.kind == Kind::File ? 1 : 0);
        node.setUid(file.attributes.uid);
        node.setGid(file.attributes.gid);
        const BackupStanding standing = standingOf(file);
        node.setBackupDate(standing.date);
        if (standing.date)
            node.setVersion(standing.version);
        const NodeStatus nodeStatus = statusOf(file, standing);
        node.setBackupFlags(nodeStatus.backupFlags);
        node.setSimpleFlags(nodeStatus.simpleFlags);
        node.setBackupColor(nodeStatus.color);
        node.setState(nodeStatus.state);
    }
    // Returns the mount that contains the path if it does not respond; otherwise empty.
    [[nodiscard]] std::string silentMountOver(const std::string& path) {
        const auto mount = mountOf(path);
        if (mount == selection_.mounts().end() || !isRemote(mount->second))
            return {};
        const auto [known, isNew] = isResponding_.try_emplace(mount->first, false);
        if (isNew)
            known->second = isAnswering(mount->first);
        return known->second ? std::string() : mount->first;
    }
    static File missingFile(const std::string& path, const BackupIndex::Item& item) {
        File file{.path = path, .attributes = {}, .isMissing = true};
        file.attributes.kind = item.kind == ItemKind::Folder ? Kind::Directory
                               : item.kind == ItemKind::Link ? Kind::SymbolicLink
                                                             : Kind::File;
        file.attributes.size = item.size;
        file.attributes.uid = item.uid;
        file.attributes.gid = item.gid;
        return file;
    }
    [[nodiscard]] BackupStanding standingOf(const File& file) const {
        const BackupIndex::Item* const item = index_->find(file.path);
        BackupStanding standing;
        standing.isMissing = file.isMissing;
        standing.isPending = !item;
        if (item && item->snapshot != 0) {
            standing.date = dateOf(*item);
            standing.version = item->version;
        } else if (const Snapshot* const newest = item ? index_->newestSnapshot() : nullptr) {
            standing.date = dateFromTime(newest->time); // Only contents of the folder were saved.
        }
        standing.isKept = item && index_->hasContent(*item);
        standing.isDamaged = item && index_->isDamaged(*item);
        if (file.attributes.kind != Kind::Directory) {
            standing.isPending = !item || !isUnchanged(*item, file.attributes) || standing.isDamaged ||
                                 isLeftOut(*index_, file.path) ||
                                 (item->kind == ItemKind::Link && isTargetLost(file.path));
        } else if (const auto counts = tree_.countsAt(file.path)) {
            standing.isPending = !item || counts->isPending();
            standing.isMixed = counts->isPending() && counts->files.count > counts->pending.count;
        }
        return standing;
    }
    // Returns the date at which a file was backed up, or of the last snapshot in which a folder was complete:
    // a folder is as recent as its contents.
    [[nodiscard]] Date dateOf(const BackupIndex::Item& item) const {
        const Snapshot* const snapshot =
            item.kind == ItemKind::Folder ? index_->snapshot(item.snapshot) : nullptr;
        return dateFromTime(snapshot ? snapshot->time : item.backedUp);
    }
    [[nodiscard]] Verdict verdictOf(const File& file) const {
        if (file.isMissing)
            return verdictFor(rules(), file.path);
        Verdict verdict = selection_.verdictFor(file.path);
        if (verdict.isIn() && file.attributes.kind == Kind::Other)
            return {Verdict::Reason::NoFile, {}};
        return verdict;
    }
    // Caches the mounts of folders, since a request often has many files of one folder.
    [[nodiscard]] MountPoints::const_iterator mountOf(std::string_view path) {
        if (const auto mount = selection_.mounts().find(path); mount != selection_.mounts().end())
            return mount;
        const std::string_view folder = folderOf(path);
        auto known = mountsOfFolders_.find(folder);
        if (known == mountsOfFolders_.end())
            known = mountsOfFolders_.emplace(folder, mountAround(selection_.mounts(), folder)).first;
        return known->second;
    }

    const DaemonState& state_;
    const FileSystem& fileSystem_;
    const FolderTree& tree_;
    const MountedSelection selection_;
    const DaemonState::Index index_;
    PathResolver resolver_;
    std::map<std::string, bool> isResponding_; // By mount point.
    std::map<std::string, MountPoints::const_iterator, std::less<>> mountsOfFolders_;
};

Value NodeAnswers::node(const Value& path, FolderSizes sizes) const {
    Request request(*this);
    const auto file = request.fileAt(path);
    if (!file)
        return {};
    const std::string asked = pathWithComponents(pathComponents(path.stringValue()));
    const bool isVolume = asked == "/" || kelv_isVolumePath(asked);
    const FileNodeRef node = isVolume ? request.volumeNode(asked, file) : request.node(asked, file);
    if (sizes == FolderSizes::Contents && node->isDirectory()) {
        const FileTotals totals = request.totalsBelow(*file, stopping_);
        node->setSizeValue(totals.bytes);
        node->setTotalCount(narrowed(totals.count));
    }
    return node->dictionary();
}

Value NodeAnswers::children(const Value& path) const {
    return path.stringValue().empty() ? volumes() : childrenOfFolder(path);
}

Value NodeAnswers::volumes() const {
    Request request(*this);
    Array nodes;
    for (const Volume& volume : request.volumes().all())
        nodes.push_back(request
                            .volumeNode(request.volumes().mountPointName(volume),
                                        request.fileAtRealPath(volume.mountPoint))
                            ->dictionary());
    return nodes;
}

Value NodeAnswers::childrenOfFolder(const Value& path) const {
    Request request(*this);
    Array nodes;
    const auto folder = request.fileAt(path);
    if (!folder || folder->attributes.kind != Kind::Directory)
        return nodes;
    const std::string asked = withSeparator(pathWithComponents(pathComponents(path.stringValue())));
    const std::string real = withSeparator(folder->path);
    for (const std::string& name : request.namesIn(*folder))
        if (const auto file = stopping_ ? std::nullopt : request.fileAtRealPath(real + name))
            nodes.push_back(request.node(asked + textFromPath(name), file)->dictionary());
    return nodes;
}

Value NodeAnswers::colors(const Value& paths) const {
    Request request(*this);
    Array colors;
    for (const Value& path : paths.array()) {
        const auto file = stopping_ ? std::nullopt : request.fileAt(path);
        colors.emplace_back(
            static_cast<std::uint32_t>(file ? request.colorOf(*file) : Backup_Color_Undefined));
    }
    return colors;
}

Value NodeAnswers::excludedFiles(const Value& path) const {
    Request request(*this);
    const auto folder = request.realPath(path);
    Array nodes;
    for (const std::string& excluded : request.rules().paths.exclusions)
        if (folder && (excluded == *folder || excluded.starts_with(withSeparator(*folder))))
            nodes.push_back(request
                                .node(textFromPath(request.volumes().volumePath(excluded)),
                                      request.fileAtRealPath(excluded))
                                ->dictionary());
    return nodes;
}

Value NodeAnswers::policy() const {
    const auto volumes = disks_->volumes();
    Array patterns;
    const auto rules = state_->rules();
    for (const std::string& pattern : rules->policy)
        patterns.emplace_back(textFromPath(volumePattern(pattern, *volumes)));
    for (const std::string& path : rules->ownFiles)
        patterns.emplace_back(textFromPath(volumePattern(withSeparator(path), *volumes)));
    return patterns;
}

} // namespace kelvane
