#pragma once

#include "Foundation/Value.h"
#include "LocalDaemon/Index/Alert.h"
#include "LocalDaemon/State/DaemonObserver.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// The alerts that stand, one of a kind, each until it is withdrawn. One that is raised again with other words
// stands since the first time. Panes that want alerts are told of each that is raised or gets other words.
//
// Any thread; blocks on nothing.
class Alerts {
public:
    using Clock = std::function<std::chrono::system_clock::time_point()>;

    Alerts(std::shared_ptr<const DaemonObservers> panes, Clock clock);

    void raise(const Alert& alert);
    void withdraw(const std::string& kind);
    // Of those whose kinds begin so these alone stand from now on.
    void replace(std::string_view beginningOfKinds, const std::vector<Alert>& alerts);
    [[nodiscard]] std::optional<Alert> standing(const std::string& kind) const;
    // From now on the pane wants alerts. It is told of those that stand.
    void addHandler(DaemonObserver& pane) const;
    // As the dictionary of the daemon's state lists them: the worst first, of equal ones the newest.
    [[nodiscard]] Array dictionaries() const;

private:
    struct Standing {
        Alert alert;
        std::chrono::system_clock::time_point since;
    };

    const std::shared_ptr<const DaemonObservers> panes_;
    const Clock clock_;

    mutable std::mutex mutex_;                 // guards what follows
    std::map<std::string, Standing> standing_; // by kind
};

} // namespace kelvane
