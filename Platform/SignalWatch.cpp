#include "Platform/SignalWatch.h"

#include <cerrno>
#include <poll.h>
#include <sys/signalfd.h>
#include <system_error>

namespace kelvane {

SignalDescriptor::SignalDescriptor(const std::vector<int>& numbers) {
    sigset_t watched;
    ::sigemptyset(&watched);
    for (const int signal : numbers)
        ::sigaddset(&watched, signal);
    descriptor_.reset(::signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!descriptor_)
        throw std::system_error(errno, std::generic_category(), "signalfd");
    ::pthread_sigmask(SIG_BLOCK, &watched, &previous_);
}

SignalDescriptor::~SignalDescriptor() {
    while (take())
        ;
    ::pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
}

std::optional<int> SignalDescriptor::take() const {
    signalfd_siginfo information{};
    if (::read(get(), &information, sizeof information) != static_cast<ssize_t>(sizeof information))
        return std::nullopt;
    return static_cast<int>(information.ssi_signo);
}

// Does not touch this object after the task, which may destroy it.
SignalWatch::SignalWatch(PollLoop& loop, const std::vector<int>& numbers,
                         std::function<void(int signal)> task)
    : descriptor_(numbers),
      watch_(loop.watchDescriptor(descriptor_.get(), POLLIN, [this, task = std::move(task)] {
          if (const auto signal = descriptor_.take())
              task(*signal);
      })) {}

} // namespace kelvane
