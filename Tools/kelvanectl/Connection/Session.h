#pragma once

#include "Platform/PollLoop.h"
#include "PreferencePane/Link/BackupState.h"
#include "Tools/kelvanectl/Arguments/CommandLine.h"
#include "Tools/kelvanectl/Connection/LinkBreaker.h"

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace kelvane::ctl {

// The timeout for the daemon's answers.
enum class AnswerTimeout {
    Usual, // The timeout of the whole command.
    Long,  // Ten times that, for commands that wait for hours: a busy daemon may be slow.
};

// The connection of a command that calls the daemon and exits. One timeout covers the whole session; `wait`
// restarts it. When it expires, a separate thread closes the connection, so that no call blocks for longer.
//
// Everything else is on the main thread. A lost connection stays lost, even if it is established again.
class Session {
public:
    // Throws CLI::ParseError when there is no path to connect to.
    explicit Session(const CommandLine& line, AnswerTimeout answerTimeout = AnswerTimeout::Usual);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Blocks until connected or timed out.
    [[nodiscard]] bool connect();
    // A call that is interrupted by a lost connection or a timeout returns 0 or nothing, which are also
    // valid results. Returns true when the results so far came from the daemon: it still answers, and
    // has received every call before.
    [[nodiscard]] bool confirm();
    // Keeps the connection open for this time, which does not count towards the timeout, or until it is
    // lost.
    void wait(std::chrono::milliseconds duration);
    // Disconnects; the state then returns its stored values.
    void end();

    [[nodiscard]] BackupState& state() { return state_; }
    [[nodiscard]] const Bundle& bundle() const { return *bundle_; }
    [[nodiscard]] const std::string& daemonPath() const { return daemonPath_; }
    [[nodiscard]] bool wasLost() const { return lost_; }
    // Whether the connection has been open without interruption.
    [[nodiscard]] bool stands() const { return connectedOnce_ && !lost_ && !expired_; }
    // Why `stands` is false, in one line.
    [[nodiscard]] std::string failure() const;

private:
    void connectionChanged();
    void startDeadline(std::chrono::milliseconds duration);
    void expire();

    const std::string daemonPath_;
    const std::chrono::milliseconds timeout_;       // For connecting.
    const std::chrono::milliseconds answerTimeout_; // For the answers after that.
    const std::shared_ptr<PollLoop> loop_ = std::make_shared<PollLoop>();
    const std::shared_ptr<NotificationCenter> notifications_ = std::make_shared<NotificationCenter>();
    const std::shared_ptr<const Bundle> bundle_;
    BackupState state_;
    NotificationCenter::Observer connectionObserver_;
    LinkBreaker breaker_;
    bool connectedOnce_ = false;
    bool lost_ = false;
    std::atomic<bool> expired_{false};

    PollLoop deadlineLoop_;
    Timer deadline_;
    std::thread deadlineThread_;
};

// Runs `ask` on one connection. On success every result came from the daemon. Otherwise the failure has
// been reported, and the results are invalid.
[[nodiscard]] ExitStatus askDaemon(const CommandLine& line, const std::function<void(Session& session)>& ask,
                                   AnswerTimeout answerTimeout = AnswerTimeout::Usual);

// Repeats `ask` on one connection until it returns true. A lost connection, as during a restart of the
// daemon, is established again and the query repeated. Uses the long timeout.
[[nodiscard]] ExitStatus askUntil(const CommandLine& line, const std::function<bool(Session& session)>& ask);

} // namespace kelvane::ctl
