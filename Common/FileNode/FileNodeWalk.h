#pragma once

#include "Common/FileNode/FileNode.h"

namespace kelvane {

// Calls `visit` for the loaded nodes below `top` in depth-first order, each before its children, which follow
// only when `visit` returns true. `visit` may sort the children of its node and must not change any list
// otherwise.
template <class Visit>
void KelvaneFileNode::forEachBelow(const KelvaneFileNode& top, Visit visit) {
    struct Level {
        const FileNodeList* list;
        std::size_t next = 0;
    };
    std::vector<Level> levels;
    if (top.children_)
        levels.push_back({top.children_.get()});
    while (!levels.empty()) {
        Level& level = levels.back();
        if (level.next == level.list->size()) {
            levels.pop_back();
            continue;
        }
        const FileNodeRef& node = (*level.list)[level.next++];
        if (visit(node) && node->children_)
            levels.push_back({node->children_.get()});
    }
}

} // namespace kelvane
