#pragma once

#include "Platform/Processes/ChildProcess.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane::tests {

// A program that a test starts, with its input (up to 64 KiB) given beforehand. What does not come within 20
// s never comes.
class ChildProgram {
public:
    struct Result {
        int status = -1; // -1: ended by a signal, or not at all
        std::string output;
        std::string errors;
    };

    // `environment` holds "NAME=value" and takes the place of the test's own; `output` is a path to write to
    // instead.
    ChildProgram(const std::vector<std::string>& words, const std::vector<std::string>& environment,
                 std::string_view input = {}, const std::string& output = {});
    // Kills it when it still runs.
    ~ChildProgram();
    ChildProgram(const ChildProgram&) = delete;
    ChildProgram& operator=(const ChildProgram&) = delete;

    // The next line of its output, without the line end; none when it ends or nothing comes.
    [[nodiscard]] std::optional<std::string> readLine();
    // Until there is something to read.
    enum class Stream { Output, Errors };
    [[nodiscard]] bool waitFor(Stream stream) const;
    void closeOutput() { output_.reset(); }
    void send(int signal) const;
    // Waits for its end. The output is what `readLine` has not taken; it may have to end without being read.
    enum class Reading { ToTheEnd, NoMore };
    [[nodiscard]] Result finish(Reading reading = Reading::ToTheEnd);

private:
    FileDescriptor output_;
    FileDescriptor errors_;
    std::string unread_;
    std::optional<ChildProcess> process_;
};

} // namespace kelvane::tests
