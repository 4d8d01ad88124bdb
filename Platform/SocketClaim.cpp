#include "Platform/SocketClaim.h"

#include "Foundation/Format.h"
#include "Foundation/PathComponents.h"
#include "Platform/FileContents.h"
#include "Platform/SocketAddress.h"
#include "Platform/SpecialFolders.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace kelvane {
namespace {

bool isSameFile(int descriptor, const std::string& path) {
    struct stat opened {};
    struct stat named {};
    return ::fstat(descriptor, &opened) == 0 && ::lstat(path.c_str(), &named) == 0 &&
           opened.st_ino == named.st_ino && opened.st_dev == named.st_dev;
}

// Like " (process 123)", or empty when the lock file does not say.
std::string ownerOf(int lock) {
    std::array<char, 16> text{};
    const ssize_t size = ::pread(lock, text.data(), text.size() - 1, 0);
    return size > 0 ? " (process " + std::string(text.data()) + ")" : "";
}

// Whether the file is a lock file, new or left behind: it is empty, contains the id of a process, or contains
// zeros because the machine crashed before the id was on the disk.
bool isLockFile(int lock) {
    std::array<char, 16> text{};
    const ssize_t size = ::pread(lock, text.data(), text.size(), 0);
    return size >= 0 && size < static_cast<ssize_t>(text.size()) &&
           std::all_of(text.begin(), text.begin() + size,
                       [](char each) { return each == 0 || (each >= '0' && each <= '9'); });
}

void writeOwner(int lock) {
    const std::string text = std::to_string(::getpid());
    // Only used in the message of another process.
    if (::ftruncate(lock, 0) == 0) [[maybe_unused]]
        const ssize_t size = ::pwrite(lock, text.data(), text.size(), 0);
}

} // namespace

SocketProbe probeSocket(const std::string& path, int type) {
    SocketProbe probe{FileDescriptor(::socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))};
    const sockaddr_un address = socketAddress(path);
    if (!probe.socket ||
        ::connect(probe.socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        probe.error = errno;
    return probe;
}

SocketClaim::SocketClaim(std::string path) : path_(std::move(path)), lockPath_(path_ + ".lock") {
    refusal_ = refusalOfPath();
    if (refusal_.empty())
        refusal_ = refusalOfLock();
    if (refusal_.empty())
        refusal_ = refusalOfSocket();
}

SocketClaim::~SocketClaim() {
    if (!lock_)
        return;
    if (refusal_.empty())
        ::unlink(path_.c_str());
    ::unlink(lockPath_.c_str());
}

std::string SocketClaim::refusalOfPath() const {
    if (path_.empty() || path_.size() > longestSocketPath)
        return "Socket path must be 1 to " + std::to_string(longestSocketPath) + " bytes long: " + path_;
    const std::string folder = deleteLastPathComponent(path_);
    if (!folder.empty() && !ensureFolder(folder))
        return "Cannot create " + folder + " for the socket: " + errorText();
    return {};
}

std::string SocketClaim::refusalOfLock() {
    while (true) {
        FileDescriptor lock(
            ::open(lockPath_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, privateFileMode));
        if (!lock)
            return "The lock file " + lockPath_ + " cannot be opened: " + errorText();
        if (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0)
            return "Another daemon" + ownerOf(lock.get()) + " already serves " + path_;
        // The previous holder of the lock removes the file when it ends, so the name may refer to another
        // file now.
        if (!isSameFile(lock.get(), lockPath_))
            continue;
        if (!isLockFile(lock.get()))
            return lockPath_ + " is not a lock file; it was left unchanged";
        writeOwner(lock.get());
        lock_ = std::move(lock);
        return {};
    }
}

std::string SocketClaim::refusalOfSocket() const {
    struct stat status {};
    if (::lstat(path_.c_str(), &status) != 0)
        return errno == ENOENT ? "" : path_ + " cannot be used: " + errorText();
    if (!S_ISSOCK(status.st_mode))
        return path_ + " is not a socket; it was left unchanged";
    switch (const int error = probeSocket(path_).error) {
    case ECONNREFUSED: return {}; // left by a process that has ended
    case 0:
    case EAGAIN: return "Another program already serves " + path_;
    default: return path_ + " cannot be used: " + errorText(error);
    }
}

} // namespace kelvane
