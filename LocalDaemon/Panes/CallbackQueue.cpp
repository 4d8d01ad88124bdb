#include "LocalDaemon/Panes/CallbackQueue.h"

#include "Common/RestoreStatus.h"
#include "Foundation/CleanPath.h"

#include <functional>
#include <iterator>
#include <utility>

namespace kelvane {
namespace {

constexpr std::size_t mostStates = 64;
constexpr std::size_t mostAlerts = 100;
constexpr std::size_t mostPaths = 1000;
// For paths and for alerts: a hundred panes that never read must not exhaust the machine's memory.
constexpr std::size_t mostBytes = std::size_t{64} << 10U;

bool closesRestore(const std::string& alert) {
    return alert.starts_with(restoreprogress::closingAlert);
}

} // namespace

void CallbackQueue::setStateHandler(bool wanted) {
    const std::scoped_lock guard(mutex_);
    wantsStates_ = wanted;
    if (!wanted)
        std::erase_if(states_, std::not_fn(restoreprogress::isOfRestore));
}

void CallbackQueue::setAlertHandler(bool wanted) {
    const std::scoped_lock guard(mutex_);
    wantsAlerts_ = wanted;
    if (!wanted)
        std::erase_if(alerts_, std::not_fn(closesRestore));
}

void CallbackQueue::stateChanged(std::uint32_t code) {
    const std::scoped_lock guard(mutex_);
    if (wantsStates_)
        addState(code);
}

void CallbackQueue::alertRaised(const std::string& alert) {
    const std::scoped_lock guard(mutex_);
    if (wantsAlerts_)
        addAlert(alert);
}

void CallbackQueue::restoreProgressed(const std::vector<std::uint32_t>& codes) {
    const std::scoped_lock guard(mutex_);
    for (const std::uint32_t code : codes) {
        addState(code);
        if (code == restoreprogress::begin)
            std::erase_if(alerts_, closesRestore);
    }
}

void CallbackQueue::restoreEnded(const std::string& alert) {
    const std::scoped_lock guard(mutex_);
    addAlert(alert);
}

void CallbackQueue::filesChanged(const std::vector<std::string>& paths) {
    add(&CallbackQueue::files_, paths);
}

void CallbackQueue::foldersChanged(const std::vector<std::string>& paths) {
    add(&CallbackQueue::folders_, paths);
}

std::optional<CallbackQueue::Batch> CallbackQueue::take() {
    std::unique_lock guard(mutex_);
    changed_.wait(guard, [this] { return closed_ || !isEmpty(); });
    if (closed_)
        return std::nullopt;
    Batch batch;
    batch.states.swap(states_);
    batch.files = files_.take();
    batch.folders = folders_.take();
    batch.alerts.assign(alerts_.begin(), alerts_.end());
    alerts_.clear();
    batch.lostAlerts = std::exchange(lostAlerts_, 0);
    return batch;
}

void CallbackQueue::close() {
    const std::scoped_lock guard(mutex_);
    closed_ = true;
    changed_.notify_all();
}

void CallbackQueue::Paths::add(const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
        if (areTooMany_)
            return;
        if (known_.contains(path))
            continue;
        known_.insert(inOrder_.emplace_back(path));
        bytes_ += path.size();
        areTooMany_ = inOrder_.size() > mostPaths || bytes_ > mostBytes;
        if (areTooMany_) {
            known_.clear();
            inOrder_.assign(1, everything);
        }
    }
}

std::vector<std::string> CallbackQueue::Paths::take() {
    std::vector<std::string> paths(std::make_move_iterator(inOrder_.begin()),
                                   std::make_move_iterator(inOrder_.end()));
    *this = Paths();
    return paths;
}

void CallbackQueue::addState(std::uint32_t code) {
    std::erase(states_, code);
    if (states_.size() == mostStates)
        states_.erase(states_.begin()); // The newest ones matter.
    states_.push_back(code);
    changed_.notify_all();
}

void CallbackQueue::addAlert(const std::string& alert) {
    alerts_.push_back(alert);
    std::size_t bytes = 0;
    for (const std::string& each : alerts_)
        bytes += each.size();
    for (; alerts_.size() > mostAlerts || (bytes > mostBytes && alerts_.size() > 1); ++lostAlerts_) {
        bytes -= alerts_.front().size();
        alerts_.pop_front();
    }
    changed_.notify_all();
}

void CallbackQueue::add(Paths CallbackQueue::*kind, const std::vector<std::string>& paths) {
    const std::scoped_lock guard(mutex_);
    (this->*kind).add(paths);
    changed_.notify_all();
}

bool CallbackQueue::isEmpty() const {
    return states_.empty() && alerts_.empty() && files_.empty() && folders_.empty();
}

} // namespace kelvane
