#pragma once

#include "Common/FileNode/FileNode.h"

#include <string>

namespace kelvane::tests {

// The names in their order, each with a space behind it.
inline std::string names(const FileNodeList& nodes) {
    std::string names;
    for (const FileNodeRef& node : nodes)
        names += node->fileName() + ' ';
    return names;
}

} // namespace kelvane::tests
