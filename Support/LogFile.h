#pragma once

#include "Platform/FileDescriptor.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace kelvane {

// A log file of limited size with mode 0600. When it has become too large it is renamed to "<path>.1", that
// one to "<path>.2", and so on; the oldest is replaced. A file that does not begin as a log of this program
// belongs to something else: it is kept, and its number is skipped. May be used by one thread at a time. A
// write blocks on the disk.
class LogFile {
public:
    struct Limits {
        std::size_t bytes = std::size_t{2} << 20U; // of one file
        unsigned files = 3;
    };

    explicit LogFile(std::string path) : LogFile(std::move(path), Limits()) {}
    LogFile(std::string path, Limits limits);

    // Why the file cannot be used: it cannot be created, or is a link or not a regular file; otherwise empty.
    [[nodiscard]] const std::string& error() const { return error_; }
    // Writes a line, which is passed without a newline. Returns false on failure; the next call tries again.
    bool write(std::string_view line);

    // Whether there is no file at the path, or a log of this program.
    [[nodiscard]] static bool mayReplace(const std::string& path);

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
