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

using GetVolumes = std::function<std::shared_ptr<const Volumes>()>; // Never returns null; any thread.

// A connected pane: its calls run on the target, and a sender thread sends the contents of its queue, so
// that a pane that does not read blocks nobody else. The connection is closed when a write blocks for
// the send timeout.
class PaneSession : public SocketDelegate, public std::enable_shared_from_this<PaneSession> {
public:
    // Called once, on a thread of the socket or of the session; not after `close`.
    using Ended = std::function<void(const std::shared_ptr<PaneSession>&)>;

    PaneSession(std::shared_ptr<KelvaneSocket> socket, std::shared_ptr<InvocationTarget> target,
                std::shared_ptr<CallbackQueue> queue, GetVolumes volumes, Ended ended);

    // Returns false, which is logged, when no thread can be created.
    [[nodiscard]] bool start(std::chrono::milliseconds sendTimeout);
    // Any thread; does not wait.
    void close();
    // Waits for the sender; `close` must have been called. Not on a thread of the socket or of the
    // session.
    void join();

    void socketFailed(KelvaneSocket& socket) override;

private:
    void send();
    void send(const CallbackQueue::Batch& batch);

    const std::shared_ptr<KelvaneSocket> socket_;
    const std::shared_ptr<KelvaneProxy> proxy_;
    const std::shared_ptr<InvocationTarget> target_; // The proxy has only a weak reference.
    const std::shared_ptr<CallbackQueue> queue_;
    const GetVolumes volumes_;
    const Ended ended_;
    std::atomic<bool> closed_{false};
    std::thread sender_;
};

} // namespace kelvane
