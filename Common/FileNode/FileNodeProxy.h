#pragma once

#include "Common/FileNode/FileNode.h"

namespace kelvane {

// A node that asks the daemon for its children at the first access, and again after `flush`. The children are
// plain nodes.
//
// The link to the daemon is not owned; once it is destroyed, the node behaves as one without a link. Every
// call to the daemon blocks until the answer arrives or the link is lost, and whoever is notified of a lost
// link may change the tree during the call. A request for a node without a path throws std::invalid_argument.
class KelvaneFileNodeProxy : public KelvaneFileNode {
public:
    using KelvaneFileNode::KelvaneFileNode;

    [[nodiscard]] static std::shared_ptr<KelvaneFileNodeProxy> create();
    [[nodiscard]] static std::shared_ptr<KelvaneFileNodeProxy> create(std::string_view fileName,
                                                                      bool isDirectory);
    // Deleted because it would create a plain node.
    static FileNodeRef createWithDictionary(const Value& dictionary) = delete;

    [[nodiscard]] std::shared_ptr<KelvaneProxy> proxy() const { return proxy_.lock(); }
    void setProxy(std::weak_ptr<KelvaneProxy> proxy) { proxy_ = std::move(proxy); }

    // A child of this class gets this node's link to the daemon.
    void addChild(const FileNodeRef& child) override;
    void flush() override;

    // Creates every missing node from the root down to an absolute path, fills each with the daemon's answer
    // if there is one, and returns the node of the path.
    FileNodeRef addPath(std::string_view path, const FileServices& services);
    // Asks the daemon about a changed path and updates, adds or removes its node. The path is relative to
    // this node, as in the daemon's notifications.
    void refreshPath(std::string_view path, const FileServices& services);

protected:
    [[nodiscard]] FileNodeRef newOfSameClass() const override { return create(); }
    [[nodiscard]] std::string_view className() const override { return "KelvaneFileNodeProxy"; }
    void loadChildren() override;

private:
    [[nodiscard]] FileNodeRef addNode(const FileNodeRef& parent, std::string_view name,
                                      bool isDirectory) const;

    std::weak_ptr<KelvaneProxy> proxy_;
    bool childrenLoaded_ = false;
};

} // namespace kelvane
