#include "PaneTools/HandOffFile.h"

#include "Platform/FileDescriptor.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr std::size_t wordOffset = 36;
constexpr mode_t fileMode = 0700;
// Opening must neither block nor follow a link, whatever is at the path.
constexpr int openFlags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

// Checked through the descriptor: the name may refer to another file by now.
bool isOwnFile(int descriptor) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0)
        return false;
    errno = EPERM;
    return S_ISREG(status.st_mode) && status.st_uid == ::geteuid() && status.st_nlink == 1;
}

bool hasItsSize(int descriptor) {
    struct stat status {};
    errno = EINVAL;
    return ::fstat(descriptor, &status) == 0 && status.st_size == static_cast<off_t>(HandOffFile::size);
}

// Writes zeros instead of extending the file: on a full disk a hole could be mapped, but not accessed.
bool fillWithZeros(int descriptor) {
    constexpr std::array<std::uint8_t, HandOffFile::size> zeros{};
    return ::fchmod(descriptor, fileMode) == 0 && ::ftruncate(descriptor, zeros.size()) == 0 &&
           ::pwrite(descriptor, zeros.data(), zeros.size(), 0) == std::ssize(zeros);
}

} // namespace

std::unique_ptr<HandOffFile> HandOffFile::create(const std::string& path) {
    const FileDescriptor file(::open(path.c_str(), openFlags | O_CREAT, fileMode));
    std::unique_ptr<HandOffFile> made;
    if (file && isOwnFile(file.get()) && fillWithZeros(file.get()))
        made = map(file.get(), path);
    if (!made) {
        const int reason = errno;
        ::unlink(path.c_str());
        errno = reason;
    }
    return made;
}

std::unique_ptr<HandOffFile> HandOffFile::open(const std::string& path) {
    const FileDescriptor file(::open(path.c_str(), openFlags));
    if (!file || !isOwnFile(file.get()) || !hasItsSize(file.get()))
        return nullptr;
    return map(file.get(), {});
}

std::unique_ptr<HandOffFile> HandOffFile::map(int descriptor, const std::string& pathToRemove) {
    void* const memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (memory == MAP_FAILED)
        return nullptr;
    const std::span<std::uint8_t, size> bytes(static_cast<std::uint8_t*>(memory), size);
    return std::unique_ptr<HandOffFile>(new HandOffFile(bytes, pathToRemove));
}

HandOffFile::~HandOffFile() {
    ::munmap(bytes_.data(), size);
    if (!pathToRemove_.empty())
        ::unlink(pathToRemove_.c_str());
}

// The mapping starts at a page boundary, so the word is aligned.
std::uint32_t& HandOffFile::word() const {
    return *static_cast<std::uint32_t*>(static_cast<void*>(bytes_.data() + wordOffset));
}

std::uint32_t HandOffFile::completionWord() const {
    return std::atomic_ref(word()).load();
}

void HandOffFile::complete(std::uint32_t completionWord) {
    std::atomic_ref(word()).store(completionWord);
}

} // namespace kelvane
