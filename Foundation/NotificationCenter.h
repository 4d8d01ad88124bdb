#pragma once

#include "Foundation/Value.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace kelvane {

// What an observer is told. `sender` is an identity to compare, never to be followed.
struct Notification {
    std::string_view name;
    const void* sender = nullptr;
    Value userInfo;
};

// Fan-out inside a process. Observers are called in the order in which they registered, on the thread that
// posts and before `post` returns. One thread at a time: in the pane that is the main thread, in whose hands
// every post, every registration and every token is.
//
// While a post is under way, an observer that is removed is not called any more, and one that is added hears
// of the next post only. An exception of an observer leaves `post` at once.
class NotificationCenter {
public:
    using Handler = std::function<void(const Notification&)>;

    // Unsubscribes when it dies. May outlive the centre.
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

    // `sender` nullptr: from any sender.
    Observer observe(std::string name, const void* sender, Handler handler);
    void post(std::string_view name, const void* sender, Value userInfo = {});

private:
    struct Registration;
    std::vector<std::weak_ptr<Registration>> registrations_;
};

} // namespace kelvane
