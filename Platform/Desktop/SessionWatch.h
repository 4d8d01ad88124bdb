#pragma once

#include <functional>
#include <memory>

namespace kelvane {

// Reports when the user's session becomes inactive or active, according to login1. Belongs to the thread of
// the QCoreApplication. Without login1 or a session it reports nothing.
class SessionWatch {
public:
    using Handler = std::function<void(bool isActive)>;

    // Calls the handler from the event loop, and only on changes.
    explicit SessionWatch(Handler handler);
    ~SessionWatch();
    SessionWatch(const SessionWatch&) = delete;
    SessionWatch& operator=(const SessionWatch&) = delete;

private:
    class Receiver;

    std::unique_ptr<Receiver> receiver_;
};

} // namespace kelvane
