#include "Platform/SignalWatch.h"

#include <cerrno>
#include <optional>
#include <poll.h>
#include <sys/signalfd.h>
#include <system_error>

namespace kelvane {
namespace {

std::optional<int> takeSignal(int descriptor) {
    signalfd_siginfo information{};
    if (::read(descriptor, &information, sizeof information) != static_cast<ssize_t>(sizeof information))
        return std::nullopt;
    return static_cast<int>(information.ssi_signo);
}

} // namespace

SignalWatch::SignalWatch(PollLoop& loop, const std::vector<int>& signals,
                         std::function<void(int signal)> task) {
    sigset_t watched;
    ::sigemptyset(&watched);
    for (const int signal : signals)
        ::sigaddset(&watched, signal);
    descriptor_.reset(::signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!descriptor_)
        throw std::system_error(errno, std::generic_category(), "signalfd");
    ::pthread_sigmask(SIG_BLOCK, &watched, &previous_);
    // Without `this`: the task may end the watch.
    watch_ = loop.watchDescriptor(descriptor_.get(), POLLIN,
                                  [descriptor = descriptor_.get(), task = std::move(task)] {
                                      if (const std::optional<int> signal = takeSignal(descriptor))
                                          task(*signal);
                                  });
}

SignalWatch::~SignalWatch() {
    watch_.stop();
    while (takeSignal(descriptor_.get()))
        ;
    ::pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
}

} // namespace kelvane
