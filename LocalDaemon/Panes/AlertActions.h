#pragma once

#include "LocalDaemon/State/Alerts.h"

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace kelvane {

// The handlers of the actions of standing alerts, by verb. "dismiss" is predefined.
//
// All verbs must be registered before the first action is performed; after that any thread may perform
// one. A handler runs on the thread of the pane that requests the action, without a lock; it records the
// request and returns.
class AlertActions {
public:
    // Returns why nothing is done, for the user; empty when it is done or has started.
    using Handler = std::function<std::string(const std::string& argument)>;

    explicit AlertActions(std::shared_ptr<Alerts> alerts);

    void add(const std::string& verb, Handler handler);

    // Performs an action "verb:argument" that the alert offers. Any other action is refused; the result
    // is the same as for a handler.
    [[nodiscard]] std::string perform(const std::string& action, const std::string& alertId) const;

private:
    const std::shared_ptr<Alerts> alerts_;
    std::map<std::string, Handler, std::less<>> handlers_; // By verb.
};

} // namespace kelvane
