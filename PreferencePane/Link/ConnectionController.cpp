#include "PreferencePane/Link/ConnectionController.h"

#include "Support/Logging.h"

#include <csignal>
#include <string>
#include <utility>

namespace kelvane {
namespace {

constexpr std::chrono::milliseconds retryInterval(1000);

} // namespace

std::shared_ptr<ConnectionController> ConnectionController::create(
    std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<NotificationCenter> notifications,
    std::shared_ptr<const Bundle> bundle, std::weak_ptr<InvocationTarget> proxyDelegate) {
    return std::shared_ptr<ConnectionController>(new ConnectionController(
        std::move(mainLoop), std::move(notifications), std::move(bundle), std::move(proxyDelegate)));
}

ConnectionController::ConnectionController(std::shared_ptr<MainLoop> mainLoop,
                                           std::shared_ptr<NotificationCenter> notifications,
                                           std::shared_ptr<const Bundle> bundle,
                                           std::weak_ptr<InvocationTarget> proxyDelegate)
    : mainLoop_(std::move(mainLoop)),
      notifications_(std::move(notifications)),
      proxyDelegate_(std::move(proxyDelegate)),
      bundle_(std::move(bundle)) {}

void ConnectionController::start() {
    isStopped_ = false;
    KelvaneCLog("ConnectionController:start()");
    if (disableConnectTimer_)
        KelvaneCLog("ConnectionController:start - trying to connect immediately");
    else
        startConnectTimer();
    connectTimer();
}

void ConnectionController::stop() {
    isStopped_ = true;
    closeSocket();
}

void ConnectionController::socketConnected(KelvaneSocket& /*socket*/) {
    KelvaneCLog("ConnectionController::socketConnected:");
}

void ConnectionController::socketFailed(KelvaneSocket& /*socket*/) {
    const auto self = shared_from_this(); // the socket that keeps this object is about to be destroyed
    KelvaneCLog("ConnectionController::socketFailed:");
    // Does nothing when `stop` was called, by an observer of the loss or before the report of the loss
    // reached the main thread.
    const auto retry = [this] {
        if (!isStopped_)
            startConnectTimer();
    };
    try {
        closeSocket();
    } catch (...) { // an observer's exception must not prevent the reconnection
        retry();
        throw;
    }
    retry();
}

// A second loss before the first attempt replaces the timer, so that only one runs.
void ConnectionController::startConnectTimer() {
    connectTimer_ = mainLoop_->schedule(retryInterval, MainLoop::Repeat::Always, [weak = weak_from_this()] {
        if (const auto self = weak.lock())
            self->connectTimer();
    });
}

void ConnectionController::stopConnectTimer() {
    connectTimer_.stop();
}

void ConnectionController::connectTimer() {
    if (!socket_)
        createSocket();
    if (!proxy_)
        createProxy();
    const std::string path = bundle_ ? bundle_->information("DaemonPath").stringValue() : std::string();
    if (!socket_->connectToPath(path)) {
        KelvaneCLog("ConnectionController: unable to connect to daemon, will try again...");
        return;
    }
    KelvaneCLog("ConnectionController: connected");
    stopConnectTimer();
    connected_ = true;
    notifications_->post(KelvaneConnectionReadyChangedNotification, this);
}

void ConnectionController::closeSocket() {
    connected_ = false;
    stopConnectTimer();
    if (const auto proxy = std::exchange(proxy_, nullptr))
        proxy->close();
    if (const auto socket = std::exchange(socket_, nullptr))
        socket->close();
    notifications_->post(KelvaneConnectionReadyChangedNotification, this);
}

void ConnectionController::createSocket() {
    std::signal(SIGPIPE, SIG_IGN);
    socket_ = KelvaneSocket::create(mainLoop_);
    socket_->setCallDelegateOnMainThread(true);
    socket_->setSendTimeout(sendTimeout_);
    socket_->setSocketDelegate(shared_from_this());
}

void ConnectionController::createProxy() {
    proxy_ = KelvaneProxy::create(mainLoop_);
    proxy_->setSocket(socket_);
    proxy_->setProtocol(KelvaneExtendedDaemonProtocol);
    proxy_->setCallDelegateOnMainThread(true);
    proxy_->setDelegate(proxyDelegate_);
}

} // namespace kelvane
