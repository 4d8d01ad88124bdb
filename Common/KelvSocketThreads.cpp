// The bodies of a socket's receive thread and of a listening socket's accept thread.

#include "Common/KelvSocket.h"
#include "Common/SocketConnection.h"
#include "Support/Logging.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <functional>
#include <iterator>
#include <optional>
#include <sys/socket.h>
#include <utility>

namespace kelvane {
namespace {

using namespace std::chrono_literals;

constexpr auto pauseBeforeNextRead = 100ms;
constexpr auto pauseAfterReadFailure = 1s;
constexpr auto pauseAfterAcceptFailure = 100ms;
constexpr auto refusalLogInterval = 1min;

// Another user's repeated connection attempts must not flood the log.
class RefusalLog {
public:
    void add() {
        ++count_;
        const auto now = std::chrono::steady_clock::now();
        if (last_ && now - *last_ < refusalLogInterval)
            return;
        logWarning("KelvaneSocket refused connections of other users: %llu", count_);
        last_ = now;
        count_ = 0;
    }

private:
    std::optional<std::chrono::steady_clock::time_point> last_;
    std::uint64_t count_ = 0;
};

// Returns false when `body` throws, most likely in a delegate that it calls.
bool completes(const std::function<void()>& body) {
    try {
        body();
        return true;
    } catch (const std::exception& error) {
        KelvaneCLog("KelvaneSocket caught an exception: %@", error.what());
    } catch (...) {
        KelvaneCLog("KelvaneSocket caught an unknown exception");
    }
    return false;
}

} // namespace

// An exception is handled like a failed read: whoever waits for this thread's frames must be notified.
void KelvaneSocket::rcvThread(const std::shared_ptr<Connection>& connection) {
    FrameReader reader(*connection);
    bool isGood = completes([&] { notifyDelegate(*connection, &SocketDelegate::socketConnected); });
    while (connection->isRunning()) {
        // After a valid frame the next read serves as the pause: it ends as soon as bytes arrive.
        if (std::exchange(isGood, false)) {
            completes([&] { isGood = receiveFrame(*connection, reader); });
            continue;
        }
        completes([&] { reportFailure(*connection); });
        connection->pause(pauseBeforeNextRead);
        isGood = true;
    }
}

// Returns false when a read failed; true also when the connection was stopped while searching for a marker.
bool KelvaneSocket::receiveFrame(Connection& connection, FrameReader& reader) {
    FrameReader::Marker marker = FrameReader::Marker::Nothing;
    while (marker != FrameReader::Marker::Found) {
        marker = reader.readMarker();
        if (marker == FrameReader::Marker::Failed)
            return false;
        if (marker == FrameReader::Marker::Garbage)
            KelvaneCLog("KelvaneSocket Expecting a UUID, got something else...");
        if (marker != FrameReader::Marker::Found)
            connection.pause(pauseBeforeNextRead);
        if (!connection.isRunning())
            return true;
    }
    const std::optional<Frame> frame = reader.readFrame();
    if (!frame)
        return false;
    deliver(connection, frame->payload ? &*frame->payload : nullptr, frame->type);
    return true;
}

void KelvaneSocket::reportFailure(Connection& connection) {
    connection.pause(pauseAfterReadFailure);
    deliver(connection, nullptr, failureNotice);
    const std::scoped_lock monitor(monitor_);
    if (!connection.isRunning())
        return; // closed meanwhile: nobody to notify
    KelvaneCLog("KelvaneSocket read from socket failed");
    notifyDelegate(connection, &SocketDelegate::socketFailed);
}

void KelvaneSocket::deliver(Connection& connection, const Data* payload, std::int32_t type) {
    if (!dataDelegateLock_.lockWhenCondition(1, connection.interruptions))
        return;             // closed while there was no data delegate
    const struct Delivery { // ends the delivery even if the delegate throws
        explicit Delivery(KelvaneSocket& socket) : socket(socket) {
            socket.deliveringThread_ = std::this_thread::get_id();
        }
        ~Delivery() {
            socket.deliveringThread_ = std::thread::id();
            socket.dataDelegateLock_.unlock();
        }
        KelvaneSocket& socket;
    } delivery(*this);
    const std::shared_ptr<DataDelegate> delegate = dataDelegate();
    if (connection.isRunning())
        static_cast<void>(delegate->processData(payload, type));
}

// A connection that was closed meanwhile must not call the delegate of its successor.
void KelvaneSocket::notifyDelegate(const Connection& connection,
                                   void (SocketDelegate::*operation)(KelvaneSocket&)) {
    const std::scoped_lock guard(monitor_);
    const std::shared_ptr<SocketDelegate> delegate = socketDelegate_;
    if (!delegate || !connection.isRunning())
        return;
    if (callDelegateOnMainThread_)
        mainLoop_->post(
            [delegate, operation, told = connection.shared_from_this(), self = shared_from_this()] {
                if (told->isRunning()) // otherwise whoever closed it knows
                    (*delegate.*operation)(*self);
            });
    else
        (*delegate.*operation)(*this);
}

void KelvaneSocket::acceptThread(std::shared_ptr<Connection> connection) {
    RefusalLog refusals;
    while (connection->isRunning()) {
        FileDescriptor accepted(::accept4(connection->descriptor.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (accepted.get() < 1)
            // Pauses, because a process out of descriptors would otherwise spin.
            connection->pause(pauseAfterAcceptFailure);
        else if (isTrustedPeer(accepted.get()))
            completes([&] { acceptOne(*connection, std::move(accepted)); });
        else
            refusals.add();
    }
    connection.reset(); // closes the descriptor even while the thread is parked
    std::unique_lock guard(stateMutex_);
    acceptStopped_.wait(guard, [this] { return !acceptThreadRun_ || handleGone_; });
}

void KelvaneSocket::acceptOne(const Connection& connection, FileDescriptor descriptor) {
    std::vector<std::shared_ptr<KelvaneSocket>> zombies;
    const std::shared_ptr<KelvaneSocket> child = create(mainLoop_);
    {
        const std::scoped_lock guard(stateMutex_);
        if (!connection.isRunning())
            return; // closed meanwhile, so nobody would close the child
        std::copy_if(children_.begin(), children_.end(), std::back_inserter(zombies),
                     [](const auto& each) { return each->isZombie(); });
        children_.push_back(child);
    }
    for (const auto& zombie : zombies)
        removeChild(zombie);

    // Closes a child that could not be started or announced, whose peer would otherwise wait for ever.
    struct Unserved {
        ~Unserved() {
            if (socket)
                socket->close();
        }
        std::shared_ptr<KelvaneSocket> socket;
    } unserved{child};
    if (!child->start(child->setSocket(std::move(descriptor))))
        return;
    const std::scoped_lock guard(monitor_);
    if (const auto delegate = socketDelegate_)
        delegate->socketCreated(child);
    unserved.socket.reset();
}

void KelvaneSocket::removeChild(const std::shared_ptr<KelvaneSocket>& child) {
    const std::scoped_lock guard(stateMutex_);
    std::erase(children_, child);
}

} // namespace kelvane
