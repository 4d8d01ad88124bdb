#include "Foundation/Format.h"
#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/Connection/DaemonWatch.h"
#include "Tools/kelvanectl/Connection/RunPosted.h"
#include "Tools/kelvanectl/Connection/WatchGuard.h"
#include "Tools/kelvanectl/Output/Terminal.h"

#include <cerrno>
#include <cstring>

namespace kelvane::ctl {
namespace {

// A reader that closes the pipe, or output that was closed from the start, ends the command normally.
ExitStatus statusOfFailedOutput(int error) {
    if (error == EPIPE || error == EBADF)
        return ExitStatus::Success;
    return complain(ExitStatus::Usage, std::string("cannot write to standard output: ") + errorText(error));
}

ExitStatus watchDaemon(const CommandLine& line) {
    const std::string path = line.daemonPath();
    const std::chrono::milliseconds timeout = line.settings().timeout;
    ExitStatus status = ExitStatus::Success;

    const auto loop = std::make_shared<PollLoop>();
    EventWriter events(line.settings().json, [&](int error) {
        status = statusOfFailedOutput(error);
        loop->quit();
    });
    LinkBreaker breaker;
    std::shared_ptr<DaemonWatch> watch;
    WatchGuard guard(
        *loop, breaker, timeout, [&] { return events.wasActive(); },
        [&] { watch->reconnect("no answer within " + durationText(timeout)); });
    const Timer notice = loop->schedule(timeout, MainLoop::Repeat::Once, [&] {
        if (!watch->wasEverConnected())
            complain(status, "no daemon answers at " + path + " yet; waiting for one");
    });

    watch = std::make_shared<DaemonWatch>(
        loop, std::make_shared<const Bundle>(Value(Dictionary{{"DaemonPath", path}})), events, breaker);
    watch->begin();
    loop->run();
    watch->end();
    runPosted(*loop);
    return status;
}

} // namespace

Action declareWatch(CLI::App&) {
    return watchDaemon;
}

} // namespace kelvane::ctl
