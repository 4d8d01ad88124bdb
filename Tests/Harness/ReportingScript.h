#pragma once

#include "Platform/FileDescriptor.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <array>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/stat.h>

namespace kelvane::tests {

// A shell script that some process is to start. What it writes to its standard output comes back here,
// however detached it runs.
class ReportingScript {
public:
    explicit ReportingScript(const std::string& commands)
        : path_(
              folder_.write("script", "#!/bin/sh\nexec >'" + folder_ / "report" + "'\n" + commands + "\n")) {
        if (::chmod(path_.c_str(), 0755) != 0 || ::mkfifo((folder_ / "report").c_str(), 0600) != 0)
            throw std::runtime_error("no script");
        // There from the beginning, so that the script never waits for its reader.
        reader_.reset(::open((folder_ / "report").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    }

    [[nodiscard]] const std::string& path() const { return path_; }

    // Whether it writes something or ends within the time.
    [[nodiscard]] bool hasStarted(int milliseconds) const {
        pollfd writing{reader_.get(), POLLIN, 0};
        return ::poll(&writing, 1, milliseconds) > 0;
    }
    // All that it writes until it ends; what there is after 10 s without a word.
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
