#pragma once

#include "Common/FileNode/FileNodeFlags.h"
#include "Common/OptionalText.h"
#include "Foundation/Value.h"
#include "Platform/Files/FileServices.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

class KelvaneFileNode;
class KelvaneProxy;

using FileNodeRef = std::shared_ptr<KelvaneFileNode>;
using FileNodeList = std::vector<FileNodeRef>;

// The key by which a folder's items are sorted. Texts compare by code point, and absent ones come first; an
// absent date is earlier than any other. Size is `sizeValue`.
struct SortDescriptor {
    enum class Key {
        FileName,
        DisplayName,
        IsDirectory,
        BackupDate,
        Version,
        State,
        Size,
        TotalCount,
        BackupColor
    };

    Key key = Key::FileName;
    bool ascending = true;
};

// One file or folder in the backup, and its place in a tree.
//
// Ownership. A node owns its children and refers to its parent weakly. A node may be held for any time: when
// its tree is destroyed, the node keeps its fields, its own children and its path, which it stores at that
// moment. A node that its parent only drops (`flush`, `removeChild`) still has that parent.
//
// No operation recurses: the depth of a tree is limited only by memory. A tree belongs to one thread at a
// time. Nothing fails unless an operation says so; an absent field reads as empty, 0 or false.
class KelvaneFileNode : public std::enable_shared_from_this<KelvaneFileNode> {
protected:
    struct Passkey {
        explicit Passkey() = default;
    };

public:
    explicit KelvaneFileNode(Passkey) {}
    virtual ~KelvaneFileNode();
    KelvaneFileNode(const KelvaneFileNode&) = delete;
    KelvaneFileNode& operator=(const KelvaneFileNode&) = delete;

    [[nodiscard]] static FileNodeRef create();
    [[nodiscard]] static FileNodeRef create(std::string_view fileName, bool isDirectory);
    [[nodiscard]] static FileNodeRef createWithDictionary(const Value& dictionary);
    // Reads the local disk. A path that does not exist gives a node with names only.
    [[nodiscard]] static FileNodeRef fileNodeForPath(const std::string& path, const FileServices& services);
    // Asks the daemon. Null when it does not know the path and when there is no proxy. The node gets the
    // requested path.
    [[nodiscard]] static FileNodeRef fileNodeForPath(const std::string& path,
                                                     const std::shared_ptr<KelvaneProxy>& fromProxy);
    // With `withDirSizes` the daemon adds up the sizes in a folder.
    [[nodiscard]] static FileNodeRef fileNodeForPath(const std::string& path, bool withDirSizes,
                                                     const std::shared_ptr<KelvaneProxy>& fromProxy);
    // Leaves out paths that the daemon does not know.
    [[nodiscard]] static FileNodeList fileNodesForPaths(std::span<const std::string> paths,
                                                        const std::shared_ptr<KelvaneProxy>& fromProxy);
    // Leaves out entries of the array that are not dictionaries.
    [[nodiscard]] static FileNodeList fileNodesForDictionaries(const Value& dictionaries);

    // Sets all fields from a dictionary. A node inside a tree keeps its place, and keeps its children when
    // the dictionary has no such key. The path is the dictionary's, or is computed anew when there is none.
    void initWithDictionary(const Value& dictionary);
    [[nodiscard]] Value dictionary() const;
    // Includes the loaded children.
    [[nodiscard]] Value recursiveDictionary() const;
    // A node of the same class and parent with the same children (whose parent stays this node), without
    // flags and colour. Its path is the parent's with the file name appended: the copy of a root has none. A
    // node whose parent is destroyed passes on its stored path.
    [[nodiscard]] FileNodeRef copy() const;
    // Clears names, dates, version, state and icon.
    void cleanup();

