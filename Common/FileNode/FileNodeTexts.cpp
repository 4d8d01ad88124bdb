#include "Common/FileNode/FileNode.h"
#include "Foundation/Format.h"

#include <iterator>

namespace kelvane {
namespace {

// The names of the set flags and the values of all numbers, each followed by a blank.
std::string flagWords(std::uint32_t word, std::span<const FlagName> names) {
    std::string words;
    for (const FlagName& flag : names) {
        if (flag.isNumber())
            words += formatText("%s (%d) ", flag.name, flag.number(word));
        else if ((word & flag.mask) != 0)
            words += formatText("%s ", flag.name);
    }
    return words;
}

std::string flagsText(std::uint32_t word, std::span<const FlagName> names, std::string_view nameOfNone) {
    return formatText("0x%8.8lx : %@", word, word == 0 ? std::string(nameOfNone) : flagWords(word, names));
}

Value dateOrAbsent(std::optional<Date> date) {
    return date ? Value(*date) : Value();
}

Value textOrAbsent(std::optional<std::string_view> text) {
    return text ? Value(*text) : Value();
}

} // namespace

std::string KelvaneFileNode::backupDateString(const FileServices& services) const {
    return backupDate_ ? services.dateAndTime(*backupDate_) : "Never";
}

std::string KelvaneFileNode::uidString(const Accounts& accounts) const {
    return accounts.userName(uid_).value_or(std::to_string(uid_));
}

std::string KelvaneFileNode::gidString(const Accounts& accounts) const {
    return accounts.groupName(gid_).value_or(std::to_string(gid_));
}

std::string KelvaneFileNode::backupColorString() const {
    return std::string(backupColor_ < std::size(backupColorNames) ? backupColorNames[backupColor_] : "");
}

std::string KelvaneFileNode::backupFlagsString() const {
    return flagsText(backupFlags_, backupFlagNames, noBackupFlagsName);
}

std::string KelvaneFileNode::simpleFlagsString() const {
    return flagsText(simpleFlags_, simpleFlagNames, noSimpleFlagsName);
}

std::string KelvaneFileNode::description() const {
    const std::string color = backupColorString();
    return formatText(
        "%@\n    fileName: %@\n    displayName: %@\n    isDirectory: %@\n    selected: %d\n"
        "    backupFlags: %@\n    simpleFlags: %@\n    backupColor: %@\n    backupDate: %@\n"
        "    state: %@\n    version: %d\n    purgeDate: %@\n    fileCount: %d\n    size: %llu\n",
        formatText("<%s: 0x%llx>", className(), reinterpret_cast<std::uintptr_t>(this)),
        textOrAbsent(fileName_.text()), textOrAbsent(shownName()), isDirectory_ ? "YES" : "NO", selected_,
        backupFlagsString(), simpleFlagsString(), color.empty() ? Value() : Value(color),
        dateOrAbsent(backupDate_), textOrAbsent(state_.text()), version_.int32Value(),
        dateOrAbsent(purgeDate()), totalCount_, size_);
}

} // namespace kelvane
