#pragma once

#include <cstddef>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>

namespace kelvane {

// In bytes: the capacity of a socket address without the terminating NUL.
inline constexpr std::size_t longestSocketPath = 103;
static_assert(sizeof(sockaddr_un::sun_path) > longestSocketPath);

// The address of the Unix-domain socket at a path, which the caller has checked not to be longer.
[[nodiscard]] inline sockaddr_un socketAddress(std::string_view path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(static_cast<char*>(address.sun_path), longestSocketPath);
    return address;
}

} // namespace kelvane
