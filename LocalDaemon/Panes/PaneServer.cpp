#include "LocalDaemon/Panes/PaneServer.h"

#include "Support/Logging.h"

namespace kelvane {

PaneServer::PaneServer(std::shared_ptr<MainLoop> loop, MakeTarget makeTarget, Options options)
    : loop_(std::move(loop)), makeTarget_(std::move(makeTarget)), options_(std::move(options)) {}

bool PaneServer::listen(const std::string& path) {
    listener_ = KelvaneSocket::create();
    listener_->setSocketDelegate(shared_from_this());
    return listener_->listenAtPath(path);
}

void PaneServer::stop() {
    if (listener_)
        listener_->close(); // No pane connects after this.
    listener_.reset();
    std::vector<std::shared_ptr<PaneSession>> sessions;
    {
        const std::scoped_lock guard(mutex_);
        sessions.swap(sessions_);
    }
    for (const auto& session : sessions)
        session->close();
    for (const auto& session : sessions)
        session->join();
    clearEnded();
}

void PaneServer::socketCreated(const std::shared_ptr<KelvaneSocket>& child) {
    const auto queue = std::make_shared<CallbackQueue>();
    const auto session =
        std::make_shared<PaneSession>(child, makeTarget_(queue), queue, options_.volumes,
                                      [weak = weak_from_this()](const std::shared_ptr<PaneSession>& ended) {
                                          if (const auto self = weak.lock())
                                              self->sessionEnded(ended);
                                      });
    {
        const std::scoped_lock guard(mutex_);
        sessions_.push_back(session);
    }
    if (session->start(options_.sendTimeout))
        return KelvaneCLog("A pane has connected.");
    session->close();
    sessionEnded(session);
}

void PaneServer::sessionEnded(const std::shared_ptr<PaneSession>& session) {
    KelvaneCLog("A pane has disconnected.");
    {
        const std::scoped_lock guard(mutex_);
        if (std::erase(sessions_, session) == 0)
            return; // `stop` joins it.
        ended_.push_back(session);
    }
    // The current thread may be the sender, which cannot join itself.
    loop_->post([weak = weak_from_this()] {
        if (const auto self = weak.lock())
            self->clearEnded();
    });
}

void PaneServer::clearEnded() {
    std::vector<std::shared_ptr<PaneSession>> ended;
    {
        const std::scoped_lock guard(mutex_);
        ended.swap(ended_);
    }
    for (const auto& session : ended)
        session->join();
}

} // namespace kelvane
