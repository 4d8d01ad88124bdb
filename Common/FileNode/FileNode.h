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

// What a folder's items are sorted by. Texts go by code point, an absent one first; a date that is absent is
// earlier than any other. Size is `sizeValue`.
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

// One file or folder as the backup knows it, and its place in a tree of them.
//
// Ownership. A node owns its children and refers to its parent weakly. Whoever holds a node may keep it for
// as long as he likes: when the tree around it goes, it keeps its fields, its own children, and its path,
// which it stores at that moment. Only a flush or a removal leaves it the parent that it had.
//
// No operation recurses: a tree may be as deep as memory allows. A tree belongs to one thread at a time.
// Nothing fails, except where an operation says so; an absent field reads as empty, 0 or false.
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
    // From the local disk; a path where nothing is gives a node with names only.
    [[nodiscard]] static FileNodeRef fileNodeForPath(const std::string& path, const FileServices& services);
    // From the daemon; null when it does not know the path and when there is no proxy. The node has the path
    // asked for.
    [[nodiscard]] static FileNodeRef fileNodeForPath(const std::string& path,
                                                     const std::shared_ptr<KelvaneProxy>& fromProxy);
    // `withDirSizes`: the daemon adds up what is in a folder.
    [[nodiscard]] static FileNodeRef fileNodeForPath(const std::string& path, bool withDirSizes,
                                                     const std::shared_ptr<KelvaneProxy>& fromProxy);
    // Without the paths that the daemon does not know.
    [[nodiscard]] static FileNodeList fileNodesForPaths(std::span<const std::string> paths,
                                                        const std::shared_ptr<KelvaneProxy>& fromProxy);
    // What is no dictionary in the array is left out.
    [[nodiscard]] static FileNodeList fileNodesForDictionaries(const Value& dictionaries);

    // All fields from a dictionary; also on a node inside a tree, which stays where it is, and keeps its
    // children when the dictionary has no such key. The path is the dictionary's, without one it is computed
    // anew.
    void initWithDictionary(const Value& dictionary);
    [[nodiscard]] Value dictionary() const;
    // With the children that are loaded.
    [[nodiscard]] Value recursiveDictionary() const;
    // A node of the same class and parent with the same children (their parent stays this node), without
    // flags and colour, and with the path that it has there.
    [[nodiscard]] FileNodeRef copy() const;
    // Clears names, dates, version, state and icon.
    void cleanup();

    [[nodiscard]] std::string fileName() const { return std::string(fileName_.view()); }
    void setFileName(std::optional<std::string_view> name) { fileName_ = OptionalText(name); }
    // The file name when there is none.
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
    // None: never backed up.
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

    // Bytes: its own and those of everything loaded below it. What is set is its own.
    [[nodiscard]] std::uint64_t sizeValue() const;
    [[nodiscard]] Value size() const { return Value(sizeValue()); }
    void setSizeValue(std::uint64_t size) { size_ = size; }
    void setSize(const Value& number) { size_ = number.uint64Value(); }

    // Stored, or the parent's with the file name appended, which is then stored and never computed again.
    // Empty for a root without one, and for everything below it.
    [[nodiscard]] std::string path() const;
    // Throws AssertionFailure on a node that has a parent.
    void setPath(std::string_view path);

    [[nodiscard]] std::uint32_t backupPriority() const { return backupFlags_ & Backup_Priority; }
    [[nodiscard]] bool isBackup() const { return (backupFlags_ & Backup_Backup) != 0; }
    [[nodiscard]] bool isExcluded() const { return (backupFlags_ & Backup_Exclude) != 0; }
    [[nodiscard]] bool isNotActive() const { return (backupFlags_ & Backup_Not_Active) != 0; }
    [[nodiscard]] bool isFolder() const { return (backupFlags_ & Backup_Folder) != 0; }
    [[nodiscard]] bool isMissing() const { return (backupFlags_ & Backup_Missing) != 0; }
    // A folder that the user sees as one thing.
    [[nodiscard]] bool isBundle();
    [[nodiscard]] bool showInRestoreBrowser(const FileServices& services) const;
    // The same path; a node without one equals nothing.
    [[nodiscard]] bool isEqual(const KelvaneFileNode& other) const;

    [[nodiscard]] std::string backupDateString(const FileServices& services) const;
    [[nodiscard]] std::string uidString(const Accounts& accounts) const;
    [[nodiscard]] std::string gidString(const Accounts& accounts) const;
    // Empty for a number that is no colour.
    [[nodiscard]] std::string backupColorString() const;
    [[nodiscard]] std::string backupFlagsString() const;
    [[nodiscard]] std::string simpleFlagsString() const;
    // Many lines, for the log.
    [[nodiscard]] std::string description() const;
    // A folder without a parent counts as a disk.
    [[nodiscard]] std::string kind(const FileServices& services) const;
    // The same for a node that was made by its path and so has no parent: a disk only where the path is
    // one's.
    [[nodiscard]] std::string kindByPath(const FileServices& services) const;
    // Fetched once and kept until `flush`; null when the machine has none.
    [[nodiscard]] IconHandle image(const FileServices& services);

    [[nodiscard]] FileNodeRef parent() const { return parent_.lock(); }
    // Stores the path that it has there: this alone does not put it into the parent's list.
    void setParent(const FileNodeRef& parent);
    [[nodiscard]] FileNodeRef root();
    // A snapshot, empty when there are none.
    [[nodiscard]] FileNodeList children();
    // The list itself, null when there is none; it goes with the node, and when the node drops it.
    [[nodiscard]] FileNodeList* mutableChildren();
    // Whether there is a list of children, be it an empty one; asks nobody.
    [[nodiscard]] bool hasChildList() const { return children_ != nullptr; }
    [[nodiscard]] std::size_t count();
    // At the end of the list, whatever is in it; null is ignored.
    virtual void addChild(const FileNodeRef& child);
    // Every child that equals the node; its parent stays what it was.
    void removeChild(const KelvaneFileNode& node);
    // The first one of exactly this name, or null.
    [[nodiscard]] FileNodeRef childWithName(std::string_view name);
    // From the root down by names. The first component stands for the root, whatever it is and whatever the
    // root is called; a path of one component or none is the root. Null when there is no such node.
    [[nodiscard]] FileNodeRef nodeAtPath(std::string_view path);
    void removeNodeAtPath(std::string_view path);
    // Everything loaded below this node, stably.
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
    // Selects or deselects, then tells the ancestors.
    void setSelected(std::int32_t selected);
    // This node and all below it, children being loaded on the way; but a file that was never backed up stays
    // as it is.
    void select();
    // This node and all that is loaded below it.
    void deselect();
    // From the children: all selected 1 (also when there are none), none 0, else -1. Then the parent, up to
    // the root.
    void checkSelections();
    // The topmost selected items below this node in the order of the children; or, with `expandFullFolders`,
    // the selected files.
    [[nodiscard]] FileNodeList selectedChildren(bool expandFullFolders) const;
    // The selected items below this node, pushed down to the deepest folders that hold only files.
    [[nodiscard]] FileNodeList deepestFullSelections() const;

protected:
    [[nodiscard]] virtual FileNodeRef newOfSameClass() const { return create(); }
    [[nodiscard]] virtual std::string_view className() const { return "KelvaneFileNode"; }
    // Makes sure that the child list is what it should be, before somebody asks for it.
    virtual void loadChildren() {}

    void dropChildren();
    void startChildList(std::size_t expectedCount);

private:
    // Few nodes have one.
    struct Extras {
        std::optional<Date> purgeDate;
        IconHandle image;
    };
    struct WordKey {
        std::string_view key;
        std::uint32_t KelvaneFileNode::*word;
    };
    static const WordKey wordKeys[6];

    class Room;
    void readTree(const Value& dictionary, Room& room);
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

    // Millions of these are held: nothing stands here that most nodes do without, and order leaves no gaps.
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
