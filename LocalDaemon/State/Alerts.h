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

// The standing alerts, one of each kind, each until it is withdrawn. An alert that is raised again with
// a different text keeps the time of the first one. Panes with an alert handler are notified of each alert
// that is raised or changed.
//
// Any thread; never blocks.
class Alerts {
public:
    using Clock = std::function<std::chrono::system_clock::time_point()>;

    Alerts(std::shared_ptr<const DaemonObservers> panes, Clock clock);

    void raise(const Alert& alert);
    void withdraw(const std::string& kind);
    // Replaces all alerts whose kinds begin with this prefix by these.
    void replace(std::string_view beginningOfKinds, const std::vector<Alert>& alerts);
    [[nodiscard]] std::optional<Alert> standing(const std::string& kind) const;
    // Enables alerts for the pane and sends it the standing ones.
    void addHandler(DaemonObserver& pane) const;
    // Returns the alerts for the daemon's state dictionary: the most severe first, then the newest.
    [[nodiscard]] Array dictionaries() const;

private:
    struct Standing {
        Alert alert;
        std::chrono::system_clock::time_point since;
    };

    const std::shared_ptr<const DaemonObservers> panes_;
    const Clock clock_;

    mutable std::mutex mutex_;                 // Guards the members below.
    std::map<std::string, Standing> standing_; // By kind.
};

} // namespace kelvane
