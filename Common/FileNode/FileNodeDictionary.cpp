#include "Common/FileNode/FileNode.h"

#include "Foundation/PathComponents.h"
#include "Support/Logging.h"

#include <algorithm>
#include <utility>

namespace kelvane {
namespace {

std::optional<std::string_view> textOf(const Value& value) {
    return value.isString() ? std::optional<std::string_view>(value.stringValue()) : std::nullopt;
}

void appendText(Dictionary& dictionary, const char* key, const OptionalText& text) {
    if (text.isPresent())
        dictionary.append(key, text.view());
}

} // namespace

// The 32-bit fields of the dictionary, in their order.
const KelvaneFileNode::WordKey KelvaneFileNode::wordKeys[] = {
    {"backupFlags", &KelvaneFileNode::backupFlags_},
    {"simpleFlags", &KelvaneFileNode::simpleFlags_},
    {"backupColor", &KelvaneFileNode::backupColor_},
    {"totalCount", &KelvaneFileNode::totalCount_},
    {"uid", &KelvaneFileNode::uid_},
    {"gid", &KelvaneFileNode::gid_},
};

// How many more nodes one answer may create. The daemon's largest answer holds about nine million complete
// dictionaries, but a few small ones, referenced again and again, could expand beyond the memory.
class KelvaneFileNode::NodeBudget {
public:
    NodeBudget() = default;
    ~NodeBudget() {
        if (leftOut_ > 0)
            logWarning("Answer too large: left out %llu file nodes and everything below them", leftOut_);
    }
    NodeBudget(const NodeBudget&) = delete;
    NodeBudget& operator=(const NodeBudget&) = delete;

    [[nodiscard]] std::span<const Value> take(const Array& dictionaries) {
        const std::size_t count = std::min(dictionaries.size(), left_);
        left_ -= count;
        leftOut_ += dictionaries.size() - count;
        return std::span(dictionaries).first(count);
    }

private:
    std::size_t left_ = 10'000'000;
    std::size_t leftOut_ = 0;
};

FileNodeList KelvaneFileNode::fileNodesForDictionaries(const Value& dictionaries) {
    NodeBudget budget;
    FileNodeList nodes;
    const std::span<const Value> items = budget.take(dictionaries.array());
    nodes.reserve(items.size());
    for (const Value& dictionary : items) {
        if (!dictionary.isDictionary())
            continue;
        nodes.push_back(create());
        nodes.back()->readTree(dictionary, budget);
    }
    return nodes;
}

void KelvaneFileNode::initWithDictionary(const Value& dictionary) {
    NodeBudget budget;
    const bool isOrphan = hadParent() && !parent();
    const std::string folder = isOrphan ? deleteLastPathComponent(path_.view()) : std::string();
    readTree(dictionary, budget);
    // The parent, from whose path this one would be computed, is destroyed.
    if (isOrphan && path_.view().empty() && fileName_.isPresent() && !folder.empty())
        path_ = OptionalText(appendPathComponent(folder, fileName_.view()));
    const FileNodeRef above = parent();
    if (above && (!above->children_ || std::ranges::count(*above->children_, shared_from_this()) == 0))
        storePath(); // not in the parent's list: the parent would not do this when it is destroyed
}

void KelvaneFileNode::readTree(const Value& dictionary, NodeBudget& budget) {
    // Reads the fields of each node, then its children, whose dictionaries wait in a list. A child is added
    // when it is complete, so that what `addChild` gives to a child does not pass on to the child's children.
    std::vector<std::pair<KelvaneFileNode*, const Value*>> waiting{{this, &dictionary}};
    std::vector<std::pair<KelvaneFileNode*, FileNodeList>> families;
    while (!waiting.empty()) {
        const auto [node, source] = waiting.back();
        waiting.pop_back();
        const Value& children = (*source)["children"];
        if (!children.isAbsent())
            node->dropChildren(); // while the children can still compute their old paths
        node->readFields(*source);
        if (children.isAbsent())
            continue;
        const std::span<const Value> items = budget.take(children.array());
        FileNodeList& own = families.emplace_back(node, FileNodeList()).second;
        own.reserve(items.size());
        for (const Value& child : items) {
            if (!child.isDictionary())
                continue;
            own.push_back(node->newOfSameClass());
            waiting.emplace_back(own.back().get(), &child);
        }
    }
    for (; !families.empty(); families.pop_back()) { // deepest first
        const auto& [node, own] = families.back();
        node->startChildList(own.size());
        for (const FileNodeRef& child : own)
            node->addChild(child);
    }
}

void KelvaneFileNode::readFields(const Value& dictionary) {
    cleanup();
    displayName_ = OptionalText(textOf(dictionary["displayName"]));
    fileName_ = OptionalText(textOf(dictionary["fileName"]));
    isDirectory_ = dictionary["isDirectory"].boolValue();
    const Value& date = dictionary["backupDate"];
    backupDate_ = date.kind() == Value::Kind::Date ? std::optional(date.dateValue()) : std::nullopt;
    setVersion(dictionary["version"]);
    // Does not use `setPath`, which is for nodes outside a tree.
    path_ = OptionalText(textOf(dictionary["path"]));
    size_ = dictionary["size"].uint64Value();
    state_ = OptionalText(textOf(dictionary["state"]));
    for (const auto& [key, word] : wordKeys)
        this->*word = dictionary[key].uint32Value();
}

Value KelvaneFileNode::dictionary() const {
    return Value(fields());
}

Dictionary KelvaneFileNode::fields() const {
    Dictionary dictionary;
    dictionary.reserve(15);
    appendText(dictionary, "fileName", fileName_);
    appendText(dictionary, "displayName", displayName_);
    dictionary.append("isDirectory", isDirectory_);
    if (backupDate_)
        dictionary.append("backupDate", *backupDate_);
    if (!version_.isAbsent())
        dictionary.append("version", version_);
    appendText(dictionary, "path", path_);
    appendText(dictionary, "state", state_);
    dictionary.append("size", size_);
    for (const auto& [key, word] : wordKeys)
        dictionary.append(std::string(key), this->*word);
    return dictionary;
}

Value KelvaneFileNode::recursiveDictionary() const {
    struct Level {
        const KelvaneFileNode* node;
        std::size_t next = 0;
        Array children{};
    };
    std::vector<Level> levels;
    levels.push_back({this});
    while (true) {
        Level& level = levels.back();
        const FileNodeList* list = level.node->children_.get();
        if (list && level.next < list->size()) {
            const KelvaneFileNode* child = (*list)[level.next++].get();
            levels.push_back({child});
            continue;
        }
        Dictionary dictionary = level.node->fields();
        if (list)
            dictionary.append("children", std::move(level.children));
        levels.pop_back();
        if (levels.empty())
            return Value(std::move(dictionary));
        levels.back().children.emplace_back(std::move(dictionary));
    }
}

} // namespace kelvane
