#pragma once

#include <unistd.h>
#include <utility>

namespace kelvane {

// Owns a file descriptor; -1 is none. Move-only.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    ~FileDescriptor() { reset(); }
    FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other)
            reset(std::exchange(other.descriptor_, -1));
        return *this;
    }

    [[nodiscard]] int get() const { return descriptor_; }
    [[nodiscard]] explicit operator bool() const { return descriptor_ >= 0; }
    void reset(int descriptor = -1) {
        if (descriptor_ >= 0)
            ::close(descriptor_);
        descriptor_ = descriptor;
    }

private:
    int descriptor_ = -1;
};

// Opens /dev/null under each of the descriptors 0 to 2 that is closed, so that no file or socket of this
// program gets its number. Reading or writing there still fails.
void occupyStandardDescriptors();

// Call this first in every `main`. It occupies the standard descriptors, unblocks all signals, resets SIGCHLD
// and takes the character types from the environment, so that all programs of a user fold case alike.
void prepareProgram();

} // namespace kelvane
