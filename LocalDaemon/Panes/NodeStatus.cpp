#include "LocalDaemon/Panes/NodeStatus.h"

#include "Common/FileNode/FileNodeFlags.h"

#include <algorithm>
#include <iterator>

namespace kelvane {
namespace {

using Reason = Verdict::Reason;
using Kind = FileAttributes::Kind;

struct ReasonRow {
    Reason reason;
    std::uint32_t flags;
    std::uint32_t flagsOfRule; // Added to `flags` for the item that has the rule, not for items below it.
    bool canBeToggled;
    std::string_view text; // For selected items: the text while they are pending.
};
constexpr ReasonRow reasonRows[] = {
    {Reason::Home, Backup_Backup, 0, true, "Pending"},
    {Reason::Added, Backup_Backup, Backup_Include, true, "Pending"},
    {Reason::Excluded, Backup_Exclude, 0, true, "Excluded from the backup"},
    {Reason::Removed, Backup_Exclude, 0, true, "Removed from the backup"},
    {Reason::Policy, Backup_Exclude | Backup_System, 0, false, "Left out by policy"},
    {Reason::OutsideHome, 0, 0, true, "Outside the home folder"},
    {Reason::NotAdded, 0, 0, true, "Not added to the backup"},
    {Reason::OtherFileSystem, 0, 0, true, "On another file system"},
    {Reason::AbsentDisk, 0, 0, false, "On a disk that is not mounted"},
    {Reason::NoFile, 0, 0, false, "Neither file nor folder nor link"},
};

const ReasonRow& rowOf(Reason reason) {
    return *std::ranges::find(reasonRows, reason, &ReasonRow::reason);
}

// Returns the flag of a folder that has a rule of the user.
std::uint32_t folderRuleFlag(Reason reason) {
    switch (reason) {
    case Reason::Added: return Backup_Folder_Include;
    case Reason::Excluded:
    case Reason::Removed: return Backup_Folder_Exclude;
    default: return 0;
    }
}

// Panes display "no colour" as red.
std::int32_t colorOf(bool isIn, bool isPartial, const BackupStanding& standing) {
    if (standing.isDamaged && (standing.isMissing || !isIn))
        return Backup_Color_None;
    if (standing.isMissing)
        return standing.isKept ? Backup_Color_Blue : Backup_Color_None;
    if (!isIn && !isPartial)
        return standing.isKept ? Backup_Color_Blue : Backup_Color_None;
    if (!isIn || standing.isMixed)
        return Backup_Color_Gray;
    if (standing.isPending)
        return Backup_Color_Yellow;
    return isPartial ? Backup_Color_Gray : Backup_Color_Green;
}

// Panes offer to restore everything that counts as in the backup, even if it will be removed later.
std::uint32_t flagsOf(const BackupStanding& standing) {
    return (standing.date ? Backup_BackedUp : std::uint32_t{0}) |
           (standing.isKept ? Backup_Backup : std::uint32_t{0}) |
           (standing.isMissing ? Backup_Missing : std::uint32_t{0});
}

std::uint32_t flagsOf(const ReasonRow& row, std::string_view path, Kind kind, const Verdict& verdict,
                      bool isPartial, const BackupStanding& standing) {
    const bool isRuleItself = verdict.rule == path;
    std::uint32_t flags = row.flags | (isRuleItself ? row.flagsOfRule : 0) | flagsOf(standing);
    if (kind != Kind::Directory)
        return flags;
    flags |= Backup_Folder;
    if (isRuleItself)
        flags |= folderRuleFlag(verdict.reason);
    // The folder has no contents in the backup.
    if (!verdict.isIn() && !isPartial && !standing.isKept)
        flags |= Backup_Not_Active;
    return flags;
}

std::string stateText(const ReasonRow& row, std::string_view path, const Verdict& verdict,
                      const BackupStanding& standing) {
    if (standing.isDamaged && (standing.isMissing || !verdict.isIn()))
        return "Damaged in the backup";
    if (standing.isDamaged)
        return "Damaged in the backup, waiting to be stored again";
    if (standing.isMissing && standing.isKept)
        return "Not on the disk, kept in the backup";
    if (verdict.isIn())
        return std::string(standing.isPending ? row.text : "Backed up");
    std::string text(row.text);
    if (!verdict.rule.empty() && verdict.rule != path)
        text += ": " + verdict.rule;
    return standing.isKept ? text + " (a copy is kept)" : text;
}

} // namespace

NodeStatus statusOf(std::string_view path, Kind kind, const Verdict& verdict, bool isPartial,
                    const BackupStanding& standing) {
    const ReasonRow& row = rowOf(verdict.reason);
    NodeStatus status;
    status.backupFlags = flagsOf(row, path, kind, verdict, isPartial, standing);
    status.simpleFlags = (verdict.isIn() ? Backup_Simple_Checked : 0) |
                         (row.canBeToggled ? Backup_Simple_Enabled : 0) |
                         (isPartial ? Backup_Simple_Grayed : 0);
    status.color = colorOf(verdict.isIn(), isPartial, standing);
    status.state = stateText(row, path, verdict, standing);
    return status;
}

} // namespace kelvane
