#include "Common/FileNode/FileNode.h"
#include "Common/FileNode/FileNodeWalk.h"

namespace kelvane {
namespace {

constexpr std::int32_t none = 0;
constexpr std::int32_t full = 1;
constexpr std::int32_t partial = -1;

} // namespace

void KelvaneFileNode::setSelected(std::int32_t selected) {
    const FileNodeRef self = shared_from_this();
    if (selected != none)
        select();
    else
        deselect();
    if (const FileNodeRef parent = self->parent())
        parent->checkSelections();
}

void KelvaneFileNode::select() {
    // Loading asks the daemon, after which any list may have been dropped: a level therefore keeps its node
    // and reads the list again.
    struct Level {
        FileNodeRef node;
        std::size_t next = 0;
    };
    std::vector<Level> levels;
    const auto enter = [&levels](const FileNodeRef& node) {
        if (!node->backupDate_ && !node->isDirectory_)
            return;
        node->selected_ = full;
        node->loadChildren();
        if (node->children_)
            levels.push_back({node});
    };
    enter(shared_from_this());
    while (!levels.empty()) {
        Level& level = levels.back();
        const FileNodeList* list = level.node->children_.get();
        if (!list || level.next >= list->size()) {
            levels.pop_back();
            continue;
        }
        const FileNodeRef child = (*list)[level.next++];
        enter(child);
    }
}

void KelvaneFileNode::deselect() {
    selected_ = none;
    forEachBelow(*this, [](const FileNodeRef& node) {
        node->selected_ = none;
        return true;
    });
}

void KelvaneFileNode::checkSelections() {
    for (FileNodeRef node = shared_from_this(); node; node = node->parent())
        node->checkOwnSelection();
}

void KelvaneFileNode::checkOwnSelection() {
    loadChildren();
    std::size_t fullCount = 0;
    std::size_t partialCount = 0;
    const std::size_t childCount = children_ ? children_->size() : 0;
    for (std::size_t i = 0; i < childCount; ++i) {
        const std::int32_t state = (*children_)[i]->selected_;
        fullCount += state == full ? 1 : 0;
        partialCount += state == partial ? 1 : 0;
    }
    if (fullCount == childCount)
        selected_ = full;
    else
        selected_ = fullCount + partialCount > 0 ? partial : none;
}

FileNodeList KelvaneFileNode::selectedChildren(bool expandFullFolders) const {
    FileNodeList list;
    forEachBelow(*this, [&](const FileNodeRef& node) {
        const bool isWhole = node->selected_ == full && !(expandFullFolders && node->isDirectory_);
        if (isWhole)
            list.push_back(node);
        return !isWhole && node->selected_ != none;
    });
    return list;
}

FileNodeList KelvaneFileNode::deepestFullSelections() const {
    FileNodeList list;
    forEachBelow(*this, [&list](const FileNodeRef& node) {
        const bool isDeepest = node->selected_ == full && !(node->isDirectory_ && node->hasChildDirectory());
        if (isDeepest)
            list.push_back(node);
        return !isDeepest && node->selected_ != none;
    });
    return list;
}

} // namespace kelvane
