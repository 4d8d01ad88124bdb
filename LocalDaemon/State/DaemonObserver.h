#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace kelvane {

// Hears what a pane is to be told. Called with locks of the state held, so it takes note and returns, and
// neither sends nor calls back.
class DaemonObserver {
public:
    virtual ~DaemonObserver() = default;
    // Whether it hears of states and of alerts; at first it does not.
    virtual void setStateHandler(bool wanted) = 0;
    virtual void setAlertHandler(bool wanted) = 0;
    virtual void stateChanged(std::uint32_t code) = 0;
    virtual void alertRaised(const std::string& alert) = 0;
    // Every pane hears of a restore, whether it has asked for states and alerts or not: by the numbers under
    // which it may ask how it is going, and by the alert that closes it.
    virtual void restoreProgressed(const std::vector<std::uint32_t>& codes) = 0;
    virtual void restoreEnded(const std::string& alert) = 0;
    // Real paths; "/" alone stands for everything.
    virtual void filesChanged(const std::vector<std::string>& paths) = 0;
    virtual void foldersChanged(const std::vector<std::string>& paths) = 0;
};

// The panes that are connected.
//
// Whatever part of the state has changed tells them while it holds its own mutex, so that each pane hears of
// that part's changes in their order. Mutexes are taken in this order: DaemonState's, that of a part, this
// one, a pane's own. Any thread.
class DaemonObservers {
public:
    // Told what happens from now on, as long as there is one.
    void add(const std::shared_ptr<DaemonObserver>& pane);
    void clear();
    void tell(const std::function<void(DaemonObserver&)>& what) const;

private:
    mutable std::mutex mutex_; // guards what follows
    std::vector<std::weak_ptr<DaemonObserver>> panes_;
};

} // namespace kelvane
