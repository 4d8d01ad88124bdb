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

// How long the daemon may take to answer.
enum class Patience {
    Usual, // as long as the whole command
    Long,  // ten times that, for who waits for hours anyway: on a busy machine the daemon may be slow
};

// The connection of a command that asks the daemon something and ends. The time for all of it runs from the
// start, or from the last `wait`; when it is over, a thread of its own ends the link, so that no call waits
// longer than that.
//
// Everything else is on the main thread. A link that was lost stays lost, whatever comes after.
class Session {
public:
    // Throws CLI::ParseError when there is no path to connect to.
    explicit Session(const CommandLine& line, Patience patience = Patience::Usual);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    [[nodiscard]] bool connect();
    // A call whose link is lost or that runs out of time answers 0 or nothing, as a call may that went well.
    // True when what it answered was the daemon's own answer: the daemon still answers, and has taken every
    // command before.
    [[nodiscard]] bool confirm();
    // Keeps the connection for so long, which does not count as time, or until it is lost.
    void wait(std::chrono::milliseconds duration);
    // Lets go of the daemon: what is asked of the state from here on is answered from what is kept.
    void end();

    [[nodiscard]] BackupState& state() { return state_; }
    [[nodiscard]] const Bundle& bundle() const { return *bundle_; }
    [[nodiscard]] const std::string& daemonPath() const { return daemonPath_; }
    [[nodiscard]] bool wasLost() const { return lost_; }
    // The connection as it has been until now.
    [[nodiscard]] bool stands() const { return connectedOnce_ && !lost_ && !expired_; }
    // Why it does not stand, in a line.
    [[nodiscard]] std::string failure() const;

private:
    void connectionChanged();
    void startDeadline(std::chrono::milliseconds duration);
    void expire();

    const std::string daemonPath_;
    const std::chrono::milliseconds timeout_;       // for the connection
    const std::chrono::milliseconds answerTimeout_; // from then on
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

// One connection for all that `ask` asks. Success: every answer was the daemon's own. Anything else has been
// complained about, and the answers mean nothing.
[[nodiscard]] ExitStatus askDaemon(const CommandLine& line, const std::function<void(Session& session)>& ask,
                                   Patience patience = Patience::Usual);

// Asks again and again over one connection until `ask` says that it has seen enough. When the connection is
// lost, which it is when the daemon is being started again, it is made again and the question repeated. The
// daemon is given long patience.
[[nodiscard]] ExitStatus askUntil(const CommandLine& line, const std::function<bool(Session& session)>& ask);

} // namespace kelvane::ctl
