#include "Tools/kelvanectl/Output/NodeTable.h"

#include "Support/Json/JsonPropertyList.h"
#include "Tools/kelvanectl/Output/DateText.h"
#include "Tools/kelvanectl/Output/JsonText.h"
#include "Tools/kelvanectl/Output/Terminal.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

namespace kelvane::ctl {
namespace {

enum Column : std::size_t { State, Size, BackupDate, Flags, columnCount };
using Cells = std::array<std::string, columnCount>;

// Indexed by the number of the colour.
struct ColorLabel {
    std::string_view word; // For a daemon that does not send a description of the item.
    std::string_view code; // The colour code for terminals.
};
constexpr std::array<ColorLabel, std::size(backupColorNames)> colorLabels{{{"-", ""},
                                                                           {"Not backed up", "31"},
                                                                           {"Backed up", "32"},
                                                                           {"Waiting", "33"},
                                                                           {"Partly backed up", "90"},
                                                                           {"Kept in the backup", "34"}}};

const ColorLabel& colorLabelOf(const KelvaneFileNode& node) {
    const auto color = static_cast<std::size_t>(node.backupColor());
    return colorLabels.at(color < colorLabels.size() ? color : 0);
}

// The rule that decides is shown only by `info`.
std::string stateText(const KelvaneFileNode& node, Columns columns) {
    const std::string state = node.state();
    if (state.empty())
        return std::string(colorLabelOf(node).word);
    return printable(columns == Columns::WithFlags ? state : state.substr(0, state.find(": ")));
}

// The size of a folder's own entry is not useful.
std::string sizeCell(const KelvaneFileNode& node, Columns columns) {
    if (node.isDirectory())
        return "-";
    return columns == Columns::WithFlags ? std::to_string(node.sizeValue()) : shortSizeText(node.sizeValue());
}

// Returns the names of the set flags without their common prefix, such as "Backup,BackedUp,Folder"; "-"
// for none.
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

Cells cellsOf(const KelvaneFileNode& node, Columns columns) {
    const std::optional<Date> date = node.backupDate();
    return {stateText(node, columns), sizeCell(node, columns), date ? printable(dateText(*date)) : "never",
            columns == Columns::WithFlags ? flagWords(node.backupFlags()) : ""};
}

std::string nameText(const NodeRow& row, bool isColored) {
    std::string name = printableName(row.name);
    if (row.node->isDirectory() && !name.ends_with('/'))
        name += '/';
    const std::string_view code = colorLabelOf(*row.node).code;
    if (isColored && !code.empty())
        name = "\x1b[" + std::string(code) + 'm' + name + "\x1b[0m";
    return std::string(2 * row.level, ' ') + name;
}

std::string textOf(const std::vector<NodeRow>& rows, Columns columns) {
    if (rows.empty())
        return {};
    const bool isColored = isColorTerminal();
    std::vector<Cells> lines{{"State", "Size", "Backed up", columns == Columns::WithFlags ? "Flags" : ""}};
    for (const NodeRow& row : rows)
        lines.push_back(cellsOf(*row.node, columns));
    std::array<std::size_t, columnCount> widths{};
    for (const Cells& cells : lines)
        for (std::size_t column = 0; column < columnCount; ++column)
            widths.at(column) = std::max(widths.at(column), columnsOf(cells.at(column)));
    std::string text;
    for (std::size_t line = 0; line < lines.size(); ++line) {
        for (std::size_t column = 0; column < columnCount; ++column) {
            if (widths.at(column) == 0)
                continue;
            const std::string& cell = lines[line].at(column);
            const std::string padding(widths.at(column) - columnsOf(cell), ' ');
            text += (column == Size ? padding + cell : cell + padding) + "  ";
        }
        text += (line == 0 ? "Name" : nameText(rows[line - 1], isColored)) + '\n';
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

ExitStatus finishWithNodes(const CommandLine& line, const std::vector<NodeRow>& rows, Columns columns) {
    for (const NodeRow& row : rows)
        row.node->flush(); // Contents that the daemon has sent along would be added to its size.
    return finishWith(line.settings().json ? jsonOf(rows) : textOf(rows, columns));
}

} // namespace kelvane::ctl
