#pragma once

#include "Platform/FileDescriptor.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <array>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

namespace kelvane::tests {

// A shell script for some process to start. Its standard output is readable here, however detached it runs.
class ReportingScript {
public:
    explicit ReportingScript(const std::string& commands)
        : path_(folder_.writeProgram("script",
                                     "#!/bin/sh\nexec >'" + folder_ / "report" + "'\n" + commands + "\n")) {
        if (::mkfifo((folder_ / "report").c_str(), 0600) != 0)
            throw std::runtime_error("no script");
        // Opened at once, so that the script never waits for a reader.
        reader_.reset(::open((folder_ / "report").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    }

    [[nodiscard]] const std::string& path() const { return path_; }

    // Whether the script writes something or ends within the time.
    [[nodiscard]] bool hasStarted(int milliseconds) const {
        pollfd writing{reader_.get(), POLLIN, 0};
        return ::poll(&writing, 1, milliseconds) > 0;
    }
    // Everything that the script writes until it ends, or until it has written nothing for 10 s.
    [[nodiscard]] std::string report() const {
        std::string text;
        std::array<char, 4096> part{};
        while (hasStarted(10000)) {
            const ssize_t size = ::read(reader_.get(), part.data(), part.size());
            if (size <= 0)
                break;
            text.append(part.data(), static_cast<std::size_t>(size));
        }
        return text;
    }

private:
    TemporaryFolder folder_;
    std::string path_;
    FileDescriptor reader_;
};

} // namespace kelvane::tests
