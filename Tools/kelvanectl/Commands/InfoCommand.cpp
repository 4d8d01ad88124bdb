#include "Common/FileNode/FileNode.h"
#include "Support/Json/JsonPropertyList.h"
#include "Tools/kelvanectl/Arguments/PathArgument.h"
#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/Connection/Session.h"
#include "Tools/kelvanectl/Output/DateText.h"
#include "Tools/kelvanectl/Output/JsonText.h"
#include "Tools/kelvanectl/Output/Rows.h"

#include <nlohmann/json.hpp>

namespace kelvane::ctl {
namespace {

using Json = nlohmann::ordered_json;

// Formats the coded fields for people.
struct Texts {
    std::string kind;
    std::string size;
    std::string backupDate;
    std::string backupFlags;
    std::string simpleFlags;
    std::string backupColor;
    std::string owner;
    std::string group;
};

Texts textsOf(const KelvaneFileNode& node) {
    const LocalFileSystem disks(LocalFileSystem::Names::Text);
    const SystemAccounts accounts;
    const PlainFileServices services(disks, accounts);
    return {.kind = node.kindByPath(services),
            .size = sizeText(node.sizeValue()),
            .backupDate = node.backupDate() ? dateText(*node.backupDate()) : "never",
            .backupFlags = node.backupFlagsString(),
            .simpleFlags = node.simpleFlagsString(),
            .backupColor = node.backupColorString(),
            .owner = node.uidString(accounts),
            .group = node.gidString(accounts)};
}

std::string numbered(const std::string& text, std::int64_t number) {
    const std::string digits = std::to_string(number);
    return text.empty() || text == digits ? digits : text + " (" + digits + ')';
}

std::string orNone(const std::string& text) {
    return text.empty() ? "none" : text;
}

std::string textOf(const KelvaneFileNode& node, const Texts& texts) {
    Rows rows;
    rows.addName("Name", node.fileName());
    rows.addName("Display name", node.displayName());
    rows.add("Path", shownPath(node.path()));
    rows.add("Folder", node.isDirectory() ? "yes" : "no");
    rows.addKnown("Kind", texts.kind);
    rows.add("Size", texts.size);
    rows.add("Files", std::to_string(node.totalCount()));
    rows.add("Owner", numbered(texts.owner, node.uid()));
    rows.add("Group", numbered(texts.group, node.gid()));
    rows.add("Backup date", texts.backupDate);
    rows.add("Version", node.version().isAbsent() ? "none" : node.version().description());
    rows.add("State", orNone(node.state()));
    rows.add("Colour", numbered(texts.backupColor, node.backupColor()));
    rows.add("Backup flags", texts.backupFlags);
    rows.add("Simple flags", texts.simpleFlags);
    return rows.take();
}

Json jsonOf(const KelvaneFileNode& node, const Texts& texts) {
    Json json = jsonFromPropertyList(node.dictionary());
    json["texts"] = Json::object({{"kind", texts.kind},
                                  {"size", texts.size},
                                  {"backupDate", texts.backupDate},
                                  {"backupFlags", texts.backupFlags},
                                  {"simpleFlags", texts.simpleFlags},
                                  {"backupColor", texts.backupColor},
                                  {"uid", texts.owner},
                                  {"gid", texts.group}});
    return json;
}

ExitStatus showInfo(const CommandLine& line, const std::string& path, bool withDirSizes) {
    FileNodeRef node;
    const ExitStatus status = askDaemon(line, [&](Session& session) {
        node = KelvaneFileNode::fileNodeForPath(path, withDirSizes, session.state().proxy());
    });
    if (status != ExitStatus::Success)
        return status;
    if (!node)
        return complain(ExitStatus::Usage, shownPath(path) + ": " + unknownPath);
    node->flush(); // Only the item itself is printed.
    const Texts texts = textsOf(*node);
    return finishWith(line.settings().json ? jsonText(jsonOf(*node, texts), true) : textOf(*node, texts));
}

} // namespace

Action declareInfo(CLI::App& command) {
    struct Arguments {
        std::string path;
        bool withDirSizes = false;
    };
    const auto arguments = std::make_shared<Arguments>();
    command.add_option("PATH", arguments->path, "A file or folder")->required();
    command.add_flag("--dir-sizes", arguments->withDirSizes, "Add up the sizes in a folder");
    return [arguments](const CommandLine& line) {
        return showInfo(line, volumePathFromText(arguments->path, Volumes::current()),
                        arguments->withDirSizes);
    };
}

} // namespace kelvane::ctl
