#pragma once

#include "Platform/FileDescriptor.h"

#include <string>
#include <sys/socket.h>

namespace kelvane {

// The result of one non-blocking attempt to connect to the socket at a path. The error is a value of errno: 0
// if the connection was made, EAGAIN if the listener's backlog is full.
struct SocketProbe {
    FileDescriptor socket;
    int error = 0;
};
[[nodiscard]] SocketProbe probeSocket(const std::string& path, int type = SOCK_STREAM);

// The right to listen at a path, for as long as it lives: nobody else listens there, and nobody who asks in
// this way can begin to. A lock on the file "<path>.lock" stands for it, which the system takes back from a
// process that dies. The folder is made, with mode 0700, when it is missing.
//
// Removes the socket and the lock file when it goes.
class SocketClaim {
public:
    explicit SocketClaim(std::string path);
    ~SocketClaim();
    SocketClaim(const SocketClaim&) = delete;
    SocketClaim& operator=(const SocketClaim&) = delete;

    // Why the claim was refused, for people; empty when it was not.
    [[nodiscard]] const std::string& refusal() const { return refusal_; }

private:
    [[nodiscard]] std::string refusalOfPath() const;
    [[nodiscard]] std::string refusalOfLock();
    [[nodiscard]] std::string refusalOfSocket() const;

    const std::string path_;
    const std::string lockPath_;
    FileDescriptor lock_;
    std::string refusal_;
};

} // namespace kelvane
