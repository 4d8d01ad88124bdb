#include "Support/Preferences/PreferencesFile.h"

#include "Foundation/Format.h"
#include "Platform/FileContents.h"
#include "Platform/FileDescriptor.h"
#include "Platform/PropertyListFile.h"
#include "Platform/SpecialFolders.h"
#include "Support/Preferences/DamagedFile.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <sys/file.h>
#include <thread>

namespace kelvane {
namespace {

constexpr std::size_t largestFile = std::size_t{4} << 20U;
constexpr std::chrono::seconds lockTimeout(2);
// Short compared with the time for which a writer holds the lock: otherwise a process that writes without
// pause would keep all others out.
constexpr std::chrono::microseconds lockRetryInterval(250);

// Locks a file for as long as this object lives. Polls, because a blocking flock has no timeout.
class FileLock {
public:
    explicit FileLock(const std::string& path)
        : file_(
              ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, privateFileMode)) {
        const auto deadline = std::chrono::steady_clock::now() + lockTimeout;
        error_ = file_ ? tryLock() : errno;
        while (error_ == EWOULDBLOCK && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(lockRetryInterval);
            error_ = tryLock();
        }
    }

    // Returns 0 if the lock is held, otherwise the errno of the failure (EWOULDBLOCK: timed out).
    [[nodiscard]] int error() const { return error_; }

private:
    [[nodiscard]] int tryLock() const { return ::flock(file_.get(), LOCK_EX | LOCK_NB) == 0 ? 0 : errno; }

    FileDescriptor file_;
    int error_ = 0;
};

bool holds(const Dictionary& entries, std::string_view key, const Value& value) {
    const Value* const present = entries.find(key);
    // Value compares numbers regardless of their kind, but other readers distinguish the kinds.
    return present != nullptr && present->kind() == value.kind() && *present == value;
}

} // namespace

PreferencesFile::Reading PreferencesFile::read() const {
    const FileReading file = readFile(path_, largestFile);
    if (file.error == ENOENT || file.error == ENOTDIR)
        return {.content = Content::Absent};
    if (!file.succeeded())
        return {.content = Content::Unreadable, .error = file.reason};
    const PropertyListReading list = readPropertyList(file.bytes);
    if (list.succeeded() && list.value.isDictionary())
        return {.content = Content::Read, .entries = list.value.dictionary()};
    const std::string damage = list.succeeded() ? "not a dictionary" : list.error;
    return {.content = Content::Damaged, .error = path_ + " is damaged: " + damage, .damage = damage};
}

PreferencesFile::Writing PreferencesFile::set(std::string_view key, const Value& value,
                                              Dictionary& entries) const {
    // Most writes do not change the value: these need no lock and no flush.
    if (Reading reading = read(); holds(reading.entries, key, value)) {
        entries = std::move(reading.entries);
        return {};
    }
    if (const std::size_t slash = path_.rfind('/'); slash != std::string::npos && slash > 0) {
        if (const std::string folder = path_.substr(0, slash); !ensureFolder(folder))
            return {"cannot create " + folder + ": " + errorText(), false};
    }
    const FileLock lock(path_ + ".lock");
    if (lock.error() != 0)
        return {"cannot lock " + path_ + ".lock: " + errorText(lock.error()), false};
    return setLocked(key, value, entries);
}

PreferencesFile::Writing PreferencesFile::setLocked(std::string_view key, const Value& value,
                                                    Dictionary& entries) const {
    Reading reading = read();
    if (reading.content == Content::Unreadable)
        return {reading.error, false};
    Dictionary changed = reading.content == Content::Damaged ? entries : std::move(reading.entries);
    changed.set(key, value);
    const PropertyListWriting list = writeBinaryPropertyList(changed);
    if (!list.succeeded())
        return {"cannot write " + path_ + ": " + list.error};
    // `read` refuses a larger file.
    if (list.bytes.size() > largestFile)
        return {"cannot write " + path_ + ": it would become too large"};
    if (reading.content == Content::Damaged)
        if (const std::string failure = setAside(path_, reading.damage, DamagedFile::Remains);
            !failure.empty())
            return {reading.error + ", and cannot be set aside: " + failure, false};
    const FileOutcome outcome = replacePrivateFile(path_, list.bytes);
    if (!outcome.succeeded())
        return {outcome.reason, false};
    entries = std::move(changed);
    return {};
}

} // namespace kelvane
