#include "Tests/Tools/ChildProgram.h"

#include <array>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>

namespace kelvane::tests {
namespace {

FileDescriptor pipeInto(FileDescriptor& reader) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    reader.reset(ends[0]);
    return FileDescriptor(ends[1]);
}

constexpr int waitTimeout = 20000; // milliseconds

bool becomesReadable(int descriptor, int milliseconds = waitTimeout) {
    pollfd waiting{descriptor, POLLIN, 0};
    return descriptor >= 0 && ::poll(&waiting, 1, milliseconds) > 0;
}

// Returns false at the end of the output and on a timeout.
bool readSome(const FileDescriptor& reader, std::string& text, int milliseconds = waitTimeout) {
    std::array<char, 4096> block{};
    const ssize_t count =
        becomesReadable(reader.get(), milliseconds) ? ::read(reader.get(), block.data(), block.size()) : 0;
    if (count > 0)
        text.append(block.data(), static_cast<std::size_t>(count));
    return count > 0;
}

} // namespace

ChildProgram::ChildProgram(const std::vector<std::string>& words, const std::vector<std::string>& environment,
                           std::string_view input, const std::string& output) {
    FileDescriptor in;
    if (::write(pipeInto(in).get(), input.data(), input.size()) != static_cast<ssize_t>(input.size()))
        throw std::runtime_error("more input than a pipe holds");
    const FileDescriptor out =
        output.empty() ? pipeInto(output_) : FileDescriptor(::open(output.c_str(), O_WRONLY | O_CLOEXEC));
    const FileDescriptor errors = pipeInto(errors_);
    ChildCommand command{.arguments = {"/usr/bin/env", "-i"}};
    command.arguments.insert(command.arguments.end(), environment.begin(), environment.end());
    command.arguments.insert(command.arguments.end(), words.begin(), words.end());
    auto started = ChildProcess::start(command, {in.get(), out.get(), errors.get()});
    process_.emplace(std::move(started.value()));
}

ChildProgram::~ChildProgram() {
    process_->kill();
    process_->waitForEnd();
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
    return becomesReadable((stream == Stream::Output ? output_ : errors_).get());
}

void ChildProgram::send(int signal) const {
    process_->send(signal);
}

ChildProgram::Result ChildProgram::finish(Reading reading) {
    Result result;
    while (reading == Reading::ToTheEnd && readSome(output_, unread_))
        ;
    if (becomesReadable(process_->descriptor()) && process_->hasEnded() && process_->hasExited())
        result.status = process_->exitStatus();
    while (readSome(errors_, result.errors, 0))
        ;
    result.output = std::move(unread_);
    return result;
}

} // namespace kelvane::tests
