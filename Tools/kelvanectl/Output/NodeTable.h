#pragma once

#include "Common/FileNode/FileNode.h"
#include "Tools/kelvanectl/Arguments/CommandLine.h"

#include <string>
#include <vector>

namespace kelvane::ctl {

struct NodeRow {
    FileNodeRef node;
    std::string name;
    unsigned level = 0; // The indentation of the name.
};

enum class Columns { Usual, WithFlags };

// A line for each item below a header: its state, its size, when it was last backed up, and its name, which
// may be of any width and therefore stands last. On a terminal the name has the colour of the bullet that the
// settings pane shows beside it. For programs an array of the nodes' dictionaries.
[[nodiscard]] ExitStatus finishWithNodes(const CommandLine& line, const std::vector<NodeRow>& rows,
                                         Columns columns = Columns::Usual);

} // namespace kelvane::ctl
