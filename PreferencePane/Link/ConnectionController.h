#pragma once

#include "Common/KelvProxy.h"
#include "Common/KelvSocket.h"
#include "Foundation/MainLoop.h"
#include "Foundation/NotificationCenter.h"
#include "Platform/Bundle.h"

#include <memory>
#include <string_view>

namespace kelvane {

// Posted by a ConnectionController after a successful connect and on every close, even when nothing was
// connected.
inline constexpr std::string_view KelvaneConnectionReadyChangedNotification =
    "KelvaneConnectionReadyChangedNotification";

// Owns the connection to the daemon: connects to the path under "DaemonPath" in the bundle's information
// dictionary, retries every second until that succeeds, and reconnects after each loss.
//
// Main thread, except that a failed write on another thread reports the loss there; the pane does not write
// on other threads. When a write fails inside a call, the notification is delivered before the call returns.
// One loss may be reported several times; each report closes the connection and restarts the one-second wait.
// `stop` must be called before the owner releases this object: the socket keeps it from the first attempt on.
class ConnectionController : public SocketDelegate,
                             public std::enable_shared_from_this<ConnectionController> {
public:
    [[nodiscard]] static std::shared_ptr<ConnectionController>
    create(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<NotificationCenter> notifications,
           std::shared_ptr<const Bundle> bundle, std::weak_ptr<InvocationTarget> proxyDelegate);

    void setBundle(std::shared_ptr<const Bundle> bundle) { bundle_ = std::move(bundle); }
    // After this, `start` tries once only; a loss still starts the retries.
    void disableConnectTimer() { disableConnectTimer_ = true; }
    // The connection counts as lost when the daemon reads nothing for this time, because a command would
    // block the main thread. Applies from the next connection on.
    void setSendTimeout(std::chrono::milliseconds timeout) { sendTimeout_ = timeout; }
    void start();
    // A loss reported after this does not reconnect.
    void stop();

    [[nodiscard]] bool connected() const { return connected_; }
    // Null before the first attempt and after a close, but not between attempts: check `connected` first.
    [[nodiscard]] std::shared_ptr<KelvaneProxy> proxy() const { return proxy_; }

    void socketConnected(KelvaneSocket& socket) override;
    void socketFailed(KelvaneSocket& socket) override;

private:
    ConnectionController(std::shared_ptr<MainLoop> mainLoop,
                         std::shared_ptr<NotificationCenter> notifications,
                         std::shared_ptr<const Bundle> bundle, std::weak_ptr<InvocationTarget> proxyDelegate);

    void startConnectTimer();
    void stopConnectTimer();
    void connectTimer();
    void closeSocket();
    void createSocket();
    void createProxy();

    const std::shared_ptr<MainLoop> mainLoop_;
    const std::shared_ptr<NotificationCenter> notifications_;
    std::shared_ptr<KelvaneSocket> socket_;
    std::shared_ptr<KelvaneProxy> proxy_;
    std::weak_ptr<InvocationTarget> proxyDelegate_;
    bool connected_ = false;
    bool disableConnectTimer_ = false;
    bool isStopped_ = false;
    std::chrono::milliseconds sendTimeout_ = std::chrono::seconds(10);
    Timer connectTimer_;
    std::shared_ptr<const Bundle> bundle_;
};

} // namespace kelvane
