#pragma once

#include <functional>
#include <memory>

namespace kelvane {

// Tells when the user's session is switched away from and back to, as login1 says. Belongs to the thread of
// the QCoreApplication. Where there is no login1 or no session, it says nothing.
class SessionWatch {
public:
    using Handler = std::function<void(bool isActive)>;

    // Calls the handler from the event loop, on changes only.
    explicit SessionWatch(Handler handler);
    ~SessionWatch();
    SessionWatch(const SessionWatch&) = delete;
    SessionWatch& operator=(const SessionWatch&) = delete;

private:
    class Receiver;

    std::unique_ptr<Receiver> receiver_;
};

} // namespace kelvane
