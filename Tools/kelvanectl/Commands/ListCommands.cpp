#include "Common/FileNode/FileNodeProxy.h"
#include "Foundation/PathComponents.h"
#include "Tools/kelvanectl/Arguments/PathArgument.h"
#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/Connection/Session.h"
#include "Tools/kelvanectl/Output/NodeTable.h"
#include "Tools/kelvanectl/Output/Terminal.h"

#include <algorithm>

namespace kelvane::ctl {
namespace {

// No valid path has more components.
constexpr unsigned deepestListing = 2048;

NodeRow rowOf(const FileNodeRef& node, unsigned level = 0) {
    return {node, node->displayName(), level};
}

// Skips nodes without a name, which can be neither shown nor requested.
FileNodeList childrenOf(Session& session, const std::string& path) {
    const auto folder = KelvaneFileNodeProxy::create(lastPathComponent(path), true);
    folder->setPath(path);
    folder->setProxy(session.state().proxy());
    FileNodeList children = folder->children();
    std::erase_if(children, [](const FileNodeRef& child) { return child->fileName().empty(); });
    return children;
}

// Returns each item before its contents.
std::vector<NodeRow> rowsBelow(Session& session, const std::string& path, unsigned depth) {
    std::vector<NodeRow> rows;
    std::vector<NodeRow> waiting; // A stack: the next one is the last.
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

struct Listing {
    std::string path;
    unsigned depth = 1;
    bool withFlags = false;
};

ExitStatus list(const CommandLine& line, const Listing& listing) {
    const std::string path = volumePathFromText(listing.path, Volumes::current());
    FileNodeRef node;
    std::vector<NodeRow> rows;
    const ExitStatus status = askDaemon(line, [&](Session& session) {
        node = KelvaneFileNode::fileNodeForPath(path, session.state().proxy());
        if (node)
            rows = node->isDirectory() ? rowsBelow(session, path, listing.depth) : std::vector{rowOf(node)};
    });
    if (status != ExitStatus::Success)
        return status;
    return node ? finishWithNodes(line, rows, listing.withFlags ? Columns::WithFlags : Columns::Usual)
                : complain(ExitStatus::Usage, shownPath(path) + ": " + unknownPath);
}

std::shared_ptr<Listing> declareListing(CLI::App& command) {
    const auto listing = std::make_shared<Listing>();
    command.add_option("PATH", listing->path, "A folder, or a single file")->required();
    command.add_flag("-l,--long", listing->withFlags, "Show sizes in bytes, rules and backup flags, too");
    return listing;
}

} // namespace

Action declareLs(CLI::App& command) {
    const auto listing = declareListing(command);
    return [listing](const CommandLine& line) { return list(line, *listing); };
}

Action declareChildren(CLI::App& command) {
    const auto listing = declareListing(command);
    command.add_option("--depth", listing->depth, "How many levels deep (default: 1)")
        ->check(CLI::Range(1U, deepestListing))
        ->type_name("N");
    return [listing](const CommandLine& line) { return list(line, *listing); };
}

} // namespace kelvane::ctl
