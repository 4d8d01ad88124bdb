#pragma once

#include "Foundation/MainLoop.h"
#include "LocalDaemon/Panes/PaneSession.h"

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace kelvane {

// Serves any number of panes on a socket, with a session for each.
//
// `listen` and `stop` belong to the main thread, which also joins the sessions that have ended; the rest is
// called on the socket's threads. After `stop` no thread of a session is left, and no pane is notified any
// more; a request that is already running may still run to its end.
class PaneServer : public SocketDelegate, public std::enable_shared_from_this<PaneServer> {
public:
    // Creates the target of a pane's calls, one for each pane.
    using MakeTarget =
        std::function<std::shared_ptr<InvocationTarget>(const std::shared_ptr<CallbackQueue>&)>;

    struct Options {
        GetVolumes volumes; // For the paths in notifications.
        std::chrono::milliseconds sendTimeout = std::chrono::seconds(10);
    };

    PaneServer(std::shared_ptr<MainLoop> loop, MakeTarget makeTarget, Options options);

    // May be called once. Returns false and sets errno on failure.
    [[nodiscard]] bool listen(const std::string& path);
    void stop();

    void socketCreated(const std::shared_ptr<KelvaneSocket>& child) override;

private:
    void sessionEnded(const std::shared_ptr<PaneSession>& session);
    void clearEnded();

    const std::shared_ptr<MainLoop> loop_;
    const MakeTarget makeTarget_;
    const Options options_;
    std::shared_ptr<KelvaneSocket> listener_;

    std::mutex mutex_; // Guards the members below; never held during a call of a socket.
    std::vector<std::shared_ptr<PaneSession>> sessions_;
    std::vector<std::shared_ptr<PaneSession>> ended_; // Sessions whose senders are still to be joined.
};

} // namespace kelvane
