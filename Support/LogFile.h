#pragma once

#include "Platform/FileDescriptor.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace kelvane {

// A log that does not grow for ever: a file that has become too large is renamed to "<path>.1", that to
// "<path>.2", and so on; the last one goes. Only its owner may read it. Belongs to one thread at a time,
// which a write blocks on the disk.
class LogFile {
public:
    struct Limits {
        std::size_t bytes = std::size_t{2} << 20U; // of one file
        unsigned files = 3;
    };

    explicit LogFile(std::string path) : LogFile(std::move(path), Limits()) {}
    LogFile(std::string path, Limits limits);

    // Why there is none: it cannot be made, or is a link or no file; empty when it stands.
    [[nodiscard]] const std::string& error() const { return error_; }
    // One line, without its end. False: it is not in the log. The next one is tried again.
    bool write(std::string_view line);

private:
    void open();
    void rotate();

    const std::string path_;
    const Limits limits_;
    FileDescriptor file_;
    std::size_t size_ = 0;
    std::string error_;
};

} // namespace kelvane
