#pragma once

#include "LocalDaemon/State/DaemonObserver.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace kelvane {

// The notifications for one pane that its sender has not taken yet. State codes and alerts are queued only
// while the pane has a handler for them, changed files and folders always, and so is everything about a
// restore. A code or path that is queued already is not queued twice. The queue is limited in number and in
// bytes, so that a slow pane cannot exhaust the memory.
//
// Any thread; only `take` blocks.
class CallbackQueue : public DaemonObserver {
public:
    void setStateHandler(bool wanted) override;
    void setAlertHandler(bool wanted) override;

    void stateChanged(std::uint32_t code) override;
    void alertRaised(const std::string& alert) override;
    // The start of a restore cancels the pending end of the previous one.
    void restoreProgressed(const std::vector<std::uint32_t>& codes) override;
    void restoreEnded(const std::string& alert) override;
    void filesChanged(const std::vector<std::string>& paths) override;
    void foldersChanged(const std::vector<std::string>& paths) override;

    struct Batch {
        std::vector<std::uint32_t> states; // In the order of the last change of each.
        std::vector<std::string> files;    // "/" alone when too many have changed.
        std::vector<std::string> folders;  // "/" alone when too many have changed.
        std::vector<std::string> alerts;
        std::uint64_t lostAlerts = 0; // Dropped because there were too many.
    };
    // Blocks until there is a batch. None when the queue is closed.
    [[nodiscard]] std::optional<Batch> take();
    void close();

private:
    class Paths {
    public:
        void add(const std::vector<std::string>& paths);
        [[nodiscard]] bool empty() const { return inOrder_.empty(); }
        [[nodiscard]] std::vector<std::string> take();

    private:
        std::deque<std::string> inOrder_;
        std::unordered_set<std::string_view> known_; // Views of the texts in `inOrder_`.
        std::size_t bytes_ = 0;
        bool areTooMany_ = false;
    };

    void addState(std::uint32_t code);
    void addAlert(const std::string& alert);
    void add(Paths CallbackQueue::*kind, const std::vector<std::string>& paths);
    [[nodiscard]] bool isEmpty() const;

    std::mutex mutex_;
    std::condition_variable changed_;
    bool closed_ = false;
    bool wantsStates_ = false;
    bool wantsAlerts_ = false;
    std::vector<std::uint32_t> states_;
    std::deque<std::string> alerts_;
    std::uint64_t lostAlerts_ = 0;
    Paths files_;
    Paths folders_;
};

} // namespace kelvane
