#pragma once

#include "Common/KelvProxy.h"
#include "LocalDaemon/Panes/CallbackQueue.h"
#include "Platform/Files/Volumes.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>

namespace kelvane {

using GetVolumes = std::function<std::shared_ptr<const Volumes>()>; // never null; any thread

// One connected pane: its calls run on the target, and a sender thread of its own tells it what its queue
// holds. So a pane that does not read holds up nobody else; when a write finds no room for the send timeout,
// it is closed.
class PaneSession : public SocketDelegate, public std::enable_shared_from_this<PaneSession> {
public:
    // On a thread of the socket or of the session, once; not after `close`.
    using Ended = std::function<void(const std::shared_ptr<PaneSession>&)>;

    PaneSession(std::shared_ptr<KelvaneSocket> socket, std::shared_ptr<InvocationTarget> target,
                std::shared_ptr<CallbackQueue> queue, GetVolumes volumes, Ended ended);

    // False, which is logged, when the system has no thread to give.
    [[nodiscard]] bool start(std::chrono::milliseconds sendTimeout);
    // Any thread, without waiting.
    void close();
    // Waits for the sender, after `close`. Not on a thread of the socket or of the session.
    void join();

    void socketFailed(KelvaneSocket& socket) override;

private:
    void send();
    void send(const CallbackQueue::Batch& batch);

    const std::shared_ptr<KelvaneSocket> socket_;
    const std::shared_ptr<KelvaneProxy> proxy_;
    const std::shared_ptr<InvocationTarget> target_; // which the proxy holds weakly
    const std::shared_ptr<CallbackQueue> queue_;
    const GetVolumes volumes_;
    const Ended ended_;
    std::atomic<bool> closed_{false};
    std::thread sender_;
};

} // namespace kelvane
