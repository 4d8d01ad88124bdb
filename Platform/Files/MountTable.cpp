#include "Platform/Files/MountTable.h"

#include "Foundation/Format.h"
#include "Foundation/PathComponents.h"
#include "Foundation/Unicode.h"
#include "Platform/Processes/ChildProcess.h"

#include <algorithm>
#include <array>
#include <bit>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <linux/fs.h>
#include <optional>
#include <poll.h>
#include <set>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr const char* uuidFolder = "/dev/disk/by-uuid";
constexpr const char* mountTablePath = "/proc/self/mountinfo";
// In bytes. Some thousand containers need a few megabytes.
constexpr std::size_t mountTableLimit = std::size_t{16} << 20U;

constexpr auto mountFolders = std::to_array<std::string_view>({"/media/", "/mnt/", "/run/media/"});

constexpr auto kernelFileSystems = std::to_array<std::string_view>({
    "autofs",     "binfmt_misc", "bpf",      "cgroup",  "cgroup2",     "configfs",        "debugfs",
    "devpts",     "devtmpfs",    "efivarfs", "fusectl", "fuse.portal", "fuse.gvfsd-fuse", "hugetlbfs",
    "mqueue",     "nsfs",        "overlay",  "proc",    "pstore",      "ramfs",           "rpc_pipefs",
    "securityfs", "selinuxfs",   "sysfs",    "tmpfs",   "tracefs",
});

// Prefixes of file system types.
constexpr auto remoteFileSystems = std::to_array<std::string_view>(
    {"9p", "afs", "autofs", "ceph", "cifs", "coda", "fuse.", "gfs", "lustre", "ncp", "nfs", "ocfs2", "smb"});
constexpr std::chrono::milliseconds longestAnswer(500);
constexpr std::chrono::milliseconds answerStep(2);
constexpr std::chrono::seconds answerHolds(1); // how long a mount that has answered is not asked again

struct Mount {
    std::string_view id;
    std::string_view parent; // the id of the parent mount
    std::string_view device; // "major:minor"
    std::string_view root;   // the mounted folder of the file system, with blanks escaped
    std::string mountPoint;
    std::string_view type;
    std::string source; // a device, for example
};

std::string_view takeUntil(std::string_view& text, char end) {
    const std::string_view taken = text.substr(0, text.find(end));
    text.remove_prefix(std::min(taken.size() + 1, text.size()));
    return taken;
}

bool isOctal(char character) {
    return character >= '0' && character <= '7';
}

// Decodes blanks, line ends and backslashes, which are written as a backslash and three octal digits.
std::string decoded(std::string_view field) {
    std::string text;
    for (std::size_t at = 0; at < field.size(); ++at) {
        const std::string_view code = field.substr(at + 1, 3);
        if (field[at] != '\\' || code.size() < 3 || !std::ranges::all_of(code, isOctal)) {
            text += field[at];
            continue;
        }
        text += static_cast<char>((code[0] - '0') * 64 + (code[1] - '0') * 8 + (code[2] - '0'));
        at += code.size();
    }
    return text;
}

// Fields: id, parent, device, root, mount point, options, any number of tags, "-", type, and more.
std::optional<Mount> mountInLine(std::string_view line) {
    Mount mount;
    mount.id = takeUntil(line, ' ');
    mount.parent = takeUntil(line, ' ');
    mount.device = takeUntil(line, ' ');
    mount.root = takeUntil(line, ' ');
    mount.mountPoint = decoded(takeUntil(line, ' '));
    while (!line.empty() && takeUntil(line, ' ') != "-") {
    }
    mount.type = takeUntil(line, ' ');
    mount.source = decoded(takeUntil(line, ' '));
    if (mount.type.empty() || !isAbsolutePath(mount.mountPoint))
        return std::nullopt;
    return mount;
}

bool isInMountFolder(const Mount& mount) {
    return std::ranges::any_of(mountFolders,
                               [&](std::string_view folder) { return mount.mountPoint.starts_with(folder); });
}

bool isDisk(const Mount& mount, std::string_view bootDevice) {
    return mount.device != bootDevice &&
           std::ranges::find(kernelFileSystems, mount.type) == kernelFileSystems.end();
}

