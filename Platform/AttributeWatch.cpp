#include "Platform/AttributeWatch.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <linux/limits.h>
#include <linux/seccomp.h>
#include <optional>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr std::size_t smallestPage = 4096;

// A message of one byte with the descriptor, or without one: it is none.
struct DescriptorMessage {
    char byte = 0;
    iovec text{&byte, 1};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    msghdr header{nullptr, 0, &text, 1, control.data(), control.size(), 0};
};

bool sendDescriptor(int socket, int descriptor) {
    DescriptorMessage message;
    if (descriptor < 0) {
        message.header.msg_control = nullptr;
        message.header.msg_controllen = 0;
    } else {
        cmsghdr* const part = CMSG_FIRSTHDR(&message.header);
        part->cmsg_level = SOL_SOCKET;
        part->cmsg_type = SCM_RIGHTS;
        part->cmsg_len = CMSG_LEN(sizeof descriptor);
        std::memcpy(CMSG_DATA(part), &descriptor, sizeof descriptor);
    }
    return ::sendmsg(socket, &message.header, MSG_NOSIGNAL) == 1;
}

int receivedDescriptor(int socket) {
    DescriptorMessage message;
    int descriptor = -1;
    ssize_t count = 0;
    while ((count = ::recvmsg(socket, &message.header, MSG_CMSG_CLOEXEC)) < 0 && errno == EINTR) {
    }
    const cmsghdr* const part = count > 0 ? CMSG_FIRSTHDR(&message.header) : nullptr;
    if (part && part->cmsg_level == SOL_SOCKET && part->cmsg_type == SCM_RIGHTS)
        std::memcpy(&descriptor, CMSG_DATA(part), sizeof descriptor);
    return descriptor;
}

// Of another process. None: it cannot be read to its end.
std::optional<std::string> textAt(pid_t process, std::uint64_t address) {
    std::string text(PATH_MAX, '\0');
    iovec here{text.data(), text.size()};
    const std::size_t first = smallestPage - address % smallestPage; // what lies behind it may not be there
    std::array<iovec, 2> there{};
    there[0] = {reinterpret_cast<void*>(address), first};
    there[1] = {reinterpret_cast<void*>(address + first), text.size() - first};
    const ssize_t count = ::process_vm_readv(process, &here, 1, there.data(), there.size(), 0);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    const std::size_t end = text.find('\0');
    return end == std::string::npos ? std::nullopt : std::optional(text.substr(0, end));
}

} // namespace

bool AttributeWatch::prepare() {
    filter_ = filterOfAttributes();
    std::array<int, 2> ends{};
    if (filter_.empty() || ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        return false;
    parents_.reset(ends[0]);
    childs_.reset(ends[1]);
    return true;
}

bool AttributeWatch::beginInChild() {
    return sendDescriptor(childs_.get(), listenerForSystemCalls(filter_));
}

void AttributeWatch::begin() {
    childs_.reset();
    listener_.reset(receivedDescriptor(parents_.get()));
    isComplete_ = static_cast<bool>(listener_);
}

void AttributeWatch::takeNext(const Take& take) {
    seccomp_notif call{};
    if (::ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_RECV, &call) != 0)
        return; // who made it has died
    const auto process = static_cast<pid_t>(call.pid);
    const std::optional<std::string> path = textAt(process, call.data.args[0]);
    const std::optional<std::string> name = textAt(process, call.data.args[1]);
    seccomp_notif_resp answer{};
    answer.id = call.id;
    answer.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    const bool isAnswered =
        ::ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_SEND, &answer) == 0 || errno == ENOENT;
    if (path && name)
        take(*path, *name);
    isComplete_ = isComplete_ && path && name && isAnswered;
    if (!isAnswered)
        listener_.reset(); // the system is too old for it: the calls fail from now on
}

} // namespace kelvane
