#include "Common/FileNode/FileNodeProxy.h"

#include "Common/KelvProxy.h"
#include "Foundation/PathComponents.h"
#include "Support/Logging.h"

namespace kelvane {
namespace {

// Absent for a node without a path, for which nothing can be requested: the empty path means the list of
// volumes.
Value pathOf(const KelvaneFileNode& node) {
    std::string path = node.path();
    return path.empty() ? Value() : Value(std::move(path));
}

FileNodeRef nodeFromAnswer(const Value& dictionary, const std::string& path) {
    if (!dictionary.isDictionary())
        return nullptr;
    FileNodeRef node = KelvaneFileNode::createWithDictionary(dictionary);
    node->setPath(path);
    return node;
}

} // namespace

FileNodeRef KelvaneFileNode::fileNodeForPath(const std::string& path,
                                             const std::shared_ptr<KelvaneProxy>& fromProxy) {
    return fileNodeForPath(path, false, fromProxy);
}

FileNodeRef KelvaneFileNode::fileNodeForPath(const std::string& path, bool withDirSizes,
                                             const std::shared_ptr<KelvaneProxy>& fromProxy) {
    if (!fromProxy)
        return nullptr;
    return nodeFromAnswer(fromProxy->call<"dictionaryForPath:withDirSizes:">(path, withDirSizes), path);
}

FileNodeList KelvaneFileNode::fileNodesForPaths(std::span<const std::string> paths,
                                                const std::shared_ptr<KelvaneProxy>& fromProxy) {
    FileNodeList nodes;
    for (const std::string& path : paths)
        if (FileNodeRef node = fileNodeForPath(path, fromProxy))
            nodes.push_back(std::move(node));
    return nodes;
}

std::shared_ptr<KelvaneFileNodeProxy> KelvaneFileNodeProxy::create() {
    return std::make_shared<KelvaneFileNodeProxy>(Passkey());
}

std::shared_ptr<KelvaneFileNodeProxy> KelvaneFileNodeProxy::create(std::string_view fileName,
                                                                   bool isDirectory) {
    std::shared_ptr<KelvaneFileNodeProxy> node = create();
    node->setFileName(fileName);
    node->setIsDirectory(isDirectory);
    return node;
}

void KelvaneFileNodeProxy::loadChildren() {
    const std::shared_ptr<KelvaneProxy> link = childrenLoaded_ ? nullptr : proxy();
    if (!link)
        return;
    const FileNodeRef self = shared_from_this();
    const Value path = pathOf(*this);
    childrenLoaded_ = !path.isAbsent(); // set before the call, so that a flush during the call resets it
    const Value answer = link->call<"childrenDictionariesForPath:">(path);
    if (!answer.isArray())
        return;
    const FileNodeList nodes = fileNodesForDictionaries(answer);
    startChildList(nodes.size());
    for (const FileNodeRef& node : nodes)
        addChild(node);
}

void KelvaneFileNodeProxy::addChild(const FileNodeRef& child) {
    KelvaneFileNode::addChild(child);
    if (const auto proxyChild = std::dynamic_pointer_cast<KelvaneFileNodeProxy>(child))
        proxyChild->setProxy(proxy_);
}

void KelvaneFileNodeProxy::flush() {
    childrenLoaded_ = false;
    KelvaneFileNode::flush();
}

FileNodeRef KelvaneFileNodeProxy::addPath(std::string_view path, const FileServices& services) {
    const std::vector<std::string> components = pathComponents(path);
    const bool isDirectory = services.fileSystem().isDirectory(std::string(path));
    const FileNodeRef self = shared_from_this();
    FileNodeRef node = root();
    for (std::size_t i = 1; i < components.size(); ++i) {
        const bool isLast = i + 1 == components.size();
        FileNodeRef child = node->childWithName(components[i]);
        node = child ? child : addNode(node, components[i], !isLast || isDirectory);
    }
    return node;
}

FileNodeRef KelvaneFileNodeProxy::addNode(const FileNodeRef& parent, std::string_view name,
                                          bool isDirectory) const {
    FileNodeRef node = KelvaneFileNode::create(name, isDirectory);
    parent->addChild(node);
    if (const std::shared_ptr<KelvaneProxy> link = proxy()) {
        const Value answer = link->call<"dictionaryForPath:">(pathOf(*node));
        if (answer.isDictionary())
            node->initWithDictionary(answer);
    }
    return node;
}

void KelvaneFileNodeProxy::refreshPath(std::string_view path, const FileServices& services) {
    const FileNodeRef self = shared_from_this();
    const std::string name = fileName();
    const std::string fullPath = name == "/" ? std::string(path) : appendPathComponent(name, path);
    const std::shared_ptr<KelvaneProxy> link = proxy();
    const Value answer = link ? link->call<"dictionaryForPath:">(fullPath) : Value();
    KelvaneCLog("refreshPath: %@\n%@", fullPath, answer);
    if (!answer.isDictionary())
        removeNodeAtPath(path);
    else if (const FileNodeRef node = nodeAtPath(path))
        node->initWithDictionary(answer);
    else
        addPath(path, services);
}

} // namespace kelvane
