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
constexpr std::size_t blockSize = 4096;

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

Json printedBy(const Restic& restic, std::vector<std::string> arguments, const StopSignal& stop,
               std::string& failure) {
    Restic::Call call;
    call.arguments = std::move(arguments);
    call.longestLine = longestTree;
    std::string text;
    call.onLine = [&text](std::string_view line) {
        text.append(line).append("\n");
        return true;
    };
    const ResticOutcome outcome = restic.run(call, stop);
    if (!outcome.succeeded())
        failure = restoreFailureFor(outcome);
    return Json::parse(text, nullptr, false);
}

// What the repository says of the file; no object when it cannot be found out.
Json nodeOf(const Restic& restic, const std::string& snapshotId, const std::string& path,
            const StopSignal& stop, std::string& failure) {
    Json node = printedBy(restic, {"cat", "snapshot", snapshotId, "--no-lock"}, stop, failure);
    const char* subtree = "tree";
    std::string_view rest = path;
    while (!rest.empty() && failure.empty() && node.is_object()) {
        rest.remove_prefix(1);
        const std::string_view name = rest.substr(0, rest.find('/'));
        rest.remove_prefix(name.size());
        const std::string id = node.value(subtree, "");
        const Json tree = printedBy(restic, {"cat", "blob", id, "--no-lock"}, stop, failure);
        node = {};
        if (tree.is_object() && tree.contains("nodes"))
            for (const Json& each : tree["nodes"])
                if (nameInTree(each.value("name", "")) == name)
                    node = each;
        subtree = "subtree";
    }
    return node;
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

std::string fill(int file, const Restic& restic, const std::string& snapshotId, const StreamedFile& wanted,
                 const StopSignal& stop) {
    HoleWriter writer(file);
    Restic::Call call;
    call.arguments = {"dump", snapshotId, wanted.path};
    call.takesLockIfPossible = true;
    call.hasBinaryOutput = true;
    call.onLine = [&writer](std::string_view bytes) {
        writer.write(bytes);
        return writer.error() == 0; // else it is stopped before long
    };
    const ResticOutcome outcome = restic.run(call, stop);
    if (writer.error() != 0)
        return "it cannot be written: " + std::generic_category().message(writer.error());
    if (!outcome.succeeded())
        return restoreFailureFor(outcome);
    if (::ftruncate(file, static_cast<off_t>(writer.size())) != 0)
        return "it cannot be written: " + reasonText();
    return writer.size() == wanted.item.size
               ? ""
               : "it has come out of the backup as something else than was saved";
}

// An owner that only root may give stays as it is. The mode is for the delivery: it may forbid the
// attributes.
std::string applyNode(int file, const Json& node, const BackupIndex::Item& item) {
    if (::fchown(file, item.uid, item.gid) != 0 && errno != EPERM)
        return "its owner cannot be set: " + reasonText();
    for (const Json& each : node.value("extended_attributes", Json::array())) {
        const std::string name = each.value("name", "");
        const std::string value = decodedBase64(each.value("value", ""));
        if (::fsetxattr(file, name.c_str(), value.data(), value.size(), 0) != 0 &&
            (name.starts_with("system.posix_acl_") || (name.starts_with("user.") && errno != ENOTSUP)))
            return "its attribute " + name + " cannot be set: " + reasonText();
    }
    const std::array<timespec, 2> times{item.modified.asTimespec(), item.modified.asTimespec()};
    return ::futimens(file, times.data()) == 0 ? "" : "its times cannot be set: " + reasonText();
}

} // namespace

std::string streamFile(const Restic& restic, const std::string& snapshotId, const StreamedFile& wanted,
                       const StagingFolder& staging, const StopSignal& stop) {
    std::string failure;
    const Json node = nodeOf(restic, snapshotId, wanted.path, stop, failure);
    if (!failure.empty())
        return failure;
    if (!node.is_object() || node.value("type", "") != "file")
        return "it is not in the snapshot that should hold it";
    const FileDescriptor around =
        staging.open(std::to_string(wanted.item.snapshot) + std::string(folderOf(wanted.path)));
    const std::string name = lastPathComponent(wanted.path);
    const FileDescriptor file(::openat(
        around.get(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file)
        return "it cannot be written: " + reasonText();
    ::fremovexattr(file.get(), "system.posix_acl_access"); // inherited from the folder
    if (std::string reason = fill(file.get(), restic, snapshotId, wanted, stop); !reason.empty())
        return reason;
    if (std::string reason = applyNode(file.get(), node, wanted.item); !reason.empty())
        return reason;
    return ::fsync(file.get()) == 0 ? "" : "it cannot be written: " + reasonText();
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
