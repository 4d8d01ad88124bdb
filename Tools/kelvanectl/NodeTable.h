#pragma once

#include "Common/FileNode.h"
#include "Tools/kelvanectl/CommandLine.h"

#include <string>
#include <vector>

namespace kelvane::ctl {

struct NodeRow {
    FileNodeRef node;
    std::string name;
    unsigned level = 0; // how far the name is indented
};

// A line for each: backup flags, colour, size in bytes, backup date, and the name, which may be of any width
// and therefore stands last. For programs an array of the nodes' dictionaries.
[[nodiscard]] ExitStatus finishWithNodes(const CommandLine& line, const std::vector<NodeRow>& rows);

} // namespace kelvane::ctl
