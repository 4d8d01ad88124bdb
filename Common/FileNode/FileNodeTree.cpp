#include "Common/FileNode/FileNode.h"

#include "Common/FileNode/FileNodeWalk.h"
#include "Foundation/PathComponents.h"

#include <algorithm>
#include <iterator>

namespace kelvane {

FileNodeRef KelvaneFileNode::root() {
    FileNodeRef node = shared_from_this();
    while (FileNodeRef parent = node->parent())
        node = std::move(parent);
    return node;
}

// The members that load children hold a reference to this node: loading asks the daemon, and a delegate that
// is told of a lost link meanwhile may drop the node.

FileNodeList KelvaneFileNode::children() {
    const FileNodeRef self = shared_from_this();
    const FileNodeList* list = mutableChildren();
    return list ? *list : FileNodeList();
}

FileNodeList* KelvaneFileNode::mutableChildren() {
    const FileNodeRef self = shared_from_this();
    loadChildren();
    return self.use_count() > 1 ? children_.get() : nullptr;
}

std::size_t KelvaneFileNode::count() {
    const FileNodeRef self = shared_from_this();
    const FileNodeList* list = mutableChildren();
    return list ? list->size() : 0;
}

void KelvaneFileNode::addChild(const FileNodeRef& child) {
    if (!child)
        return;
    if (!children_)
        children_ = std::make_unique<FileNodeList>();
    children_->push_back(child);
    child->parent_ = shared_from_this();
}

void KelvaneFileNode::removeChild(const KelvaneFileNode& node) {
    const std::string path = node.path();
    if (!children_ || path.empty())
        return;
    const auto removed =
        std::stable_partition(children_->begin(), children_->end(),
                              [&](const FileNodeRef& child) { return child->path() != path; });
    FileNodeList leaving(std::make_move_iterator(removed), std::make_move_iterator(children_->end()));
    children_->erase(removed, children_->end());
    release(std::move(leaving));
}

FileNodeRef KelvaneFileNode::childWithName(std::string_view name) {
    const FileNodeRef self = shared_from_this();
    loadChildren();
    if (!children_)
        return nullptr;
    const auto found = std::ranges::find_if(*children_, [name](const FileNodeRef& child) {
        return child->fileName_.isPresent() && child->fileName_.view() == name;
    });
    return found == children_->end() ? nullptr : *found;
}

FileNodeRef KelvaneFileNode::nodeAtPath(std::string_view path) {
    const std::vector<std::string> components = pathComponents(path);
    FileNodeRef node = root();
    for (std::size_t i = 1; node && i < components.size(); ++i)
        node = node->childWithName(components[i]);
    return node;
}

void KelvaneFileNode::removeNodeAtPath(std::string_view path) {
    const FileNodeRef node = nodeAtPath(path);
    if (const FileNodeRef parent = node ? node->parent() : nullptr)
        parent->removeChild(*node);
}

KelvaneFileNode::ChildKinds KelvaneFileNode::hasChildDirectoriesAndFiles() const {
    ChildKinds kinds;
    if (children_) {
        for (const FileNodeRef& child : *children_)
            (child->isDirectory_ ? kinds.directories : kinds.files) = true;
    }
    return kinds;
}

std::uint64_t KelvaneFileNode::sizeValue() const {
    std::uint64_t sum = size_;
    forEachBelow(*this, [&sum](const FileNodeRef& node) {
        sum += node->size_;
        return true;
    });
    return sum;
}

void KelvaneFileNode::flush() {
    if (extras_)
        extras_->image.reset();
    dropChildren();
}

void KelvaneFileNode::startChildList(std::size_t expectedCount) {
    dropChildren();
    children_ = std::make_unique<FileNodeList>();
    children_->reserve(expectedCount);
}

void KelvaneFileNode::dropChildren() {
    if (const std::unique_ptr<FileNodeList> list = std::move(children_))
        release(std::move(*list));
}

// Releases the nodes and everything below them that nobody else holds. Folders are destroyed last, so that
// nodes held elsewhere can still compute their paths.
void KelvaneFileNode::release(FileNodeList nodes) {
    FileNodeList folders;
    while (!nodes.empty()) {
        FileNodeRef node = std::move(nodes.back());
        nodes.pop_back();
        if (node.use_count() > 1) {
            if (node->path_.view().empty())
                node->storePath();
        } else if (const std::unique_ptr<FileNodeList> list = std::move(node->children_)) {
            nodes.insert(nodes.end(), std::move_iterator(list->begin()), std::move_iterator(list->end()));
            folders.push_back(std::move(node));
        }
    }
}

} // namespace kelvane
