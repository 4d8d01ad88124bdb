#include "LocalDaemon/Panes/PaneSession.h"

#include "Foundation/Unicode.h"
#include "Support/GuardedWork.h"
#include "Support/Logging.h"

#include <system_error>

namespace kelvane {
namespace {

// Returns the paths with volume names, as panes use them.
Array textsOf(const std::vector<std::string>& paths, const Volumes& volumes) {
    Array texts;
    for (const std::string& path : paths)
        texts.emplace_back(textFromPath(volumes.volumePath(path)));
    return texts;
}

// Sends one item by itself and several as a list, which saves frames.
template <Selector one, Selector several>
void callEach(KelvaneProxy& proxy, const Array& items) {
    if (items.size() == 1)
        proxy.call<one>(items.front());
    else if (!items.empty())
        proxy.call<several>(Value(items));
}

} // namespace

PaneSession::PaneSession(std::shared_ptr<KelvaneSocket> socket, std::shared_ptr<InvocationTarget> target,
                         std::shared_ptr<CallbackQueue> queue, GetVolumes volumes, Ended ended)
    : socket_(std::move(socket)),
      proxy_(KelvaneProxy::create()),
      target_(std::move(target)),
      queue_(std::move(queue)),
      volumes_(std::move(volumes)),
      ended_(std::move(ended)) {}

bool PaneSession::start(std::chrono::milliseconds sendTimeout) {
    socket_->setSendTimeout(sendTimeout);
    proxy_->setProtocol(KelvaneClientProtocol);
    proxy_->setDelegate(target_);
    proxy_->setSocket(socket_); // Calls may arrive from now on.
    try {
        sender_ = std::thread([this] { send(); });
    } catch (const std::system_error& error) {
        logError("A pane cannot be served: %@", error.what());
        return false;
    }
    // Last, since it may report at once that the pane has disconnected.
    socket_->setSocketDelegate(shared_from_this());
    return true;
}

void PaneSession::close() {
    closed_ = true;
    queue_->close();
    socket_->close();
}

void PaneSession::join() {
    if (sender_.joinable())
        sender_.join();
}

void PaneSession::socketFailed(KelvaneSocket&) {
    if (closed_.exchange(true))
        return;
    const auto self = shared_from_this(); // The socket may hold the last reference, and releases it.
    close();
    ended_(self);
}

void PaneSession::send() {
    while (const auto batch = queue_->take())
        runGuarded(
            "telling a pane what has changed", [](const std::string&) {}, [&] { send(*batch); });
}

void PaneSession::send(const CallbackQueue::Batch& batch) {
    if (batch.lostAlerts > 0)
        logWarning("A pane reads its alerts too slowly; the oldest %llu were dropped.", batch.lostAlerts);
    if (batch.states.size() == 1) {
        proxy_->call<"stateChanged:">(batch.states.front());
    } else if (!batch.states.empty()) {
        proxy_->call<"statesChanged:">(Value(Array(batch.states.begin(), batch.states.end())));
    }
    const auto volumes = volumes_();
    callEach<"fileChanged:", "filesChanged:">(*proxy_, textsOf(batch.files, *volumes));
    callEach<"folderChanged:", "foldersChanged:">(*proxy_, textsOf(batch.folders, *volumes));
    callEach<"setAlertString:", "setAlertStrings:">(*proxy_, Array(batch.alerts.begin(), batch.alerts.end()));
}

} // namespace kelvane
