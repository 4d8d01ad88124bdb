#include "LocalDaemon/Restore/RestoreTrouble.h"

#include "Foundation/CleanPath.h"
#include "LocalDaemon/Restic/ResticNames.h"

#include <algorithm>

namespace kelvane {
namespace {

struct TroubleRow {
    ResticTrouble trouble;
    const char* text;
    bool isTransient;
};
constexpr std::string_view errorMark = "ignoring error for ";
constexpr std::string_view lastMark = "Fatal: ";

constexpr TroubleRow rows[] = {
    {ResticTrouble::NoRepository, "the repository was not found", true}, // The disk may not be mounted.
    {ResticTrouble::Unreachable, "the repository cannot be reached", true},
    {ResticTrouble::NoNetwork, "there is no network connection", true},
    {ResticTrouble::Locked, "another program is using the repository", true},
    {ResticTrouble::Stopped, "no data has arrived from the repository for too long", true},
    {ResticTrouble::WrongPassword, "the key does not match the repository", false},
    {ResticTrouble::Failed, "restic failed", false},
};

const TroubleRow& rowOf(ResticTrouble trouble) {
    const auto* const row = std::ranges::find(rows, trouble, &TroubleRow::trouble);
    return row == std::end(rows) ? *std::rbegin(rows) : *row;
}

// Returns the deepest folder of the backup that may contain the path.
std::string knownFolderOf(const BackupIndex& index, std::string_view path) {
    while (path.size() > 1 && (!path.starts_with('/') || !index.find(path)))
        path = path.starts_with('/') ? folderOf(path) : "/";
    return std::string(path.empty() ? "/" : path);
}

// Special files are identified, so that one that this user may not create does not make its siblings fail.
bool isSpecial(const BackupIndex& index, std::string_view path, const SpecialFiles& specialFiles) {
    const std::string folder(folderOf(path));
    return index.find(folder) && specialFiles(folder).contains(nameInResticJson(path));
}

// Parses "PATH: REASON". The reason ends with its line; other messages of restic may follow. Returns
// false when no prefix is a PATH for which `isKnown` is true.
template <class IsKnown>
bool takeItems(FileErrors& errors, std::string_view entry, IsKnown isKnown) {
    bool isOneKnown = false;
    for (std::size_t colon = entry.find(": "); colon != std::string_view::npos;
         colon = entry.find(": ", colon + 1)) {
        const std::string_view path = entry.substr(0, colon);
        if (!path.starts_with('/') || !isKnown(path))
            continue;
        errors.items.emplace(path, entry.substr(colon + 2, entry.find('\n', colon) - colon - 2));
        isOneKnown = true;
    }
    return isOneKnown;
}

void takeError(FileErrors& errors, const BackupIndex& index, std::string_view entry,
               const SpecialFiles& specialFiles) {
    entry = entry.substr(0, entry.find_last_not_of('\n') + 1);
    const auto isInBackup = [&](std::string_view path) { return index.find(path) != nullptr; };
    const auto isSpecialFile = [&](std::string_view path) { return isSpecial(index, path, specialFiles); };
    if (!takeItems(errors, entry, isInBackup) && !takeItems(errors, entry, isSpecialFile))
        errors.below.emplace(knownFolderOf(index, entry.substr(0, entry.find(": "))),
                             "restic reported an error that may concern it: " + std::string(entry));
}

} // namespace

RestoreTrouble goneSnapshot() {
    return {"its snapshot is no longer in the repository", true};
}

RestoreTrouble restoreTroubleFor(const ResticOutcome& outcome) {
    const std::string word = lastWordIn(outcome.errors);
    if (word.find("no matching ID found") != std::string::npos)
        return goneSnapshot();
    return {std::string(rowOf(outcome.trouble).text) + (word.empty() ? "" : ": " + word)};
}

// restic exits without a message when it was killed or memory ran out.
bool isTransient(const ResticOutcome& outcome) {
    return outcome.errors.empty() || rowOf(outcome.trouble).isTransient;
}

bool isTransient(const FileErrors& errors, const FileErrors& before, bool isPlaceAFolder) {
    const auto isOfConnection = [&](const auto& error) {
        if (isPlaceAFolder && error.second.find("unexpected EOF") != std::string::npos)
            return false;
        const ResticTrouble trouble = troubleSaidIn(error.second);
        return trouble == ResticTrouble::Unreachable || trouble == ResticTrouble::NoNetwork;
    };
    const auto pathOf = [](const auto& error) -> const std::string& { return error.first; };
    const bool isTheSame = std::ranges::equal(errors.items, before.items, {}, pathOf, pathOf) &&
                           std::ranges::equal(errors.below, before.below, {}, pathOf, pathOf);
    return !isTheSame && (std::ranges::any_of(errors.items, isOfConnection) ||
                          std::ranges::any_of(errors.below, isOfConnection));
}

const std::string* FileErrors::errorAt(std::string_view path) const {
    if (const auto found = items.find(path); found != items.end())
        return &found->second;
    for (; !below.empty(); path = folderOf(path)) {
        if (const auto found = below.find(path); found != below.end())
            return &found->second;
        if (path == "/")
            break;
    }
    return nullptr;
}

void addFileErrors(FileErrors& errors, const BackupIndex& index, std::string_view text,
                   const SpecialFiles& specialFiles) {
    for (std::size_t at = text.find(errorMark); at != std::string_view::npos; at = text.find(errorMark)) {
        text.remove_prefix(at + errorMark.size());
        takeError(errors, index, text.substr(0, std::min(text.find(errorMark), text.find(lastMark))),
                  specialFiles);
    }
}

} // namespace kelvane
