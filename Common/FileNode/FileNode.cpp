#include "Common/FileNode/FileNode.h"

#include "Foundation/Assertion.h"
#include "Foundation/PathComponents.h"
#include "Support/PathHelpers.h"

#include <algorithm>

namespace kelvane {
namespace {

// A path longer than any system path is stored only in the node that was asked for it, not in its ancestors
// as well: in a chain of folders 100,000 deep, one path for each folder would exhaust the memory.
constexpr std::size_t maxStoredAncestorPath = 4096;

void extend(std::string& path, std::string_view name) {
    if (name.empty() || name.find('/') != std::string_view::npos) {
        path = appendPathComponent(path, name);
        return;
    }
    if (!path.ends_with('/'))
        path += '/';
    path += name;
}

} // namespace

KelvaneFileNode::~KelvaneFileNode() {
    if (!children_)
        return;
    // The children lose their parent, but those that somebody holds must keep their paths.
    const std::string ownPath = path();
    for (const FileNodeRef& child : *children_) {
        const bool isNeeded = child.use_count() > 1 || child->children_;
        if (isNeeded && !ownPath.empty() && child->hadParent() && !child->parent() &&
            child->fileName_.isPresent() && child->path_.view().empty())
            child->path_ = OptionalText(appendPathComponent(ownPath, child->fileName_.view()));
    }
    dropChildren();
}

FileNodeRef KelvaneFileNode::create() {
    return std::make_shared<KelvaneFileNode>(Passkey());
}

FileNodeRef KelvaneFileNode::create(std::string_view fileName, bool isDirectory) {
    FileNodeRef node = create();
    node->setFileName(fileName);
    node->setIsDirectory(isDirectory);
    return node;
}

FileNodeRef KelvaneFileNode::createWithDictionary(const Value& dictionary) {
    FileNodeRef node = create();
    node->initWithDictionary(dictionary);
    return node;
}

FileNodeRef KelvaneFileNode::fileNodeForPath(const std::string& path, const FileServices& services) {
    const FileSystem& fileSystem = services.fileSystem();
    FileNodeRef node = create(lastPathComponent(path), fileSystem.isDirectory(path));
    node->setPath(path);
    node->setDisplayName(fileSystem.displayName(path));
    const bool exists = fileSystem.exists(path);
    if (const std::optional<FileAttributes> attributes =
            exists ? fileSystem.attributes(path) : std::nullopt) {
        node->setSizeValue(attributes->size);
        node->setUid(attributes->uid);
        node->setGid(attributes->gid);
    }
    return node;
}

FileNodeRef KelvaneFileNode::copy() const {
    FileNodeRef copy = newOfSameClass();
    copy->parent_ = parent_;
    copy->fileName_ = fileName_;
    copy->displayName_ = displayName_;
    copy->isDirectory_ = isDirectory_;
    copy->children_ = children_ ? std::make_unique<FileNodeList>(*children_) : nullptr;
    copy->selected_ = selected_;
    copy->state_ = state_;
    copy->backupDate_ = backupDate_;
    copy->version_ = version_;
    copy->extras_ = extras_ ? std::make_unique<Extras>(*extras_) : nullptr;
    copy->totalCount_ = totalCount_;
    copy->size_ = size_;
    copy->uid_ = uid_;
    copy->gid_ = gid_;
    copy->inPolicy_ = inPolicy_;
    if (hadParent() && !parent())
        copy->path_ = path_;
    else
        // The copy is not in the parent's list: the parent would not store its path when it is destroyed.
        copy->storePath();
    return copy;
}

void KelvaneFileNode::cleanup() {
    fileName_ = {};
    displayName_ = {};
    backupDate_.reset();
    version_ = {};
    state_ = {};
    extras_.reset();
}

std::optional<std::string_view> KelvaneFileNode::shownName() const {
    return displayName_.isPresent() ? displayName_.text() : fileName_.text();
}

std::optional<Date> KelvaneFileNode::purgeDate() const {
    return extras_ ? extras_->purgeDate : std::nullopt;
}

void KelvaneFileNode::setPurgeDate(std::optional<Date> date) {
    if (!extras_ && date)
        extras_ = std::make_unique<Extras>();
    if (extras_)
        extras_->purgeDate = date;
}

std::string KelvaneFileNode::path() const {
    if (path_.view().empty())
        storePath();
    return std::string(path_.view());
}

void KelvaneFileNode::storePath() const {
    const std::vector<const KelvaneFileNode*> chain = withAncestorsToStoredPath();
    if (chain.back()->path_.view().empty())
        return;
    std::string path = appendPathComponent(chain.back()->path_.view(), {}); // removes doubled separators
    for (auto at = chain.rbegin() + 1; at != chain.rend(); ++at) {
        const KelvaneFileNode& node = **at;
        if (!node.fileName_.isPresent())
            return;
        extend(path, node.fileName_.view());
        if (&node == this || path.size() <= maxStoredAncestorPath)
            node.path_ = OptionalText(path);
    }
}

// Starts with this node; the last one has a stored path or is a root.
std::vector<const KelvaneFileNode*> KelvaneFileNode::withAncestorsToStoredPath() const {
    std::vector<const KelvaneFileNode*> chain{this};
    for (FileNodeRef parent = parent_.lock(); parent && chain.back()->path_.view().empty();
         parent = parent->parent_.lock())
        chain.push_back(parent.get());
    return chain;
}

void KelvaneFileNode::setPath(std::string_view path) {
    if (parent())
        throw AssertionFailure("You cannot set the path string of a node in a real hierarchy",
                               "Common/FileNode", __LINE__);
    path_ = OptionalText(path);
}

void KelvaneFileNode::setParent(const FileNodeRef& parent) {
    parent_ = parent;
    if (path_.view().empty())
        storePath();
}

// True also when the parent has been destroyed.
bool KelvaneFileNode::hadParent() const {
    const std::weak_ptr<KelvaneFileNode> none;
    return parent_.owner_before(none) || none.owner_before(parent_);
}

bool KelvaneFileNode::isBundle() {
    const FileNodeRef self = shared_from_this();
    loadChildren();
    return children_ && std::ranges::any_of(*children_, [](const FileNodeRef& child) {
               return child->fileName_.view() == "Contents";
           });
}

bool KelvaneFileNode::showInRestoreBrowser(const FileServices& services) const {
    const std::string ownPath = path();
    const FileSystem& fileSystem = services.fileSystem();
    if (fileSystem.exists(ownPath) && !fileSystem.isReadable(ownPath))
        return false;
    return isBackup() || (isFolder() && !isNotActive());
}

bool KelvaneFileNode::isEqual(const KelvaneFileNode& other) const {
    const std::string ownPath = path();
    return !ownPath.empty() && ownPath == other.path();
}

std::string KelvaneFileNode::kind(const FileServices& services) const {
    if (isDirectory_)
        return hadParent() ? services.kindOfFolder() : services.kindOfDisk();
    const std::string extension = pathExtension(fileName_.view());
    if (std::string kind = extension.empty() ? std::string() : services.kindOfExtension(extension);
        !kind.empty())
        return kind;
    return services.isAlias(path()) ? "Alias" : "";
}

std::string KelvaneFileNode::kindByPath(const FileServices& services) const {
    const std::string ownPath = path();
    const bool isFolder = isDirectory_ && ownPath != "/" && !kelv_isVolumePath(ownPath);
    return isFolder ? services.kindOfFolder() : kind(services);
}

IconHandle KelvaneFileNode::image(const FileServices& services) {
    if (extras_ && extras_->image)
        return extras_->image;
    const std::string ownPath = path();
    IconHandle icon = services.fileSystem().exists(ownPath) ? services.iconOfFile(ownPath) : nullptr;
    const std::string extension = pathExtension(fileName_.view());
    if (!icon && isDirectory_)
        icon = services.iconOfFolder();
    else if (!icon && kelv_isVolumePath(ownPath))
        icon = services.iconOfDisk();
    else if (!icon && !extension.empty())
        icon = services.iconOfExtension(extension);
    if (icon && !extras_)
        extras_ = std::make_unique<Extras>();
    if (icon)
        extras_->image = icon;
    return icon;
}

} // namespace kelvane
