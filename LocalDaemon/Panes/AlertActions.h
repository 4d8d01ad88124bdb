#pragma once

#include "LocalDaemon/State/Alerts.h"

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace kelvane {

// What can be done about standing alerts: a handler for each verb. "dismiss" is there from the start.
//
// All verbs are registered before anybody can perform one; after that any thread may. A handler runs on the
// thread of the pane that asks, without any lock; it takes note and returns.
class AlertActions {
public:
    // Returns why nothing is done, for people; empty when it is done or under way.
    using Handler = std::function<std::string(const std::string& argument)>;

    explicit AlertActions(std::shared_ptr<Alerts> alerts);

    void add(const std::string& verb, Handler handler);

    // Does what the alert offers as "verb:argument". Anything else is refused, in the same way as a handler
    // does.
    [[nodiscard]] std::string perform(const std::string& action, const std::string& alertId) const;

private:
    const std::shared_ptr<Alerts> alerts_;
    std::map<std::string, Handler, std::less<>> handlers_; // by verb
};

} // namespace kelvane
