#pragma once

#include <functional>
#include <memory>
#include <string>

namespace kelvane {

// A notice to every process of the user's session, over the session bus: no content but its name and its
// sender.
//
// A notification such as "com.kelvane.notify.defaultsPropertyChanged" is the signal "defaultsPropertyChanged"
// of the interface "com.kelvane.notify" at the path "/com/kelvane/notify", with the sender as its only
// argument. Both sides need a QCoreApplication and belong to its thread.

// Sends it and waits, for at most two seconds, until the bus has taken it. Returns why it failed, empty when
// it did not. The first use connects to the bus.
[[nodiscard]] std::string postBroadcast(const std::string& notification, const std::string& sender);

// Hears what is broadcast from its making to its death. Calls the handler from the event loop.
class BroadcastListener {
public:
    using Handler = std::function<void(const std::string& sender)>;

    BroadcastListener(const std::string& notification, Handler handler);
    ~BroadcastListener();
    BroadcastListener(const BroadcastListener&) = delete;
    BroadcastListener& operator=(const BroadcastListener&) = delete;

    // Why it hears nothing; empty when it does.
    [[nodiscard]] const std::string& error() const { return error_; }

private:
    class Receiver;

    std::unique_ptr<Receiver> receiver_;
    std::string error_;
};

} // namespace kelvane
