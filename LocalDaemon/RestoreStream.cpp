#include "LocalDaemon/RestoreStream.h"

#include "Foundation/PathComponents.h"
#include "Foundation/Unicode.h"
#include "LocalDaemon/CleanPath.h"
#include "LocalDaemon/ResticJson.h"
#include "LocalDaemon/RestoreTrouble.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <system_error>
#include <unistd.h>

namespace kelvane {
namespace {

using Json = nlohmann::json;

constexpr std::size_t longestTree = std::size_t{1} << 30U; // bytes of JSON
constexpr std::size_t mostPrinted = 100;                   // trees in memory
constexpr std::size_t blockSize = 4096;
constexpr std::string_view accessRules = "system.posix_acl_";
constexpr std::chrono::milliseconds grace(1500); // a person waits for the end of what was cancelled
constexpr std::chrono::hours forEver(24 * 365);

std::string reasonText() {
    return std::generic_category().message(errno);
}

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

// Takes bytes one after the other and leaves out blocks of zeros.
class HoleWriter {
public:
    explicit HoleWriter(int file) : file_(file) {}

    void write(std::string_view bytes) {
        while (!bytes.empty() && error_ == 0) {
            const std::string_view part = bytes.substr(0, blockSize - size_ % blockSize);
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

// An owner that only root may give stays as it is. The mode is for the delivery: it may forbid the
// attributes, as an access rule may, which therefore comes last.
std::string applyNode(int file, const Json& node, const BackupIndex::Item& item) {
    if (::fchown(file, item.uid, item.gid) != 0 && errno != EPERM)
        return "its owner cannot be set: " + reasonText();
    for (const bool areRules : {false, true})
        for (const Json& each : node.value("extended_attributes", Json::array())) {
            const std::string name = each.value("name", "");
            const std::string value = decodedBase64(each.value("value", ""));
            if (name.starts_with(accessRules) == areRules &&
                ::fsetxattr(file, name.c_str(), value.data(), value.size(), 0) != 0 &&
                (areRules || (name.starts_with("user.") && errno != ENOTSUP)))
                return "its attribute " + name + " cannot be set: " + reasonText();
        }
    const std::array<timespec, 2> times{item.modified.asTimespec(), item.modified.asTimespec()};
    return ::futimens(file, times.data()) == 0 ? "" : "its times cannot be set: " + reasonText();
}

} // namespace

// What a repository says of files. Trees are asked for once: the next file mostly is in the same folders.
class RestoreStream::Trees {
public:
    Trees(const Restic& restic, const StopSignal& stop) : restic_(restic), stop_(stop) {}

    // No object when it cannot be found out.
    [[nodiscard]] Json nodeOf(const std::string& snapshotId, const std::string& path, std::string& failure);

private:
    [[nodiscard]] const Json& printedBy(const std::vector<std::string>& arguments, std::string& failure);

    const Restic& restic_;
    const StopSignal& stop_;
    std::map<std::vector<std::string>, Json> printed_; // by restic's arguments
};

const Json& RestoreStream::Trees::printedBy(const std::vector<std::string>& arguments, std::string& failure) {
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
    const ResticOutcome outcome = restic_.run(call, stop_);
    static const Json none;
    if (!outcome.succeeded()) {
        failure = restoreFailureFor(outcome);
        return none;
    }
    return printed_[arguments] = Json::parse(text, nullptr, false);
}

Json RestoreStream::Trees::nodeOf(const std::string& snapshotId, const std::string& path,
                                  std::string& failure) {
    Json node = printedBy({"cat", "snapshot", snapshotId, "--no-lock"}, failure);
    const char* subtree = "tree";
    std::string_view rest = path;
    while (!rest.empty() && failure.empty() && node.is_object()) {
        rest.remove_prefix(1);
        const std::string_view name = rest.substr(0, rest.find('/'));
        rest.remove_prefix(name.size());
        const Json& tree = printedBy({"cat", "blob", node.value(subtree, ""), "--no-lock"}, failure);
        node = {};
        if (tree.is_object() && tree.contains("nodes"))
            for (const Json& each : tree["nodes"])
                if (nameInTree(each.value("name", "")) == name)
                    node = each;
        subtree = "subtree";
    }
    return node;
}

RestoreStream::RestoreStream(Tools tools)
    : tools_(std::move(tools)), trees_(std::make_unique<Trees>(*tools_.restic, tools_.stop)) {}
RestoreStream::~RestoreStream() = default;

std::string RestoreStream::bring(const BackupIndex::Item& item, const StagingFolder& staging) {
    hasNames_ = false;
    const std::string path = tools_.index->pathOf(item);
    const Snapshot* const snapshot = tools_.index->snapshot(item.snapshot);
    if (!snapshot)
        return "the snapshot that holds it is not in the backup any more";
    std::string failure;
    const Json node = trees_->nodeOf(snapshot->id, path, failure);
    if (!failure.empty())
        return failure;
    if (!node.is_object() || node.value("type", "") != "file")
        return "it is not in the snapshot that should hold it";
    const FileDescriptor around = staging.open(std::to_string(item.snapshot) + std::string(folderOf(path)));
    const std::string name = lastPathComponent(path);
    last_ = {item.snapshot, node.value("device_id", std::uint64_t{0}), node.value("inode", std::uint64_t{0})};
    hasNames_ = node.value("links", std::uint64_t{0}) > 1;
    if (hasNames_ && linkDelivered(around.get(), name))
        return {};
    const FileDescriptor file(::openat(
        around.get(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file)
        return "it cannot be written: " + reasonText();
    ::fremovexattr(file.get(), "system.posix_acl_access"); // inherited from the folder
    failure = write(file.get(), item, staging);
    if (failure.empty())
        failure = applyNode(file.get(), node, item);
    if (failure.empty() && ::fsync(file.get()) != 0)
        failure = "it cannot be written: " + reasonText();
    if (!failure.empty())
        ::unlinkat(around.get(), name.c_str(), 0); // the next one may need the room
    return failure;
}

void RestoreStream::noteDelivered(const std::string& target) {
    const FileDescriptor around = openFolder(std::string(folderOf(target)));
    struct stat status {};
    if (hasNames_ &&
        ::fstatat(around.get(), lastPathComponent(target).c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
        delivered_[last_] = {target, status.st_dev, status.st_ino};
}

// If it is still there.
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

std::string RestoreStream::write(int file, const BackupIndex::Item& item,
                                 const StagingFolder& staging) const {
    HoleWriter writer(file);
    ArrivalWatch watch({staging.path(), *tools_.index, tools_.stop, tools_.onArrival, [](bool) {}, forEver});
    Restic::Call call;
    call.arguments = {"dump", tools_.index->snapshot(item.snapshot)->id, tools_.index->pathOf(item)};
    call.takesLockIfPossible = true;
    call.hasBinaryOutput = true;
    call.grace = grace;
    call.onLine = [&](std::string_view bytes) {
        writer.write(bytes);
        if (writer.error() != 0)
            watch.stopCall(); // the rest may be terabytes
        return true;
    };
    const ResticOutcome outcome = tools_.restic->run(call, watch.callStop());
    if (writer.error() != 0)
        return "it cannot be written: " + std::generic_category().message(writer.error());
    if (!outcome.succeeded())
        return restoreFailureFor(outcome);
    if (::ftruncate(file, static_cast<off_t>(writer.size())) != 0)
        return "it cannot be written: " + reasonText();
    return writer.size() == item.size ? "" : "it has come out of the backup as something else than was saved";
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