    [[nodiscard]] std::string fileName() const { return std::string(fileName_.view()); }
    void setFileName(std::optional<std::string_view> name) { fileName_ = OptionalText(name); }
    // The file name when no display name is set.
    [[nodiscard]] std::string displayName() const { return std::string(shownName().value_or("")); }
    void setDisplayName(std::optional<std::string_view> name) { displayName_ = OptionalText(name); }
    [[nodiscard]] bool isDirectory() const { return isDirectory_; }
    void setIsDirectory(bool isDirectory) { isDirectory_ = isDirectory; }
    [[nodiscard]] std::uint32_t backupFlags() const { return backupFlags_; }
    void setBackupFlags(std::uint32_t flags) { backupFlags_ = flags; }
    [[nodiscard]] std::uint32_t simpleFlags() const { return simpleFlags_; }
    void setSimpleFlags(std::uint32_t flags) { simpleFlags_ = flags; }
    [[nodiscard]] std::int32_t backupColor() const { return static_cast<std::int32_t>(backupColor_); }
    void setBackupColor(std::int32_t color) { backupColor_ = static_cast<std::uint32_t>(color); }
    // None if never backed up.
    [[nodiscard]] std::optional<Date> backupDate() const { return backupDate_; }
    void setBackupDate(std::optional<Date> date) { backupDate_ = date; }
    // A number, or absent.
    [[nodiscard]] const Value& version() const { return version_; }
    void setVersion(const Value& number) { version_ = number.isNumber() ? number : Value(); }
    [[nodiscard]] std::optional<Date> purgeDate() const;
    void setPurgeDate(std::optional<Date> date);
    [[nodiscard]] std::string state() const { return std::string(state_.view()); }
    void setState(std::optional<std::string_view> state) { state_ = OptionalText(state); }
    [[nodiscard]] std::uint32_t totalCount() const { return totalCount_; }
    void setTotalCount(std::uint32_t count) { totalCount_ = count; }
    [[nodiscard]] std::uint32_t uid() const { return uid_; }
    void setUid(std::uint32_t uid) { uid_ = uid; }
    [[nodiscard]] std::uint32_t gid() const { return gid_; }
    void setGid(std::uint32_t gid) { gid_ = gid; }
    [[nodiscard]] bool inPolicy() const { return inPolicy_; }
    void setInPolicy(bool inPolicy) { inPolicy_ = inPolicy; }
    [[nodiscard]] Value inPolicyValue() const { return Value(inPolicy_); }

    // In bytes: the node's own size plus the sizes of everything loaded below it. The setter sets only
    // the node's own size.
    [[nodiscard]] std::uint64_t sizeValue() const;
    [[nodiscard]] Value size() const { return Value(sizeValue()); }
    void setSizeValue(std::uint64_t size) { size_ = size; }
    void setSize(const Value& number) { size_ = number.uint64Value(); }

    // The stored path, or the parent's path with the file name appended, which is then stored and not
    // computed again. Empty for a root without a path, and for everything below it.
    [[nodiscard]] std::string path() const;
    // Throws AssertionFailure on a node that has a parent.
    void setPath(std::string_view path);

    [[nodiscard]] std::uint32_t backupPriority() const { return backupFlags_ & Backup_Priority; }
    [[nodiscard]] bool isBackup() const { return (backupFlags_ & Backup_Backup) != 0; }
    [[nodiscard]] bool isExcluded() const { return (backupFlags_ & Backup_Exclude) != 0; }
    [[nodiscard]] bool isNotActive() const { return (backupFlags_ & Backup_Not_Active) != 0; }
    [[nodiscard]] bool isFolder() const { return (backupFlags_ & Backup_Folder) != 0; }
    [[nodiscard]] bool isMissing() const { return (backupFlags_ & Backup_Missing) != 0; }
    // Whether the user sees this folder as a single file.
    [[nodiscard]] bool isBundle();
    [[nodiscard]] bool showInRestoreBrowser(const FileServices& services) const;
    // Whether the paths are the same; a node without a path equals nothing.
    [[nodiscard]] bool isEqual(const KelvaneFileNode& other) const;

    [[nodiscard]] std::string backupDateString(const FileServices& services) const;
    [[nodiscard]] std::string uidString(const Accounts& accounts) const;
    [[nodiscard]] std::string gidString(const Accounts& accounts) const;
    // Empty when the number stands for no colour.
    [[nodiscard]] std::string backupColorString() const;
    [[nodiscard]] std::string backupFlagsString() const;
    [[nodiscard]] std::string simpleFlagsString() const;
    // Several lines, for the log.
    [[nodiscard]] std::string description() const;
    // A folder without a parent counts as a disk.
    [[nodiscard]] std::string kind(const FileServices& services) const;
    // The same for a node that was created from its path and so has no parent: it is a disk only when its
    // path is that of a disk.
    [[nodiscard]] std::string kindByPath(const FileServices& services) const;
    // Fetched once and kept until `flush`; null when there is no icon.
    [[nodiscard]] IconHandle image(const FileServices& services);

