#include "Tools/kelvanectl/Session.h"

#include "Foundation/Format.h"
#include "Platform/Accounts.h"
#include "Tools/kelvanectl/RunPosted.h"
#include "Tools/kelvanectl/Terminal.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvane::ctl {
namespace {

constexpr std::chrono::milliseconds betweenAsking(300);

// Why nobody answers at a socket, as far as that can be seen from outside; begins with a colon, or is empty.
std::string obstacleAt(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0)
        return errno == ENOENT ? "" : ": " + errorText();
    if (status.st_uid == 0 || status.st_uid == ::geteuid())
        return {};
    const std::string owner = std::to_string(status.st_uid);
    return ": it is another user's, " + SystemAccounts().userName(status.st_uid).value_or(owner) +
           "; ask it as that user";
}

} // namespace

Session::Session(const CommandLine& line)
    : daemonPath_(line.daemonPath()),
      timeout_(line.settings().timeout),
      bundle_(std::make_shared<const Bundle>(Value(Dictionary{{"DaemonPath", daemonPath_}}))),
      state_(loop_, notifications_, bundle_) {
    connectionObserver_ = notifications_->observe(KelvaneBackupStateConnectionChangedNotification, &state_,
                                                  [this](const Notification&) { connectionChanged(); });
    deadline_ = deadlineLoop_.schedule(timeout_, MainLoop::Repeat::Once, [this] { expire(); });
    deadlineThread_ = std::thread([this] { deadlineLoop_.run(); });
}

Session::~Session() {
    deadlineLoop_.quit();
    deadlineThread_.join();
    end();
}

bool Session::connect() {
    state_.onBegin();
    loop_->run(); // until connected or out of time
    return stands();
}

bool Session::confirm() {
    // A failure that the last call took for its answer is not known here yet; it cannot answer the second one
    // as well without having been reported.
    for (int attempt = 0; attempt < 2 && stands(); ++attempt) {
        const bool answered = state_.proxy()->call<"daemonState">().isDictionary();
        runPosted(*loop_);
        if (answered)
            break;
    }
    return stands();
}

void Session::end() {
    connectionObserver_ = {};
    state_.onEnd();
    runPosted(*loop_);
}

std::string Session::failure() const {
    const std::string daemon = "the daemon at " + daemonPath_;
    if (!connectedOnce_)
        return daemon + " cannot be reached within " + durationText(timeout_) + obstacleAt(daemonPath_);
    if (lost_)
        return "the connection to " + daemon + " was lost";
    return daemon + " did not answer within " + durationText(timeout_);
}

void Session::connectionChanged() {
    if (state_.connected()) {
        breaker_.setProxy(state_.proxy());
        connectedOnce_ = true;
    } else if (connectedOnce_) {
        lost_ = true;
    }
    loop_->quit();
}

// On the thread of the deadline. A proxy that is set too late to be broken is never called: whoever set it
// looks at `expired_` before.
void Session::expire() {
    expired_ = true;
    breaker_.breakLink();
    loop_->quit();
}

ExitStatus askDaemon(const CommandLine& line, const std::function<void(Session& session)>& ask) {
    Session session(line);
    if (session.connect())
        ask(session);
    return session.confirm() ? ExitStatus::Success : complain(ExitStatus::Unreachable, session.failure());
}

ExitStatus askUntil(const CommandLine& line, const std::function<bool(Session& session)>& ask) {
    for (bool isEnough = false; !isEnough; pauseFor(isEnough ? std::chrono::milliseconds() : betweenAsking)) {
        Session session(line);
        isEnough = session.connect() && ask(session);
        if (!session.confirm() && !session.wasLost())
            return complain(ExitStatus::Unreachable, session.failure());
        isEnough = isEnough && session.stands();
    }
    return ExitStatus::Success;
}

} // namespace kelvane::ctl
