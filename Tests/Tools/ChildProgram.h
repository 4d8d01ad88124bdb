#pragma once

#include "Platform/FileDescriptor.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace kelvane::tests {

// A program that a test starts, with its input given beforehand. What does not come within `patience` never
// comes.
class ChildProgram {
public:
    static constexpr std::chrono::seconds patience{20};

    struct Result {
        int status = -1; // -1: ended by a signal, or not at all
        std::string output;
        std::string errors;
    };

    // `environment` holds "NAME=value" and takes the place of the test's own; `output` is a path to write to
    // instead.
    ChildProgram(std::vector<std::string> words, const std::vector<std::string>& environment,
                 std::string_view input = {}, const std::string& output = {});
    // Kills it when it still runs.
    ~ChildProgram();
    ChildProgram(const ChildProgram&) = delete;
    ChildProgram& operator=(const ChildProgram&) = delete;

    // The next line of its output, without the line end; none when it ends or nothing comes.
    [[nodiscard]] std::optional<std::string> readLine();
    // Until so many bytes wait to be read; until it has written to standard error.
    [[nodiscard]] bool waitForUnread(int bytes) const;
    [[nodiscard]] bool waitForErrors() const;
    void closeOutput() { output_.reset(); }
    void send(int signal) const;
    // Waits for its end. The output is what `readLine` has not taken; it may have to end without being read.
    enum class Reading { ToTheEnd, NoMore };
    [[nodiscard]] Result finish(Reading reading = Reading::ToTheEnd);

private:
    bool readSome();

    FileDescriptor output_;
    FileDescriptor errors_;
    std::string unread_;
    pid_t id_ = -1;
};

} // namespace kelvane::tests
