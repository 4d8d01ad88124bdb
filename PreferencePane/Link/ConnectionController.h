#pragma once

#include "Common/KelvProxy.h"
#include "Common/KelvSocket.h"
#include "Foundation/MainLoop.h"
#include "Foundation/NotificationCenter.h"
#include "Platform/Bundle.h"

#include <memory>
#include <string_view>

namespace kelvane {

// Posted by a ConnectionController after a successful connect and on every close, also when nothing was
// connected.
inline constexpr std::string_view KelvaneConnectionReadyChangedNotification =
    "KelvaneConnectionReadyChangedNotification";

// Owns the one connection to the daemon: connects to the path under "DaemonPath" in the bundle's information
// dictionary, tries again every second until that succeeds, and again after each loss.
//
// On the main thread, except that a write that fails on another thread reports the loss there; nothing in the
// pane writes from another thread. A write that fails inside a call has delivered the notification before the
// call returns. Several losses may be reported for one; each closes what is there and starts the second anew.
// `stop` must be called before the owner lets go: the socket keeps this object from the first attempt on.
class ConnectionController : public SocketDelegate,
                             public std::enable_shared_from_this<ConnectionController> {
public:
    [[nodiscard]] static std::shared_ptr<ConnectionController>
    create(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<NotificationCenter> notifications,
           std::shared_ptr<const Bundle> bundle, std::weak_ptr<InvocationTarget> proxyDelegate);

    void setBundle(std::shared_ptr<const Bundle> bundle) { bundle_ = std::move(bundle); }
    // `start` then tries once only; a loss still starts the retries.
    void disableConnectTimer() { disableConnectTimer_ = true; }
    // A daemon that reads nothing for so long counts as lost: a command would hold up the main thread. From
    // the next connection on.
    void setSendTimeout(std::chrono::milliseconds timeout) { sendTimeout_ = timeout; }
    void start();
    // A loss that is reported after this starts nothing.
    void stop();

    [[nodiscard]] bool connected() const { return connected_; }
    // Null before the first attempt and after a close; there is one between attempts, too.
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
