#include "Support/LogFile.h"

#include "Foundation/CleanPath.h"
#include "Foundation/Format.h"
#include "Platform/FileContents.h"
#include "Platform/SpecialFolders.h"
#include "Support/Logging.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace kelvane {

LogFile::LogFile(std::string path, Limits limits) : path_(std::move(path)), limits_(limits) {
    if (ensureFolder(std::string(folderOf(path_))))
        open();
    else
        error_ = errorText();
}

bool LogFile::write(std::string_view line) {
    if (size_ > 0 && size_ + line.size() >= limits_.bytes)
        rotate();
    if (!file_)
        open();
    const std::string text = std::string(line) + '\n';
    // A single write, so that lines of a second daemon cannot mix with these.
    const ssize_t written = file_ ? ::write(file_.get(), text.data(), text.size()) : -1;
    size_ += written > 0 ? static_cast<std::size_t>(written) : 0;
    return written == static_cast<ssize_t>(text.size());
}

void LogFile::open() {
    // Does not wait for the reader of a pipe, nor follow a link that another user may have put there.
    file_.reset(::open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK,
                       privateFileMode));
    struct stat status {};
    error_.clear();
    if (!file_ || ::fstat(file_.get(), &status) != 0)
        error_ = errorText();
    else if (!S_ISREG(status.st_mode))
        error_ = "it is not a regular file";
    if (!error_.empty())
        file_.reset();
    size_ = static_cast<std::size_t>(status.st_size);
}

bool LogFile::mayReplace(const std::string& path) {
    std::array<char, 128> begin{};
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    if (!file)
        return errno == ENOENT;
    const ssize_t size = ::read(file.get(), begin.data(), begin.size());
    return size > 0 && beginsAsLogEntry({begin.data(), static_cast<std::size_t>(size)});
}

void LogFile::rotate() {
    std::vector<std::string> names{path_};
    for (unsigned number = 1; number < limits_.files; ++number)
        if (const std::string name = path_ + '.' + std::to_string(number); mayReplace(name))
            names.push_back(name);
    if (names.size() == 1 && mayReplace(path_))
        ::unlink(path_.c_str());
    for (std::size_t number = names.size() - 1; number > 0; --number)
        std::rename(names[number - 1].c_str(), names[number].c_str()); // fails if there is none yet
    file_.reset();
    size_ = 0;
}

} // namespace kelvane
