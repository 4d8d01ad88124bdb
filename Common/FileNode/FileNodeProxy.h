#pragma once

#include "Common/FileNode/FileNode.h"

namespace kelvane {

// A node that asks the daemon for its children the first time somebody wants them, and again after `flush`.
// The children are plain nodes.
//
// The link to the daemon is not owned: once it has gone, the node behaves as one without a link. Every call
// that goes to the daemon blocks until it answers, and may end with the link gone and the tree changed by
// whoever was told so. One for a node without a path throws std::invalid_argument: there is nothing to ask
// for.
class KelvaneFileNodeProxy : public KelvaneFileNode {
public:
    using KelvaneFileNode::KelvaneFileNode;

    [[nodiscard]] static std::shared_ptr<KelvaneFileNodeProxy> create();
    [[nodiscard]] static std::shared_ptr<KelvaneFileNodeProxy> create(std::string_view fileName,
                                                                      bool isDirectory);
    // Would make a plain node.
    static FileNodeRef createWithDictionary(const Value& dictionary) = delete;

    [[nodiscard]] std::shared_ptr<KelvaneProxy> proxy() const { return proxy_.lock(); }
    void setProxy(std::weak_ptr<KelvaneProxy> proxy) { proxy_ = std::move(proxy); }

    // A child of this class gets this node's link.
    void addChild(const FileNodeRef& child) override;
    void flush() override;

    // Makes every missing node on the way from the root to an absolute path, each with what the daemon says
    // of it, and returns the last one.
    FileNodeRef addPath(std::string_view path, const FileServices& services);
    // Asks the daemon about a path that has changed, and updates, adds or removes its node. The path is
    // relative to this node, as the daemon's notices have it.
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
