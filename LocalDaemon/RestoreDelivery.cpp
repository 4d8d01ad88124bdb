#include "LocalDaemon/RestoreDelivery.h"

#include "Foundation/Unicode.h"
#include "LocalDaemon/CleanPath.h"
#include "LocalDaemon/RestoreMetadata.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>

namespace kelvane {
namespace {

constexpr mode_t ownersFolder = 0700;                    // of a folder that is made on the way
constexpr std::string_view replacement = "\xef\xbf\xbd"; // in a name that is no UTF-8

constexpr std::string_view errorMark = "ignoring error for ";
constexpr std::string_view lastMark = "Fatal: ";

std::string errorText() {
    return errno == EXDEV ? "it would come to another disk than what is around it; restore it by itself"
                          : std::generic_category().message(errno);
}

bool isThere(const std::string& path, struct stat& status) {
    return ::lstat(path.c_str(), &status) == 0;
}

// Empty when the folder is there, with those it is in.
std::string makeFolder(const std::string& path) {
    struct stat status {};
    if (isThere(path, status))
        return S_ISDIR(status.st_mode) ? "" : "something else than a folder stands at " + path;
    const std::string around(folderOf(path));
    if (::stat(around.c_str(), &status) != 0)
        if (const std::string reason = makeFolder(around); !reason.empty())
            return reason;
    return ::mkdir(path.c_str(), ownersFolder) == 0 || errno == EEXIST ? "" : path + ": " + errorText();
}

bool isNameless(std::string_view path) {
    return path.find(replacement) != std::string_view::npos;
}

std::string childOf(const std::string& folder, std::string_view name) {
    return withSeparator(folder).append(name);
}

} // namespace

void RestoreDelivery::deliver(const BackupIndex::Item& item, const std::string& target) {
    if (stop_.isSet())
        return;
    if (item.kind == ItemKind::Folder)
        deliverFolder(item, target);
    else
        deliverFile(item, target);
}

std::string RestoreDelivery::stagedPath(std::uint32_t snapshot, const std::string& path) const {
    return staged_.folder + '/' + std::to_string(snapshot) + path;
}

void RestoreDelivery::deliverFile(const BackupIndex::Item& item, const std::string& target) {
    const std::string path = index_.pathOf(item);
    const std::string staged = stagedPath(item.snapshot, path);
    if (const std::string fault = faultOf(item, path, staged); !fault.empty())
        return fail(path, fault);
    if (const std::string reason = makeFolder(std::string(folderOf(target))); !reason.empty())
        return fail(path, reason);
    if (std::rename(staged.c_str(), target.c_str()) != 0)
        fail(path, errno == EISDIR ? "a folder stands in its place" : errorText());
}

std::string RestoreDelivery::faultOf(const BackupIndex::Item& item, const std::string& path,
                                     const std::string& staged) const {
    if (const auto error = staged_.errors.find(path); error != staged_.errors.end())
        return error->second;
    struct stat status {};
    if (!isThere(staged, status))
        return "it has not come out of the backup";
    const bool isAsSaved =
        item.kind == ItemKind::Link
            ? S_ISLNK(status.st_mode)
            : S_ISREG(status.st_mode) && static_cast<std::uint64_t>(status.st_size) == item.size;
    return isAsSaved ? "" : "it has come out of the backup as something else than was saved";
}

void RestoreDelivery::deliverFolder(const BackupIndex::Item& folder, const std::string& target) {
    const std::string path = index_.pathOf(folder);
    if (const std::string reason = makeFolder(target); !reason.empty())
        return fail(path, reason);
    const std::string staged = stagedPath(folder.snapshot, path);
    const FolderMetadata metadata(staged);
    metadata.openStaged();
    for (const BackupIndex::Item& child : index_.children(folder)) {
        if (stop_.isSet())
            return;
        if (!isNameless(index_.nameOf(child)))
            deliver(child, childOf(target, index_.nameOf(child)));
    }
    if (folder.snapshot == 0)
        return; // only contents of it are known
    deliverUnspeakable(staged, target);
    if (const std::string reason = metadata.applyTo(target); !reason.empty())
        fail(path, reason);
}

// The index cannot say their names, the disk can.
void RestoreDelivery::deliverUnspeakable(const std::string& stagedFolder, const std::string& target) {
    std::error_code error;
    std::filesystem::directory_iterator entry(stagedFolder, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::string name = entry->path().filename();
        const std::string path = entry->path().string().substr(staged_.folder.size());
        if (isUtf8(name))
            continue;
        if (staged_.errors.contains(path.substr(path.find('/', 1))))
            fail(path.substr(path.find('/', 1)), "it has not come out of the backup whole");
        else if (std::rename(entry->path().c_str(), childOf(target, name).c_str()) != 0)
            fail(path.substr(path.find('/', 1)), errorText());
    }
}

void RestoreDelivery::fail(const std::string& path, const std::string& reason) {
    failures_.push_back({path, reason});
}

// "ignoring error for PATH: REASON", and PATH may hold ": " itself: every beginning that is in the backup is
// taken for it. REASON ends with its line; what else restic has to say may come behind it.
ErrorsByPath errorsByPath(const BackupIndex& index, std::string_view errors) {
    ErrorsByPath byPath;
    for (std::size_t at = errors.find(errorMark); at != std::string_view::npos; at = errors.find(errorMark)) {
        errors.remove_prefix(at + errorMark.size());
        const std::string_view text =
            errors.substr(0, std::min(errors.find(errorMark), errors.find(lastMark)));
        const std::size_t end = text.find_last_not_of('\n');
        const std::string_view entry = text.substr(0, end == std::string_view::npos ? 0 : end + 1);
        for (std::size_t colon = entry.find(": "); colon != std::string_view::npos;
             colon = entry.find(": ", colon + 1))
            if (const std::string_view path = entry.substr(0, colon); index.find(path) || !isUtf8(path))
                byPath.emplace(path, entry.substr(colon + 2, entry.find('\n', colon) - colon - 2));
    }
    return byPath;
}

} // namespace kelvane
