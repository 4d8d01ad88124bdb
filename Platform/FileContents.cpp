#include "Platform/FileContents.h"

#include "Foundation/Format.h"
#include "Platform/FileDescriptor.h"
#include "Platform/SpecialFolders.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>

namespace kelvane {
namespace {

constexpr std::size_t readingStep = std::size_t{64} << 10U;
constexpr int temporaryNameAttempts = 8;

FileOutcome failure(const std::string& step, const std::string& path, int error) {
    return {error, step + ' ' + path + ": " + errorText(error)};
}

FileReading readingFailure(const std::string& step, const std::string& path, int error) {
    return {failure(step, path, error), {}};
}

template <class Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

// 0 when `descriptor` is a regular file.
int refusalOf(int descriptor) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0)
        return errno;
    if (S_ISDIR(status.st_mode))
        return EISDIR;
    return S_ISREG(status.st_mode) ? 0 : EINVAL;
}

struct Location {
    std::string folder;
    std::string name;
};

Location locationOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return {".", path};
    return {path.substr(0, std::max<std::size_t>(slash, 1)), path.substr(slash + 1)};
}

// A uniquely named file in a folder, removed again unless it is renamed.
class TemporaryFile {
public:
    explicit TemporaryFile(int folder) : folder_(folder) {
        for (int attempt = 0; attempt < temporaryNameAttempts && !descriptor_; ++attempt) {
            if (!chooseName())
                return;
            descriptor_.reset(::openat(folder_, name_.c_str(),
                                       O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                       privateFileMode));
            if (!descriptor_ && errno != EEXIST)
                return;
        }
    }
    ~TemporaryFile() {
        if (descriptor_ && !moved_)
            ::unlinkat(folder_, name_.c_str(), 0);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    [[nodiscard]] bool isOpen() const { return static_cast<bool>(descriptor_); }

    // These functions return false with errno set on failure.
    bool fill(std::span<const std::uint8_t> bytes) {
        while (!bytes.empty()) {
            const ssize_t size =
                uninterrupted([&] { return ::write(descriptor_.get(), bytes.data(), bytes.size()); });
            if (size < 0)
                return false;
            bytes = bytes.subspan(static_cast<std::size_t>(size));
        }
        return true;
    }
    bool finish(mode_t mode) {
        return ::fchmod(descriptor_.get(), mode) == 0 &&
               uninterrupted([&] { return ::fsync(descriptor_.get()); }) == 0;
    }
    bool moveTo(const std::string& name) {
        moved_ = ::renameat(folder_, name_.c_str(), folder_, name.c_str()) == 0;
        return moved_;
    }

private:
    // Not derived from the target's name, which may already have the maximum length.
    bool chooseName() {
        std::uint64_t number = 0;
        if (::getrandom(&number, sizeof number, 0) != static_cast<ssize_t>(sizeof number))
            return false;
        std::array<char, 32> text{};
        std::snprintf(text.data(), text.size(), ".kelvane-%016llx", static_cast<unsigned long long>(number));
        name_ = text.data();
        return true;
    }

    int folder_;
    std::string name_;
    FileDescriptor descriptor_;
    bool moved_ = false;
};

} // namespace

FileReading readFile(const std::string& path, std::size_t limit, SymbolicLinks links) {
    const int noLinks = links == SymbolicLinks::Refuse ? O_NOFOLLOW : 0;
    // Without O_NONBLOCK, opening a pipe would wait for its writer.
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | noLinks));
    if (!file)
        return readingFailure("cannot open", path, errno);
    if (const int error = refusalOf(file.get()))
        return readingFailure("cannot read", path, error);
    FileReading reading;
    // Reads one byte more than the limit to detect a longer file. The file's size is not used: it may grow.
    for (std::size_t used = 0;;) {
        const std::size_t step = std::min(readingStep, limit - used) + 1;
        reading.bytes.resize(used + step);
        const ssize_t size =
            uninterrupted([&] { return ::read(file.get(), reading.bytes.data() + used, step); });
        if (size < 0)
            return readingFailure("cannot read", path, errno);
        used += static_cast<std::size_t>(size);
        if (used > limit)
            return readingFailure("cannot read", path, EFBIG);
        if (size == 0) {
            reading.bytes.resize(used);
            return reading;
        }
    }
}

FileOutcome replaceFileAtomically(const std::string& path, std::span<const std::uint8_t> bytes, mode_t mode) {
    const Location location = locationOf(path);
    const FileDescriptor folder(::open(location.folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder)
        return failure("cannot open", location.folder, errno);
    TemporaryFile file(folder.get());
    if (!file.isOpen())
        return failure("cannot create a file in", location.folder, errno);
    if (!file.fill(bytes) || !file.finish(mode))
        return failure("cannot write", path, errno);
    if (!file.moveTo(location.name))
        return failure("cannot replace", path, errno);
    // Some file systems cannot flush folders (EINVAL), which is not a failure: no more can be done there.
    if (uninterrupted([&] { return ::fsync(folder.get()); }) != 0 && errno != EINVAL)
        return failure("cannot flush", location.folder, errno);
    return {};
}

FileOutcome replacePrivateFile(const std::string& path, std::span<const std::uint8_t> bytes) {
    if (!ensureFolder(locationOf(path).folder))
        return failure("cannot create the parent folder of", path, errno);
    return replaceFileAtomically(path, bytes, privateFileMode);
}

FileOutcome replacePrivateFile(const std::string& path, std::string_view text) {
    return replacePrivateFile(path,
                              std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

} // namespace kelvane
