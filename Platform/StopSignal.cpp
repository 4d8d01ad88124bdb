#include "Platform/StopSignal.h"

#include <cstdint>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace kelvane {

StopSignal::StopSignal() : event_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void StopSignal::set() {
    set_ = true;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(event_.get(), &one, sizeof one);
}

bool waitUnlessStopped(std::chrono::milliseconds duration, const StopSignal& stop) {
    pollfd wait{stop.descriptor(), POLLIN, 0};
    ::poll(&wait, 1, static_cast<int>(duration.count()));
    return !stop.isSet();
}

} // namespace kelvane
