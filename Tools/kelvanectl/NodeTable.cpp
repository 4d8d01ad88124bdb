#include "Tools/kelvanectl/NodeTable.h"

#include "Support/Json/JsonPropertyList.h"
#include "Tools/kelvanectl/JsonText.h"
#include "Tools/kelvanectl/Terminal.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

namespace kelvane::ctl {
namespace {

enum Column : std::size_t { Flags, Color, Size, BackupDate, columnCount };
using Cells = std::array<std::string, columnCount>;

// "Backup,BackedUp,Folder": what is set, without what all names begin with. "-": nothing.
std::string flagWords(std::uint32_t word) {
    constexpr std::size_t prefix = std::string_view("Backup_").size();
    std::string words;
    for (const FlagName& flag : backupFlagNames) {
        if ((word & flag.mask) == 0)
            continue;
        words += words.empty() ? "" : ",";
        words += flag.name.substr(prefix);
        if (flag.isNumber())
            words += '=' + std::to_string(flag.number(word));
    }
    return words.empty() ? "-" : words;
}

// "Green", or the number of a colour that has no name.
std::string colorWord(const KelvaneFileNode& node) {
    constexpr std::size_t prefix = std::string_view("Backup_Color_").size();
    const std::string name = node.backupColorString();
    return name.empty() ? std::to_string(node.backupColor()) : name.substr(prefix);
}

std::string textOf(const std::vector<NodeRow>& rows, const FileServices& services) {
    std::vector<Cells> lines;
    std::array<std::size_t, columnCount> widths{};
    for (const NodeRow& row : rows) {
        const KelvaneFileNode& node = *row.node;
        lines.push_back({flagWords(node.backupFlags()), colorWord(node), std::to_string(node.sizeValue()),
                         printable(node.backupDateString(services))});
        for (std::size_t column = 0; column < columnCount; ++column)
            widths[column] = std::max(widths[column], columnsOf(lines.back()[column]));
    }
    std::string text;
    for (std::size_t row = 0; row < rows.size(); ++row) {
        for (std::size_t column = 0; column < columnCount; ++column) {
            const std::string& cell = lines[row][column];
            const std::string room(widths[column] - columnsOf(cell), ' ');
            text += (column == Size ? room + cell : cell + room) + "  ";
        }
        text += std::string(2 * rows[row].level, ' ') + printableName(rows[row].name) + '\n';
    }
    return text;
}

std::string jsonOf(const std::vector<NodeRow>& rows) {
    auto json = nlohmann::ordered_json::array();
    for (const NodeRow& row : rows)
        json.push_back(jsonFromPropertyList(row.node->dictionary()));
    return jsonText(json, true);
}

} // namespace

ExitStatus finishWithNodes(const CommandLine& line, const std::vector<NodeRow>& rows) {
    for (const NodeRow& row : rows)
        row.node->flush(); // what a daemon sends along of what is in it would count as its size
    const LocalFileSystem disks(LocalFileSystem::Names::Text);
    const SystemAccounts accounts;
    return finishWith(line.settings().json ? jsonOf(rows) : textOf(rows, PlainFileServices(disks, accounts)));
}

} // namespace kelvane::ctl
