#include "Tests/Tools/ChildProgram.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>

namespace kelvane::tests {
namespace {

FileDescriptor memoryFile(std::string_view contents) {
    FileDescriptor file(::memfd_create("kelvane-test", MFD_CLOEXEC));
    if (!file ||
        ::write(file.get(), contents.data(), contents.size()) != static_cast<ssize_t>(contents.size()))
        throw std::runtime_error("no memory file");
    ::lseek(file.get(), 0, SEEK_SET);
    return file;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

std::string contentsOf(const FileDescriptor& file) {
    ::lseek(file.get(), 0, SEEK_SET);
    std::string text;
    std::array<char, 4096> block{};
    for (ssize_t count = 0; (count = ::read(file.get(), block.data(), block.size())) > 0;)
        text.append(block.data(), static_cast<std::size_t>(count));
    return text;
}

bool becomesReadable(int descriptor) {
    pollfd waiting{descriptor, POLLIN, 0};
    return ::poll(&waiting, 1, static_cast<int>(std::chrono::milliseconds(ChildProgram::patience).count())) >
           0;
}

bool ends(pid_t child) {
    const FileDescriptor process(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
    return process && becomesReadable(process.get());
}

// For what no descriptor tells of.
template <class Condition>
bool comesTrue(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + ChildProgram::patience;
    while (!condition() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    return condition();
}

} // namespace

ChildProgram::ChildProgram(std::vector<std::string> words, const std::vector<std::string>& environment,
                           std::string_view input, const std::string& output)
    : errors_(memoryFile({})) {
    const FileDescriptor in = memoryFile(input);
    FileDescriptor out;
    if (output.empty()) {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        output_.reset(ends[0]);
        out.reset(ends[1]);
    } else {
        out.reset(::open(output.c_str(), O_WRONLY | O_CLOEXEC));
    }
    std::vector<std::string> variables = environment;
    const std::vector<char*> arguments = pointersTo(words);
    const std::vector<char*> settings = pointersTo(variables);
    id_ = ::fork();
    if (id_ == 0) {
        ::dup2(in.get(), STDIN_FILENO);
        ::dup2(out.get(), STDOUT_FILENO);
        ::dup2(errors_.get(), STDERR_FILENO);
        ::execve(arguments.front(), arguments.data(), settings.data());
        ::_exit(99);
    }
}

ChildProgram::~ChildProgram() {
    if (id_ > 0) {
        ::kill(id_, SIGKILL);
        ::waitpid(id_, nullptr, 0);
    }
}

std::optional<std::string> ChildProgram::readLine() {
    while (true) {
        if (const std::size_t end = unread_.find('\n'); end != std::string::npos) {
            std::string line = unread_.substr(0, end);
            unread_.erase(0, end + 1);
            return line;
        }
        if (!readSome())
            return std::nullopt;
    }
}

bool ChildProgram::waitForUnread(int bytes) const {
    return comesTrue([&] {
        int count = 0;
        return ::ioctl(output_.get(), FIONREAD, &count) == 0 && count >= bytes;
    });
}

bool ChildProgram::waitForErrors() const {
    return comesTrue([&] {
        struct stat status {};
        return ::fstat(errors_.get(), &status) == 0 && status.st_size > 0;
    });
}

void ChildProgram::send(int signal) const {
    ::kill(id_, signal);
}

ChildProgram::Result ChildProgram::finish(Reading reading) {
    Result result;
    while (reading == Reading::ToTheEnd && output_ && readSome())
        ;
    int status = 0;
    if (ends(id_) && ::waitpid(id_, &status, 0) == id_) {
        id_ = -1;
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    result.output = std::move(unread_);
    result.errors = contentsOf(errors_);
    return result;
}

// False at the end of the output, and when nothing comes.
bool ChildProgram::readSome() {
    std::array<char, 4096> block{};
    if (!becomesReadable(output_.get()))
        return false;
    const ssize_t count = ::read(output_.get(), block.data(), block.size());
    if (count > 0)
        unread_.append(block.data(), static_cast<std::size_t>(count));
    return count > 0;
}

} // namespace kelvane::tests
