#pragma once

#include "Common/FileNode/FileNode.h"

#include <string>

namespace kelvane::tests {

// Returns the names in order, each followed by a space.
inline std::string names(const FileNodeList& nodes) {
    std::string names;
    for (const FileNodeRef& node : nodes)
        names += node->fileName() + ' ';
    return names;
}

} // namespace kelvane::tests
