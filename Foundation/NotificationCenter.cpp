#include "Foundation/NotificationCenter.h"

namespace kelvane {

struct NotificationCenter::Registration {
    std::string name;
    const void* sender;
    Handler handler;
};

NotificationCenter::NotificationCenter() = default;
NotificationCenter::~NotificationCenter() = default;

NotificationCenter::Observer NotificationCenter::observe(std::string_view name, const void* sender,
                                                         Handler handler) {
    auto registration =
        std::make_shared<Registration>(Registration{std::string(name), sender, std::move(handler)});
    std::erase_if(registrations_, [](const auto& known) { return known.expired(); });
    registrations_.push_back(registration);
    return Observer(std::move(registration));
}

void NotificationCenter::post(std::string_view name, const void* sender, Value userInfo) {
    const Notification notification{name, sender, std::move(userInfo)};
    const auto present = registrations_;
    for (const auto& weak : present) {
        // Keeps the handler alive while it runs: it may drop its own token.
        const auto registration = weak.lock();
        if (registration && registration->name == name &&
            (registration->sender == nullptr || registration->sender == sender))
            registration->handler(notification);
    }
}

} // namespace kelvane