// This descriptor and the one below stay open, so that disks are known even when the process runs out of
// descriptors.
std::string currentMountTable() {
    static const FileDescriptor table(::open(mountTablePath, O_RDONLY | O_CLOEXEC));
    std::string text;
    std::array<char, 1U << 16U> part{};
    for (ssize_t size = 1; size > 0 && text.size() < mountTableLimit;) {
        size = ::pread(table.get(), part.data(), part.size(), static_cast<off_t>(text.size()));
        text.append(part.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    }
    return text;
}

// The label stored in the file system; empty when there is none or it cannot be read.
std::string bootVolumeLabel() {
    static const FileDescriptor root(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::array<char, FSLABEL_MAX + 1> label{};
    return ::ioctl(root.get(), FS_IOC_GETFSLABEL, label.data()) == 0 ? label.data() : "";
}

template <class Visit>
void forEachMount(std::string_view mountTable, Visit visit) {
    while (!mountTable.empty())
        if (const std::optional<Mount> mount = mountInLine(takeUntil(mountTable, '\n')))
            visit(*mount);
}

// The mounts that their paths do not reach: those with another mount on top, those whose mount point is below
// that of another mount with the same parent, and those whose parent is hidden.
class HiddenMounts {
public:
    explicit HiddenMounts(const std::vector<Mount>& mounts) {
        for (const Mount& mount : mounts) {
            byId_.emplace(mount.id, &mount);
            if (mount.parent != mount.id)
                places_.emplace(mount.parent, mount.mountPoint);
        }
    }

    [[nodiscard]] bool holds(const Mount& mount) const {
        if (places_.contains(Place(mount.id, mount.mountPoint)))
            return true; // another mount is on top of it
        for (std::string_view at = mount.mountPoint; at.size() > 1;) {
            at = at.substr(0, std::max<std::size_t>(at.rfind('/'), 1));
            if (places_.contains(Place(mount.parent, at)))
                return true;
        }
        const auto parent = byId_.find(mount.parent);
        return parent != byId_.end() && parent->second != &mount && holds(*parent->second);
    }

private:
    using Place = std::pair<std::string_view, std::string_view>; // the id of a mount, and a mount point in it

    std::map<std::string_view, const Mount*> byId_;
    std::set<Place> places_;
};

bool isBlockDevice(const std::string& path) {
    struct stat status {};
    return isAbsolutePath(path) && ::stat(path.c_str(), &status) == 0 && S_ISBLK(status.st_mode);
}

// Device numbers may change between boots, so the device's UUID is used.
std::string uuidOfDevice(const std::string& device) {
    struct stat wanted {};
    if (!isAbsolutePath(device) || ::stat(device.c_str(), &wanted) != 0 || !S_ISBLK(wanted.st_mode))
        return {};
    std::error_code error;
    for (std::filesystem::directory_iterator at(uuidFolder, error), end; !error && at != end;
         at.increment(error)) {
        struct stat status {};
        if (::stat(at->path().c_str(), &status) == 0 && status.st_rdev == wanted.st_rdev)
            return at->path().filename();
    }
    return {};
}

std::string idOfFileSystem(const std::string& mountPoint, const std::string& type,
                           const std::string& source) {
    struct statfs status {};
    // For other file systems the number may derive from the device number and change at the next boot.
    if (type.starts_with("ext") && ::statfs(mountPoint.c_str(), &status) == 0)
        return formatText("ext-%016llx", std::bit_cast<unsigned long long>(status.f_fsid));
    if (isBlockDevice(source))
        return uuidOfDevice(source);
    return type.empty() ? std::string() : type + ' ' + source;
}

std::optional<ChildProcess> startAsking(const std::string& mountPoint) {
    // "%s" makes stat ask the file system for the size; without something to print it would ask for nothing.
    return ChildProcess::start({.arguments = {"stat", "--printf=%s", mountPoint}},
                               {.output = ChildStreams::null, .errors = ChildStreams::null});
}

} // namespace

Volumes volumesInMountTable(std::string_view mountTable, const std::string& bootVolumeName) {
    std::vector<Mount> mounts;
    std::string_view bootDevice;
    while (!mountTable.empty()) {
        const std::optional<Mount> mount = mountInLine(takeUntil(mountTable, '\n'));
        if (mount && mount->mountPoint == "/")
            bootDevice = mount->device; // the last mount hides earlier ones
        if (!mount || !isInMountFolder(*mount) || mount->mountPoint.ends_with("//deleted"))
            continue;
        // A mount on top of another hides it, and takes its place and name.
        const auto hidden = std::ranges::find(mounts, mount->mountPoint, &Mount::mountPoint);
        if (hidden == mounts.end()) {
            mounts.push_back(*mount);
        } else {
            *hidden = *mount;
        }
    }
    std::vector<Volume> volumes;
    for (const Mount& mount : mounts) {
        if (isDisk(mount, bootDevice))
            volumes.push_back({lastPathComponent(mount.mountPoint), mount.mountPoint});
    }
    return Volumes(bootVolumeName, std::move(volumes));
}

Volumes Volumes::current() {
    return volumesInMountTable(currentMountTable(), bootVolumeLabel());
}

bool isMountPoint(std::string_view path) {
    const std::string table = currentMountTable();
    for (std::string_view rest = table; !rest.empty();) {
        const std::optional<Mount> mount = mountInLine(takeUntil(rest, '\n'));
        if (mount && mount->mountPoint == path)
            return true;
    }
    return false;
}

bool isMountRoot(int folder, const char* name) {
    struct statx status {};
    return ::statx(folder, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC, STATX_TYPE,
                   &status) != 0 ||
           (status.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) == 0 ||
           (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

MountPoints mountPointsInTable(std::string_view mountTable) {
    std::vector<Mount> mounts;
    forEachMount(mountTable, [&](const Mount& mount) { mounts.push_back(mount); });
    const HiddenMounts hidden(mounts);
    MountPoints points;
    for (const Mount& mount : mounts)
        if (!hidden.holds(mount))
            points[mount.mountPoint] = mount.type;
    return points;
}

std::string fileSystemIdAt(const std::string& mountPoint) {
    std::string root;
    std::string type;
    std::string source; // the last mount hides earlier ones
    forEachMount(currentMountTable(), [&](const Mount& mount) {
        if (mount.mountPoint != mountPoint)
            return;
        root = textFromPath(mount.root);
        type = mount.type;
        source = mount.source;
    });
    const std::string id = idOfFileSystem(mountPoint, type, source);
    return id.empty() ? id : root + ' ' + id;
}

MountTableChanges::MountTableChanges() : table_(::open(mountTablePath, O_RDONLY | O_CLOEXEC)) {}

// The kernel reports each change once per descriptor of the table, and only changes after it was opened.
bool MountTableChanges::take() {
    pollfd changes{table_.get(), POLLPRI, 0};
    return !table_ || ::poll(&changes, 1, 0) != 0;
}

std::shared_ptr<const Volumes> MountedVolumes::current() {
    const std::scoped_lock guard(mutex_);
    std::string label = bootVolumeLabel();
    const bool haveChanged = changes_.take() || label != bootLabel_;
    if (!volumes_ || haveChanged) {
        volumes_ = std::make_shared<const Volumes>(volumesInMountTable(currentMountTable(), label));
        bootLabel_ = std::move(label);
    }
    return volumes_;
}

std::shared_ptr<const MountPoints> currentMountPoints() {
    static std::mutex mutex;
    static MountTableChanges changes;
    static std::shared_ptr<const MountPoints> points;
    const std::scoped_lock guard(mutex);
    const bool haveChanged = changes.take();
    if (!points || haveChanged)
        points = std::make_shared<const MountPoints>(mountPointsInTable(currentMountTable()));
    return points;
}

MountPoints::const_iterator mountAround(const MountPoints& points, std::string_view path) {
    auto mount = points.find(path);
    while (mount == points.end() && path.size() > 1) {
        path = path.substr(0, std::max<std::size_t>(path.rfind('/'), 1));
        mount = points.find(path);
    }
    return mount;
}

std::string typeOfMountAround(std::string_view path) {
    const auto points = currentMountPoints();
    const auto point = mountAround(*points, path);
    return point == points->end() ? std::string() : point->second;
}

bool isRemote(std::string_view type) {
    return type == "fuse" || std::ranges::any_of(remoteFileSystems, [&](std::string_view beginning) {
               return type.starts_with(beginning);
           });
}

// Returns how long the mount has not responded; 0 if it responds. A system call on a hung mount cannot be
// interrupted, so a child process makes it, at most one per mount at a time.
std::chrono::milliseconds silenceOf(const std::string& mountPoint) {
    using Clock = std::chrono::steady_clock;
    struct Question {
        std::optional<ChildProcess> asking;
        Clock::time_point begin;
    };
    static std::mutex mutex;
    static std::map<std::string, Question> waiting;
    static std::map<std::string, Clock::time_point> answered;
    const auto silenceSince = [](Clock::time_point begin) {
        return std::chrono::ceil<std::chrono::milliseconds>(Clock::now() - begin);
    };
    const std::scoped_lock guard(mutex);
    if (const auto known = waiting.find(mountPoint); known != waiting.end()) {
        if (!known->second.asking->hasEnded())
            return silenceSince(known->second.begin);
        waiting.erase(known);
    }
    if (const auto last = answered.find(mountPoint);
        last != answered.end() && Clock::now() - last->second < answerHolds)
        return std::chrono::milliseconds(0);
    Question question{startAsking(mountPoint), Clock::now()};
    while (question.asking && !question.asking->hasEnded()) {
        if (silenceSince(question.begin) >= longestAnswer) {
            const Clock::time_point begin = question.begin;
            waiting.emplace(mountPoint, std::move(question));
            return silenceSince(begin);
        }
        std::this_thread::sleep_for(answerStep);
    }
    if (!question.asking || question.asking->startError() != 0)
        return longestAnswer;
    answered[mountPoint] = Clock::now();
    return std::chrono::milliseconds(0);
}

bool isAnswering(const std::string& mountPoint) {
    return silenceOf(mountPoint) == std::chrono::milliseconds(0);
}

std::string silentMountAround(std::string_view path, std::chrono::milliseconds silence) {
    const auto points = currentMountPoints();
    const auto point = mountAround(*points, path);
    const bool isSilent =
        point != points->end() && isRemote(point->second) && silenceOf(point->first) >= silence;
    return isSilent ? point->first : std::string();
}

} // namespace kelvane
