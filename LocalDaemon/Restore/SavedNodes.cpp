#include "LocalDaemon/Restore/SavedNodes.h"

#include "Foundation/Unicode.h"

#include <charconv>
#include <nlohmann/json.hpp>
#include <vector>

namespace kelvane {
namespace {

using Json = nlohmann::json;

constexpr std::size_t longestTree = std::size_t{1} << 30U; // In bytes of JSON.
constexpr std::size_t mostPrinted = 100;                   // Trees in memory.

std::string decodedBase64(std::string_view text) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    unsigned bits = 0;
    unsigned count = 0;
    for (const char each : text.substr(0, text.find('='))) {
        bits = (bits << 6U) | static_cast<unsigned>(digits.find(each));
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> count);
        }
    }
    return bytes;
}

void appendCharacter(std::string& text, std::uint32_t code) {
    constexpr std::uint32_t firstPair = 0x10000;
    std::vector<std::uint8_t> units;
    const auto append = [&units](std::uint32_t unit) {
        units.push_back(static_cast<std::uint8_t>(unit >> 8U));
        units.push_back(static_cast<std::uint8_t>(unit));
    };
    if (code >= firstPair)
        append(0xD800U + ((code - firstPair) >> 10U));
    append(code >= firstPair ? 0xDC00U + ((code - firstPair) & 0x3FFU) : code);
    text += utf8FromUtf16BigEndian(units).value_or("");
}

} // namespace

class SavedNodes::Trees {
public:
    Trees(std::shared_ptr<const Restic> restic, const StopSignal& stop)
        : restic_(std::move(restic)), stop_(stop) {}

    // Returns a value that is not an object when the node cannot be read.
    [[nodiscard]] Json nodeOf(const std::string& snapshotId, const std::string& path,
                              RestoreTrouble& trouble);

private:
    [[nodiscard]] const Json& printedBy(const std::vector<std::string>& arguments, RestoreTrouble& trouble);

    const std::shared_ptr<const Restic> restic_;
    const StopSignal& stop_;
    std::map<std::vector<std::string>, Json> printed_; // By the arguments of the restic call.
};

const Json& SavedNodes::Trees::printedBy(const std::vector<std::string>& arguments, RestoreTrouble& trouble) {
    if (const auto known = printed_.find(arguments); known != printed_.end())
        return known->second;
    if (printed_.size() > mostPrinted)
        printed_.clear();
    Restic::Call call;
    call.arguments = arguments;
    call.longestLine = longestTree;
    std::string text;
    call.onLine = [&text](std::string_view line) {
        text.append(line).append("\n");
        return true;
    };
    const ResticOutcome outcome = restic_->run(call, stop_);
    static const Json none;
    if (!outcome.succeeded()) {
        trouble = restoreTroubleFor(outcome);
        return none;
    }
    return printed_[arguments] = Json::parse(text, nullptr, false);
}

Json SavedNodes::Trees::nodeOf(const std::string& snapshotId, const std::string& path,
                               RestoreTrouble& trouble) {
    Json node = printedBy({"cat", "snapshot", snapshotId, "--no-lock"}, trouble);
    const char* subtree = "tree";
    std::string_view rest = path;
    while (!rest.empty() && trouble.isNone() && node.is_object()) {
        rest.remove_prefix(1);
        const std::string_view name = rest.substr(0, rest.find('/'));
        rest.remove_prefix(name.size());
        const Json& tree = printedBy({"cat", "blob", node.value(subtree, ""), "--no-lock"}, trouble);
        node = {};
        if (tree.is_object() && tree.contains("nodes"))
            for (const Json& each : tree["nodes"])
                if (nameInTree(each.value("name", "")) == name)
                    node = each;
        subtree = "subtree";
    }
    return node;
}

SavedNodes::SavedNodes(std::shared_ptr<const Restic> restic, const StopSignal& stop)
    : trees_(std::make_unique<Trees>(std::move(restic), stop)) {}
SavedNodes::~SavedNodes() = default;

std::optional<SavedNode> SavedNodes::find(const std::string& snapshotId, const std::string& path,
                                          RestoreTrouble& trouble) {
    const Json json = trees_->nodeOf(snapshotId, path, trouble);
    if (trouble.isNone() && !json.is_object())
        trouble.reason = "its snapshot does not contain it";
    if (!trouble.isNone())
        return std::nullopt;
    SavedNode node;
    node.isFile = json.value("type", "") == "file";
    node.device = json.value("device_id", std::uint64_t{0});
    node.inode = json.value("inode", std::uint64_t{0});
    node.links = json.value("links", std::uint64_t{0});
    if (const auto contents = json.find("content"); contents != json.end())
        node.contents = contents->dump();
    for (const Json& each : json.value("extended_attributes", Json::array()))
        node.attributes[each.value("name", "")] = decodedBase64(each.value("value", ""));
    return node;
}

std::string nameInTree(std::string_view escaped) {
    constexpr std::string_view letters = "abfnrtv";
    constexpr std::string_view meanings = "\a\b\f\n\r\t\v";
    std::string name;
    while (!escaped.empty()) {
        const char first = escaped.front();
        const char kind = first == '\\' && escaped.size() > 1 ? escaped[1] : '\0';
        const std::size_t digits = kind == 'x' ? 2 : kind == 'u' ? 4 : kind == 'U' ? 8 : 0;
        escaped.remove_prefix(kind == '\0' ? 1 : 2);
        std::uint32_t code = 0;
        if (digits > 0 && escaped.size() >= digits) {
            std::from_chars(escaped.data(), escaped.data() + digits, code, 16);
            escaped.remove_prefix(digits);
        }
        if (kind == '\0')
            name += first;
        else if (kind == 'x')
            name += static_cast<char>(code);
        else if (digits > 0)
            appendCharacter(name, code);
        else
            name += letters.find(kind) == std::string_view::npos ? kind : meanings[letters.find(kind)];
    }
    return name;
}

} // namespace kelvane
