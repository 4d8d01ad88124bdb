#pragma once

#include <functional>
#include <memory>
#include <string>

namespace kelvane {

// Notifications to every process of the user's session, over the session bus. A notification carries only its
// name and its sender.
//
// For example, "com.kelvane.notify.defaultsPropertyChanged" is the signal "defaultsPropertyChanged" of the
// interface "com.kelvane.notify" at the path "/com/kelvane/notify", with the sender as its only argument.
// Both sides need a QCoreApplication and belong to its thread.

// Sends the notification and waits, at most two seconds, until the bus has received it. Returns why it
// failed, or empty on success. The first call connects to the bus.
[[nodiscard]] std::string postBroadcast(const std::string& notification, const std::string& sender);

// Receives notifications while it lives. Calls the handler from the event loop.
class BroadcastListener {
public:
    using Handler = std::function<void(const std::string& sender)>;

    BroadcastListener(const std::string& notification, Handler handler);
    ~BroadcastListener();
    BroadcastListener(const BroadcastListener&) = delete;
    BroadcastListener& operator=(const BroadcastListener&) = delete;

    // Why no notifications can be received; empty when they can.
    [[nodiscard]] const std::string& error() const { return error_; }

private:
    class Receiver;

    std::unique_ptr<Receiver> receiver_;
    std::string error_;
};

} // namespace kelvane
