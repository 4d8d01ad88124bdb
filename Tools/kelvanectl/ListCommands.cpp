#include "Common/FileNodeProxy.h"
#include "Foundation/PathComponents.h"
#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/NodeTable.h"
#include "Tools/kelvanectl/PathArgument.h"
#include "Tools/kelvanectl/Session.h"
#include "Tools/kelvanectl/Terminal.h"

#include <algorithm>

namespace kelvane::ctl {
namespace {

// No path that the system takes names more folders.
constexpr unsigned deepestListing = 2048;

NodeRow rowOf(const FileNodeRef& node, unsigned level = 0) {
    return {node, node->displayName(), level};
}

// Without what has no name, and so is nothing that could be shown or asked for.
FileNodeList childrenOf(Session& session, const std::string& path) {
    const auto folder = KelvaneFileNodeProxy::create(lastPathComponent(path), true);
    folder->setPath(path);
    folder->setProxy(session.state().proxy());
    FileNodeList children = folder->children();
    std::erase_if(children, [](const FileNodeRef& child) { return child->fileName().empty(); });
    return children;
}

// Each item before what is in it.
std::vector<NodeRow> rowsBelow(Session& session, const std::string& path, unsigned depth) {
    std::vector<NodeRow> rows;
    std::vector<NodeRow> waiting; // the next one is the last
    const auto enter = [&](const std::string& folder, unsigned level) {
        const FileNodeList children = childrenOf(session, folder);
        std::for_each(children.rbegin(), children.rend(),
                      [&](const FileNodeRef& child) { waiting.push_back(rowOf(child, level)); });
    };
    for (enter(path, 0); !waiting.empty();) {
        rows.push_back(std::move(waiting.back()));
        waiting.pop_back();
        const auto [node, name, level] = rows.back();
        if (node->isDirectory() && level + 1 < depth)
            enter(node->path(), level + 1);
    }
    return rows;
}

ExitStatus list(const CommandLine& line, const std::string& path, unsigned depth) {
    FileNodeRef node;
    std::vector<NodeRow> rows;
    const ExitStatus status = askDaemon(line, [&](Session& session) {
        node = KelvaneFileNode::fileNodeForPath(path, session.state().proxy());
        if (node)
            rows = node->isDirectory() ? rowsBelow(session, path, depth) : std::vector{rowOf(node)};
    });
    if (status != ExitStatus::Success)
        return status;
    return node ? finishWithNodes(line, rows)
                : complain(ExitStatus::Usage, printableName(path) + ": " + unknownPath);
}

} // namespace

ExitStatus runLs(CommandLine& line) {
    std::string path;
    line.parse([&](CLI::App& options) { options.add_option("PATH", path)->required(); });
    return list(line, volumePathFromText(path, Volumes::current()), 1);
}

ExitStatus runChildren(CommandLine& line) {
    std::string path;
    unsigned depth = 1;
    line.parse([&](CLI::App& options) {
        options.add_option("PATH", path)->required();
        options.add_option("--depth", depth)->check(CLI::Range(1U, deepestListing));
    });
    return list(line, volumePathFromText(path, Volumes::current()), depth);
}

} // namespace kelvane::ctl
