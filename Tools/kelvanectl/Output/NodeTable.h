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

// Prints a header and a line for each item: its state, its size, when it was last backed up, and its name,
// which is last because it may have any width. On a terminal the name has the colour of the item's bullet in
// the settings pane. With --json, prints an array of the nodes' dictionaries.
[[nodiscard]] ExitStatus finishWithNodes(const CommandLine& line, const std::vector<NodeRow>& rows,
                                         Columns columns = Columns::Usual);

} // namespace kelvane::ctl
