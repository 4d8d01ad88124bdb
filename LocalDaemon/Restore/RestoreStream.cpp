#include "LocalDaemon/Restore/RestoreStream.h"

#include "Foundation/CleanPath.h"
#include "Foundation/Format.h"
#include "Foundation/PathComponents.h"
#include "LocalDaemon/Restore/RestoreTrouble.h"
#include "LocalDaemon/Restore/Staging/RestoreMetadata.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr std::size_t holeSize = 4096;
constexpr std::chrono::milliseconds grace(1500); // The user waits for a cancelled restore to end.
constexpr std::chrono::hours forEver(24 * 365);

// Writes a stream of bytes and skips blocks of zeros.
class HoleWriter {
public:
    explicit HoleWriter(int file) : file_(file) {}

    void write(std::string_view bytes) {
        while (!bytes.empty() && error_ == 0) {
            const std::string_view part = bytes.substr(0, holeSize - size_ % holeSize);
            bytes.remove_prefix(part.size());
            const bool isZero = part.find_first_not_of('\0') == std::string_view::npos;
            if (!isZero && ::pwrite(file_, part.data(), part.size(), static_cast<off_t>(size_)) !=
                               static_cast<ssize_t>(part.size()))
                error_ = errno != 0 ? errno : ENOSPC;
            size_ += part.size();
        }
    }
    [[nodiscard]] std::uint64_t size() const { return size_; }
    [[nodiscard]] int error() const { return error_; }

private:
    int file_;
    std::uint64_t size_ = 0;
    int error_ = 0;
};

// An owner that only root may set is left unchanged. The delivery sets the mode, which it restricts where the
// file system does not support the saved ACL.
std::string applyNode(int file, SavedNode node, const BackupIndex::Item& item, bool hasAccessRules) {
    if (!hasAccessRules)
        std::erase_if(node.attributes, [](const auto& each) { return isAccessRule(each.first); });
    if (::fchown(file, item.uid, item.gid) != 0 && errno != EPERM)
        return "its owner cannot be set: " + errorText();
    if (std::string reason = setAttributes(pathOfDescriptor(file), node.attributes); !reason.empty())
        return reason;
    const std::array<timespec, 2> times{item.modified.asTimespec(), item.modified.asTimespec()};
    return ::futimens(file, times.data()) == 0 ? "" : "its times cannot be set: " + errorText();
}

} // namespace

RestoreTrouble RestoreStream::bring(const BackupIndex::Item& item, const StagingFolder& staging) {
    hasNames_ = false;
    const std::string path = tools_.index->pathOf(item);
    const Snapshot* const snapshot = tools_.index->snapshot(item.snapshot);
    if (!snapshot)
        return goneSnapshot();
    RestoreTrouble trouble;
    const std::optional<SavedNode> node = tools_.nodes.find(snapshot->id, path, trouble);
    if (!node)
        return trouble;
    if (!node->isFile)
        return {"its snapshot does not contain it"};
    const FileDescriptor around = staging.open(std::to_string(item.snapshot) + std::string(folderOf(path)));
    const std::string name = lastPathComponent(path);
    last_ = {item.snapshot, node->device, node->inode, node->contents};
    hasNames_ = node->links > 1;
    if (hasNames_ && linkDelivered(around.get(), name))
        return {};
    const FileDescriptor file(::openat(
        around.get(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file)
        return {"it cannot be written: " + errorText()};
    ::fremovexattr(file.get(), "system.posix_acl_access"); // An ACL inherited from the folder.
    trouble = write(file.get(), item, staging);
    if (trouble.isNone())
        trouble = {applyNode(file.get(), *node, item, staging.keepsAccessRules())};
    if (trouble.isNone() && ::fsync(file.get()) != 0)
        trouble = {"it cannot be written: " + errorText()};
    if (!trouble.isNone())
        ::unlinkat(around.get(), name.c_str(), 0); // The next file may need the space.
    return trouble;
}

void RestoreStream::noteDelivered(const std::string& target) {
    const FileDescriptor around = openFolder(std::string(folderOf(target)));
    struct stat status {};
    if (hasNames_ &&
        ::fstatat(around.get(), lastPathComponent(target).c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
        delivered_[last_] = {target, status.st_dev, status.st_ino};
}

// Creates a link to the delivered file. Returns false if there is none, or another file has replaced it.
bool RestoreStream::linkDelivered(int around, const std::string& name) const {
    const auto found = delivered_.find(last_);
    if (found == delivered_.end())
        return false;
    const FileDescriptor there = openFolder(std::string(folderOf(found->second.target)));
    const std::string first = lastPathComponent(found->second.target);
    struct stat status {};
    if (::linkat(there.get(), first.c_str(), around, name.c_str(), 0) != 0)
        return false;
    if (::fstatat(around, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        status.st_dev == found->second.device && status.st_ino == found->second.number)
        return true;
    ::unlinkat(around, name.c_str(), 0);
    return false;
}

RestoreTrouble RestoreStream::write(int file, const BackupIndex::Item& item,
                                    const StagingFolder& staging) const {
    HoleWriter writer(file);
    ArrivalWatch watch({.stagingFolder = staging.path(),
                        .index = *tools_.index,
                        .onArrival = tools_.onArrival,
                        .stallTimeout = forEver});
    Restic::Call call;
    call.arguments = {"dump", tools_.index->snapshot(item.snapshot)->id, tools_.index->pathOf(item)};
    call.takesLockIfPossible = true;
    call.hasBinaryOutput = true;
    call.grace = grace;
    call.onLine = [&](std::string_view bytes) {
        writer.write(bytes);
        return true;
    };
    call.tickInterval = ArrivalWatch::interval;
    call.onTick = [&] { return writer.error() == 0 && watch.poll(); }; // The unwritten rest may be terabytes.
    const ResticOutcome outcome = tools_.restic->run(call, tools_.stop);
    if (writer.error() != 0)
        return {"it cannot be written: " + errorText(writer.error())};
    if (!outcome.succeeded())
        return restoreTroubleFor(outcome);
    if (::ftruncate(file, static_cast<off_t>(writer.size())) != 0)
        return {"it cannot be written: " + errorText()};
    return {writer.size() == item.size ? "" : "the restored file does not match the backup"};
}

} // namespace kelvane