    [[nodiscard]] FileNodeRef parent() const { return parent_.lock(); }
    // Stores the path of the new place unless the node has a stored path. Does not add the node to the
    // parent's list.
    void setParent(const FileNodeRef& parent);
    [[nodiscard]] FileNodeRef root();
    // A copy of the list, empty when there are no children.
    [[nodiscard]] FileNodeList children();
    // The list itself, null when there is none. Valid until the node drops the list or is destroyed.
    [[nodiscard]] FileNodeList* mutableChildren();
    // Whether there is a list of children, even an empty one. Loads nothing.
    [[nodiscard]] bool hasChildList() const { return children_ != nullptr; }
    [[nodiscard]] std::size_t count();
    // Appends the child without checking for duplicates; null is ignored.
    virtual void addChild(const FileNodeRef& child);
    // Removes every child that equals the node; their parent pointer does not change.
    void removeChild(const KelvaneFileNode& node);
    // The first child with exactly this name, or null.
    [[nodiscard]] FileNodeRef childWithName(std::string_view name);
    // Follows the names from the root down. The first component stands for the root, whatever either is
    // called; a path of one component or none is the root. Null when there is no such node.
    [[nodiscard]] FileNodeRef nodeAtPath(std::string_view path);
    void removeNodeAtPath(std::string_view path);
    // Stable sort of everything loaded below this node.
    void sortUsingDescriptors(std::span<const SortDescriptor> descriptors);
    struct ChildKinds {
        bool directories = false;
        bool files = false;
    };
    [[nodiscard]] ChildKinds hasChildDirectoriesAndFiles() const;
    // Drops the icon and the children.
    virtual void flush();

    // 0 not selected, 1 selected, -1 partly selected.
    [[nodiscard]] std::int32_t selected() const { return selected_; }
    // Selects or deselects the node and updates its ancestors.
    void setSelected(std::int32_t selected);
    // Selects this node and everything below it, and loads children on the way. A file that was never backed
    // up keeps its state.
    void select();
    // Deselects this node and everything loaded below it.
    void deselect();
    // Computes the state from the children, which it loads: 1 when all are selected or there are none, 0 when
    // none is selected even partly, else -1. Then does the same for every ancestor.
    void checkSelections();
    // The topmost selected items below this node, in the order of the children; with `expandFullFolders`, the
    // selected files.
    [[nodiscard]] FileNodeList selectedChildren(bool expandFullFolders) const;
    // The selected items below this node, with every selected folder that has sub-folders replaced by its
    // contents: the result has files, and folders without sub-folders.
    [[nodiscard]] FileNodeList deepestFullSelections() const;

protected:
    [[nodiscard]] virtual FileNodeRef newOfSameClass() const { return create(); }
    [[nodiscard]] virtual std::string_view className() const { return "KelvaneFileNode"; }
    // Loads the children if that has not happened yet; called by the members that may load.
    virtual void loadChildren() {}

    void dropChildren();
    void startChildList(std::size_t expectedCount);

private:
    // Fields that few nodes have.
    struct Extras {
        std::optional<Date> purgeDate;
        IconHandle image;
    };
    struct WordKey {
        std::string_view key;
        std::uint32_t KelvaneFileNode::*word;
    };
    static const WordKey wordKeys[6];

    class NodeBudget;
    void readTree(const Value& dictionary, NodeBudget& budget);
    void readFields(const Value& dictionary);
    [[nodiscard]] Dictionary fields() const;
    [[nodiscard]] std::optional<std::string_view> shownName() const;
    [[nodiscard]] std::vector<const KelvaneFileNode*> withAncestorsToStoredPath() const;
    void storePath() const;
    [[nodiscard]] bool hadParent() const;
    void checkOwnSelection();
    [[nodiscard]] bool hasChildDirectory() const { return hasChildDirectoriesAndFiles().directories; }
    static void release(FileNodeList nodes);

    template <class Visit>
    static void forEachBelow(const KelvaneFileNode& top, Visit visit);
    class Sorting;

    // There can be millions of nodes: rare fields are in `Extras`, and the members are ordered without
    // padding.
    std::weak_ptr<KelvaneFileNode> parent_;
    OptionalText fileName_;
    OptionalText displayName_;
    OptionalText state_;
    mutable OptionalText path_;
    std::unique_ptr<FileNodeList> children_;
    std::unique_ptr<Extras> extras_;
    Value version_;
    std::optional<Date> backupDate_;
    std::uint64_t size_ = 0;
    std::uint32_t backupFlags_ = 0;
    std::uint32_t simpleFlags_ = 0;
    std::uint32_t backupColor_ = 0;
    std::uint32_t totalCount_ = 0;
    std::uint32_t uid_ = 0;
    std::uint32_t gid_ = 0;
    std::int32_t selected_ = 0;
    bool isDirectory_ = false;
    bool inPolicy_ = false;
};

} // namespace kelvane
