#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace kelvane {

// Receives the notifications for a pane. Called with locks of the state held, so it only records them,
// and neither sends nor calls back.
class DaemonObserver {
public:
    virtual ~DaemonObserver() = default;
    // Enable or disable notifications of states and of alerts, which are disabled at first.
    virtual void setStateHandler(bool wanted) = 0;
    virtual void setAlertHandler(bool wanted) = 0;
    virtual void stateChanged(std::uint32_t code) = 0;
    virtual void alertRaised(const std::string& alert) = 0;
    // Every pane is notified of a restore, whether it has enabled states and alerts or not: with the
    // codes under which it may query the progress, and with the final alert.
    virtual void restoreProgressed(const std::vector<std::uint32_t>& codes) = 0;
    virtual void restoreEnded(const std::string& alert) = 0;
    // Real paths; "/" alone stands for everything.
    virtual void filesChanged(const std::vector<std::string>& paths) = 0;
    virtual void foldersChanged(const std::vector<std::string>& paths) = 0;
};

// The connected panes.
//
// Each part of the state notifies them while it holds its own mutex, so that each pane receives the
// changes of that part in order. Mutexes are locked in this order: DaemonState's, that of a part, this
// one, a pane's own. Any thread.
class DaemonObservers {
public:
    // Notifies the pane from now on, for as long as it exists.
    void add(const std::shared_ptr<DaemonObserver>& pane);
    void clear();
    void tell(const std::function<void(DaemonObserver&)>& what) const;

private:
    mutable std::mutex mutex_; // Guards the members below.
    std::vector<std::weak_ptr<DaemonObserver>> panes_;
};

} // namespace kelvane
