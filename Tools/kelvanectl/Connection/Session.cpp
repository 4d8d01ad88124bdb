#include "Tools/kelvanectl/Connection/Session.h"

#include "Foundation/Format.h"
#include "Platform/Accounts.h"
#include "Platform/SpecialFolders.h"
#include "Tools/kelvanectl/Connection/RunPosted.h"
#include "Tools/kelvanectl/Output/Terminal.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvane::ctl {
namespace {

constexpr std::chrono::milliseconds betweenAsking(300);
constexpr int longTimeoutFactor = 10; // Relative to the usual timeout.

// A daemon on the default socket is the user's service, if there is a service manager.
std::string wayToStart(const std::string& path) {
    if (path != defaultDaemonPath())
        return "start it with \"kelvane-local-daemon --socket " + path + '"';
    return ::access("/run/systemd/system", F_OK) == 0
               ? "start it with \"systemctl --user start kelvane-local-daemon\""
               : "start it with \"kelvane-local-daemon\"";
}

// Returns why nobody answers on a socket, as far as this process can tell, and what to do.
std::string obstacleAt(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0 && errno != ENOENT)
        return errorText();
    if (status.st_uid == 0 || status.st_uid == ::geteuid())
        return "if it is not running, " + wayToStart(path);
    const std::string owner = std::to_string(status.st_uid);
    return "it belongs to another user, " + SystemAccounts().userName(status.st_uid).value_or(owner) +
           "; run kelvanectl as that user";
}

} // namespace

Session::Session(const CommandLine& line, AnswerTimeout answerTimeout)
    : daemonPath_(line.daemonPath()),
      timeout_(line.settings().timeout),
      answerTimeout_(timeout_ * (answerTimeout == AnswerTimeout::Long ? longTimeoutFactor : 1)),
      bundle_(std::make_shared<const Bundle>(Value(Dictionary{{"DaemonPath", daemonPath_}}))),
      state_(loop_, notifications_, bundle_) {
    connectionObserver_ = notifications_->observe(KelvaneBackupStateConnectionChangedNotification, &state_,
                                                  [this](const Notification&) { connectionChanged(); });
    startDeadline(timeout_);
    deadlineThread_ = std::thread([this] { deadlineLoop_.run(); });
}

Session::~Session() {
    deadlineLoop_.quit();
    deadlineThread_.join();
    end();
}

bool Session::connect() {
    state_.onBegin();
    loop_->run();
    if (stands() && answerTimeout_ > timeout_)
        deadlineLoop_.post([this] { startDeadline(answerTimeout_); });
    return stands();
}

bool Session::confirm() {
    // The last call may have returned because of a failure that has not been reported yet; a second call
    // reports it.
    for (int attempt = 0; attempt < 2 && stands(); ++attempt) {
        const bool answered = state_.proxy()->call<"daemonState">().isDictionary();
        runPosted(*loop_);
        if (answered)
            break;
    }
    return stands();
}

void Session::wait(std::chrono::milliseconds duration) {
    deadlineLoop_.post([this, duration] { startDeadline(answerTimeout_ + duration); });
    const Timer end = loop_->schedule(duration, MainLoop::Repeat::Once, [this] { loop_->quit(); });
    loop_->run();
}

void Session::end() {
    connectionObserver_ = {};
    state_.onEnd();
    runPosted(*loop_);
}

std::string Session::failure() const {
    const std::string daemon = "the daemon at " + daemonPath_;
    if (!connectedOnce_)
        return daemon + " cannot be reached within " + durationText(timeout_) + ": " +
               obstacleAt(daemonPath_);
    if (lost_)
        return "the connection to " + daemon + " was lost";
    return daemon + " did not answer within " + durationText(answerTimeout_);
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

// Called on the deadline's thread, or before that thread starts.
void Session::startDeadline(std::chrono::milliseconds duration) {
    deadline_ = deadlineLoop_.schedule(duration, MainLoop::Repeat::Once, [this] { expire(); });
}

// Called on the deadline's thread. A proxy that is set too late to be closed is never called, since
// `expired_` is checked after setting it.
void Session::expire() {
    expired_ = true;
    breaker_.breakLink();
    loop_->quit();
}

ExitStatus askDaemon(const CommandLine& line, const std::function<void(Session& session)>& ask,
                     AnswerTimeout answerTimeout) {
    Session session(line, answerTimeout);
    if (session.connect())
        ask(session);
    return session.confirm() ? ExitStatus::Success : complain(ExitStatus::Failed, session.failure());
}

ExitStatus askUntil(const CommandLine& line, const std::function<bool(Session& session)>& ask) {
    while (true) {
        Session session(line, AnswerTimeout::Long);
        bool isEnough = session.connect() && ask(session);
        while (session.confirm() && !isEnough) {
            session.wait(betweenAsking);
            isEnough = ask(session);
        }
        if (session.stands())
            return ExitStatus::Success;
        if (!session.wasLost())
            return complain(ExitStatus::Failed, session.failure());
        pauseFor(betweenAsking);
    }
}

} // namespace kelvane::ctl
