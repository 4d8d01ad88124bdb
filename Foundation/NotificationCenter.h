#pragma once

#include "Foundation/Value.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace kelvane {

// A notification as an observer receives it. `sender` identifies the sender and must not be dereferenced.
struct Notification {
    std::string_view name;
    const void* sender = nullptr;
    Value userInfo;
};

// Delivers notifications to the observers in a process. `post` calls the observers on the calling thread, in
// the order of their registration, and returns afterwards. Not thread-safe: a pane uses its centre, and the
// observers' tokens, on the main thread only.
//
// An observer that is removed during a `post` is no longer called; one that is added receives the next
// notification. If an observer throws, `post` stops and the exception propagates to its caller.
class NotificationCenter {
public:
    using Handler = std::function<void(const Notification&)>;

    // Removes the observer when it is destroyed. May outlive the centre.
    class [[nodiscard]] Observer {
    public:
        Observer() = default;

    private:
        friend class NotificationCenter;
        explicit Observer(std::shared_ptr<void> registration) : registration_(std::move(registration)) {}

        std::shared_ptr<void> registration_;
    };

    NotificationCenter();
    ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    // With a null `sender` the handler receives the notifications of all senders.
    Observer observe(std::string_view name, const void* sender, Handler handler);
    void post(std::string_view name, const void* sender, Value userInfo = {});

private:
    struct Registration;
    std::vector<std::weak_ptr<Registration>> registrations_;
};

} // namespace kelvane
