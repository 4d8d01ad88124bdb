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

// The right to listen at a path while this object lives. It is refused when any program listens there
// already; once it is granted, no other process that uses this class can listen there. It is a lock on the
// file "<path>.lock", which the system releases when the process dies. Creates the folder with mode 0700 when
// it is missing.
//
// The destructor removes the socket and the lock file of a claim that was granted.
class SocketClaim {
public:
    explicit SocketClaim(std::string path);
    ~SocketClaim();
    SocketClaim(const SocketClaim&) = delete;
    SocketClaim& operator=(const SocketClaim&) = delete;

    // Why the claim failed, as a message for the user; empty on success.
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
