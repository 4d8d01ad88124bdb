#pragma once

#include "Platform/FileDescriptor.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace kelvane {

// Reads a pipe line by line. Belongs to one thread; never blocks.
class PipeLines {
public:
    PipeLines(FileDescriptor pipe, std::size_t longest, bool isBinary = false)
        : pipe_(std::move(pipe)), longest_(longest), isBinary_(isBinary) {
        ::fcntl(pipe_.get(), F_SETFL, ::fcntl(pipe_.get(), F_GETFL) | O_NONBLOCK);
    }

    [[nodiscard]] int descriptor() const { return pipe_.get(); }
    [[nodiscard]] bool hasLost() const { return hasLost_; }
    // Passes on at most 64 KiB, so that a fast writer does not starve other work; closes the pipe at its end.
    // Returns false when nothing more can be read now.
    template <class Take>
    bool readInto(Take take) {
        std::array<char, 65536> bytes{};
        const ssize_t count = pipe_ ? ::read(pipe_.get(), bytes.data(), bytes.size()) : 0;
        if (count < 0 && (errno == EINTR || errno == EAGAIN))
            return errno == EINTR;
        if (count > 0) {
            const std::string_view read(bytes.data(), static_cast<std::size_t>(count));
            if (isBinary_)
                take(read);
            else
                split(read, take);
            return true;
        }
        if (!partial_.empty())
            take(std::string_view(partial_));
        partial_.clear();
        pipe_.reset();
        return false;
    }

private:
    template <class Take>
    void split(std::string_view bytes, Take& take) {
        for (std::size_t end = bytes.find('\n'); end != std::string_view::npos; end = bytes.find('\n')) {
            append(bytes.substr(0, end));
            if (!isTooLong_)
                take(std::string_view(partial_));
            partial_.clear();
            isTooLong_ = false;
            bytes.remove_prefix(end + 1);
        }
        append(bytes);
    }
    void append(std::string_view bytes) {
        isTooLong_ = isTooLong_ || partial_.size() + bytes.size() > longest_;
        hasLost_ = hasLost_ || isTooLong_;
        if (isTooLong_)
            partial_.clear();
        else
            partial_ += bytes;
    }

    FileDescriptor pipe_;
    std::size_t longest_;
    bool isBinary_;
    std::string partial_;
    bool isTooLong_ = false;
    bool hasLost_ = false;
};

} // namespace kelvane
