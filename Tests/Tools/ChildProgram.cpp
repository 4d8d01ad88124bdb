#include "Tests/Tools/ChildProgram.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <sys/wait.h>

namespace kelvane::tests {
namespace {

FileDescriptor pipeInto(FileDescriptor& reader) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    reader.reset(ends[0]);
    return FileDescriptor(ends[1]);
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

constexpr int patience = 20000; // milliseconds

bool becomesReadable(const FileDescriptor& descriptor, int milliseconds = patience) {
    pollfd waiting{descriptor.get(), POLLIN, 0};
    return descriptor && ::poll(&waiting, 1, milliseconds) > 0;
}

// False at the end, and when nothing comes.
bool readSome(const FileDescriptor& reader, std::string& text, int milliseconds = patience) {
    std::array<char, 4096> block{};
    const ssize_t count =
        becomesReadable(reader, milliseconds) ? ::read(reader.get(), block.data(), block.size()) : 0;
    if (count > 0)
        text.append(block.data(), static_cast<std::size_t>(count));
    return count > 0;
}

} // namespace

ChildProgram::ChildProgram(std::vector<std::string> words, std::vector<std::string> environment,
                           std::string_view input, const std::string& output) {
    FileDescriptor in;
    if (::write(pipeInto(in).get(), input.data(), input.size()) != static_cast<ssize_t>(input.size()))
        throw std::runtime_error("more input than a pipe holds");
    const FileDescriptor out =
        output.empty() ? pipeInto(output_) : FileDescriptor(::open(output.c_str(), O_WRONLY | O_CLOEXEC));
    const FileDescriptor errors = pipeInto(errors_);
    const std::vector<char*> arguments = pointersTo(words);
    const std::vector<char*> variables = pointersTo(environment);
    id_ = ::fork();
    if (id_ == 0) {
        ::dup2(in.get(), STDIN_FILENO);
        ::dup2(out.get(), STDOUT_FILENO);
        ::dup2(errors.get(), STDERR_FILENO);
        ::execve(arguments.front(), arguments.data(), variables.data());
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
    while (unread_.find('\n') == std::string::npos)
        if (!readSome(output_, unread_))
            return std::nullopt;
    const std::size_t end = unread_.find('\n');
    std::string line = unread_.substr(0, end);
    unread_.erase(0, end + 1);
    return line;
}

bool ChildProgram::waitFor(Stream stream) const {
    return becomesReadable(stream == Stream::Output ? output_ : errors_);
}

void ChildProgram::send(int signal) const {
    ::kill(id_, signal);
}

ChildProgram::Result ChildProgram::finish(Reading reading) {
    Result result;
    while (reading == Reading::ToTheEnd && readSome(output_, unread_))
        ;
    int status = 0;
    const FileDescriptor process(static_cast<int>(::syscall(SYS_pidfd_open, id_, 0)));
    if (becomesReadable(process) && ::waitpid(id_, &status, 0) == id_) {
        id_ = -1;
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    while (readSome(errors_, result.errors, 0))
        ;
    result.output = std::move(unread_);
    return result;
}

} // namespace kelvane::tests
