#pragma once

#include "Platform/Processes/ChildProcess.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane::tests {

// A program that a test starts, with its input (up to 64 KiB) given at the start. All waits time out after 20
// s.
class ChildProgram {
public:
    struct Result {
        int status = -1; // -1: ended by a signal or still running
        std::string output;
        std::string errors;
    };

    // `environment` contains "NAME=value" and replaces the test's own; `output` is a file for standard
    // output.
    ChildProgram(const std::vector<std::string>& words, const std::vector<std::string>& environment,
                 std::string_view input = {}, const std::string& output = {});
    // Kills the program if it is still running.
    ~ChildProgram();
    ChildProgram(const ChildProgram&) = delete;
    ChildProgram& operator=(const ChildProgram&) = delete;

    // Returns the next line of the output without its line end; none at the end or on a timeout.
    [[nodiscard]] std::optional<std::string> readLine();
    // Blocks until there is output to read.
    enum class Stream { Output, Errors };
    [[nodiscard]] bool waitFor(Stream stream) const;
    void closeOutput() { output_.reset(); }
    void send(int signal) const;
    // Waits for the end of the program. The result has the output that `readLine` has not returned; the
    // program may also end without being read.
    enum class Reading { ToTheEnd, NoMore };
    [[nodiscard]] Result finish(Reading reading = Reading::ToTheEnd);

private:
    FileDescriptor output_;
    FileDescriptor errors_;
    std::string unread_;
    std::optional<ChildProcess> process_;
};

} // namespace kelvane::tests
