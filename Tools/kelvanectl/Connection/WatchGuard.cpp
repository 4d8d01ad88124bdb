#include "Tools/kelvanectl/Connection/WatchGuard.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <unistd.h>

namespace kelvane::ctl {

using namespace std::chrono_literals;

WatchGuard::WatchGuard(PollLoop& mainLoop, LinkBreaker& breaker, std::chrono::milliseconds timeout,
                       std::function<bool()> wasActive, std::function<void()> stalled)
    : mainLoop_(mainLoop),
      breaker_(breaker),
      wasActive_(std::move(wasActive)),
      stalled_(std::move(stalled)),
      signals_(loop_, {SIGINT, SIGTERM}, [this](int) { interrupt(); }),
      // Waits for no event, so that only a closed reader is reported.
      output_(loop_.watchDescriptor(STDOUT_FILENO, 0, [this] { outputClosed(); })),
      checkTimer_(
          loop_.schedule(std::max(timeout / 2, 1ms), MainLoop::Repeat::Always, [this] { checkMainLoop(); })),
      thread_([this] { loop_.run(); }) {}

WatchGuard::~WatchGuard() {
    loop_.quit();
    thread_.join();
    ::alarm(0);
}

void WatchGuard::interrupt() {
    // A signal handler ends the process, because this thread, too, may be blocked by the writing thread.
    std::signal(SIGALRM, [](int) { ::_exit(0); });
    ::alarm(1);
    mainLoop_.quit();
    breaker_.breakLink();
}

void WatchGuard::outputClosed() {
    output_.stop(); // Otherwise it would be reported again and again.
    interrupt();
}

void WatchGuard::checkMainLoop() {
    const bool wasActive = wasActive_();
    if (turned_.exchange(false)) {
        mainLoop_.post([this] { turned_ = true; });
    } else if (!wasActive && !reported_.exchange(true)) {
        breaker_.breakLink();
        mainLoop_.post([this] {
            reported_ = false;
            stalled_();
        });
    }
}

} // namespace kelvane::ctl
