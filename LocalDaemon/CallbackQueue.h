#pragma once

#include "LocalDaemon/DaemonObserver.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <unordered_set>

namespace kelvane {

// What one pane is still to be told, until its sender takes it. State numbers and alerts wait only while the
// pane wants them, changed files always. What waits already is not queued again, and what a slow pane can
// pile up is bounded.
//
// Any thread; nothing here waits but `take`.
class CallbackQueue : public DaemonObserver {
public:
    // `everything` is the path that stands for all others when too many have changed.
    explicit CallbackQueue(std::string everything) : everything_(std::move(everything)) {}

    void setStateHandler(bool wanted);
    void setAlertHandler(bool wanted);

    void stateChanged(std::uint32_t code) override;
    void alertRaised(const std::string& alert) override;
    void filesChanged(const std::vector<std::string>& paths) override;

    struct Batch {
        std::vector<std::uint32_t> states; // the last change of each, in the order of those
        std::vector<std::string> files;
        std::vector<std::string> alerts;
    };
    // Waits until there is something. None: closed.
    [[nodiscard]] std::optional<Batch> take();
    void close();

private:
    [[nodiscard]] bool isEmpty() const;

    const std::string everything_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool closed_ = false;
    bool wantsStates_ = false;
    bool wantsAlerts_ = false;
    std::vector<std::uint32_t> states_;
    std::deque<std::string> alerts_;
    std::vector<std::string> files_;
    std::unordered_set<std::string> queuedFiles_;
};

} // namespace kelvane
