#include "PreferencePane/Help/LogArchive.h"

#include "Foundation/Format.h"
#include "Foundation/PathComponents.h"
#include "Platform/SpecialFolders.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace kelvane {
namespace {

// Sets the file mode mask, also for child processes, so that new files are private to this user.
class PrivateFiles {
public:
    PrivateFiles() : before_(::umask(S_IRWXG | S_IRWXO)) {}
    ~PrivateFiles() { ::umask(before_); }
    PrivateFiles(const PrivateFiles&) = delete;
    PrivateFiles& operator=(const PrivateFiles&) = delete;

private:
    const mode_t before_;
};

bool isOwnFile(const FileDescriptor& file) {
    struct stat status {};
    return ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == ::geteuid() &&
           status.st_nlink == 1;
}

} // namespace

LogArchive::LogArchive(std::string zipProgram)
    : zipProgram_(std::move(zipProgram)), path_(appendPathComponent(temporaryFolder(), name)) {}

LogArchive::~LogArchive() {
    ::unlink(path_.c_str());
}

std::optional<ChildProcess> LogArchive::zip(const std::string& logPath, std::string& reason) const {
    // The zip program would read another path as an option or as standard input.
    if (!isAbsolutePath(logPath)) {
        reason = '"' + logPath + "\" is not an absolute path";
        return std::nullopt;
    }
    if (::unlink(path_.c_str()) != 0 && errno != ENOENT) {
        reason = "cannot remove " + path_ + ": " + errorText();
        return std::nullopt;
    }
    const PrivateFiles privately;
    auto process = ChildProcess::start({.arguments = {zipProgram_, path_, logPath}});
    if (!process)
        reason = zipProgram_ + " cannot be started: " + errorText();
    return process;
}

FileDescriptor LogArchive::open() const {
    FileDescriptor file(::open(path_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    return file && isOwnFile(file) ? std::move(file) : FileDescriptor();
}

} // namespace kelvane
