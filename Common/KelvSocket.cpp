#include "Common/KelvSocket.h"

#include "Common/SocketConnection.h"
#include "Foundation/Assertion.h"
#include "Foundation/Format.h"
#include "Platform/SocketAddress.h"
#include "Support/Logging.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace kelvane {
namespace {

constexpr std::string_view socketSource = "Common/KelvSocket";
constexpr int listenBacklog = 10;
constexpr mode_t everybody = 0777;

const sockaddr* generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

// Also fails at once on a connected descriptor, where the system would wait for room in the backlog.
bool connectWithoutWaiting(int descriptor, const sockaddr_un& address) {
    sockaddr_un peer{};
    socklen_t size = sizeof peer;
    if (::getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) == 0) {
        errno = EISCONN;
        return false;
    }
    return ::connect(descriptor, generic(address), sizeof address) == 0;
}

void setBlocking(int descriptor) {
    const int flags = ::fcntl(descriptor, F_GETFL);
    ::fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK);
}

} // namespace

bool isTrustedPeer(int descriptor) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (::getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return false;
    return peer.uid == 0 || peer.uid == ::geteuid();
}

std::shared_ptr<KelvaneSocket> KelvaneSocket::create(std::shared_ptr<MainLoop> mainLoop) {
    std::shared_ptr<KelvaneSocket> object(new KelvaneSocket(std::move(mainLoop)));
    return {object.get(), [object](KelvaneSocket*) mutable {
                object->close();
                object->end();
                object.reset();
            }};
}

KelvaneSocket::KelvaneSocket(std::shared_ptr<MainLoop> mainLoop) : mainLoop_(std::move(mainLoop)) {}

KelvaneSocket::~KelvaneSocket() = default;

bool KelvaneSocket::connectToPath(const std::string& path) {
    const std::scoped_lock attempt(connectMutex_);
    const std::shared_ptr<Connection> connection = open();
    if (!connection)
        return false;
    // The system would read an empty path as an abstract address, which any process may have bound.
    if (path.empty()) {
        KelvaneCLog("connect failed: %s", errorText(ENOENT));
        return false;
    }
    const int descriptor = connection->descriptor.get();
    if (!connectWithoutWaiting(descriptor, socketAddress(path))) {
        KelvaneCLog("connect failed: %s", errorText());
        return false;
    }
    const bool trusted = isTrustedPeer(descriptor);
    if (!trusted)
        KelvaneCLog("connect failed: %s", "the peer runs as another user");
    setBlocking(descriptor);
    if (trusted && start(connection))
        return true;
    drop(connection); // already connected: the next attempt needs a new descriptor
    return false;
}

bool KelvaneSocket::listenAtPath(const std::string& path) {
    if (path.empty()) {
        errno = EINVAL;
        return false;
    }
    const sockaddr_un address = socketAddress(path);
    const char* const bound = static_cast<const char*>(address.sun_path);
    {
        const std::scoped_lock guard(stateMutex_);
        listenPath_ = bound;
    }
    ::unlink(bound);
    const std::shared_ptr<Connection> connection = open();
    if (!connection)
        return false;
    const int descriptor = connection->descriptor.get();
    // Sets the mode without following a link that somebody may have put in the socket's place.
    if (::bind(descriptor, generic(address), sizeof address) != 0 ||
        ::fchmodat(AT_FDCWD, bound, everybody, AT_SYMLINK_NOFOLLOW) != 0 ||
        ::listen(descriptor, listenBacklog) != 0)
        return false;
    setBlocking(descriptor);
    {
        const std::scoped_lock guard(stateMutex_);
        acceptThreadRun_ = true;
        connection->isOpen = true;
    }
    if (startLinkThread([self = shared_from_this(), connection] { self->acceptThread(connection); }))
        return true;
    drop(connection); // no thread would accept connections
    errno = EAGAIN;   // the system cannot start another thread
    return false;
}

void KelvaneSocket::setSocketDelegate(std::shared_ptr<SocketDelegate> delegate) {
    if (!delegate)
        throw AssertionFailure("Setting delegate to NULL", socketSource, 559);
    const auto self = shared_from_this(); // the delegate may drop the last handle
    const std::scoped_lock guard(monitor_);
    if (delegate == socketDelegate_)
        return;
    if (const auto old = socketDelegate_)
        old->socketFailed(*this);
    socketDelegate_ = std::move(delegate);
}

// Does not hold the monitor: the delivery that this waits for may need it.
void KelvaneSocket::setDataDelegate(std::shared_ptr<DataDelegate> delegate) {
    if (!delegate)
        throw AssertionFailure("Setting result delegate to NULL", socketSource, 575);
    if (delegate == dataDelegate())
        return;
    const bool holdsLock = deliveringThread_ == std::this_thread::get_id();
    if (!holdsLock)
        dataDelegateLock_.lock();
    std::shared_ptr<DataDelegate> old = delegate;
    {
        const std::scoped_lock guard(stateMutex_);
        old.swap(dataDelegate_);
    }
    if (!holdsLock)
        dataDelegateLock_.unlockWithCondition(1);
}

void KelvaneSocket::setCallDelegateOnMainThread(bool onMainThread) {
    if (onMainThread && !mainLoop_)
        throw AssertionFailure("delivery on the main thread needs a main loop", socketSource, __LINE__);
    callDelegateOnMainThread_ = onMainThread;
}

void KelvaneSocket::setSendTimeout(std::optional<std::chrono::milliseconds> timeout) {
    const std::scoped_lock guard(stateMutex_);
    sendTimeout_ = timeout;
    if (connection_)
        connection_->setSendTimeout(timeout);
}

bool KelvaneSocket::sendData(std::span<const std::uint8_t> bytes) {
    return sendBytes(bytes.data(), bytes.size());
}

bool KelvaneSocket::sendString(std::string_view text) {
    return sendBytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

bool KelvaneSocket::sendInt(std::int32_t number) {
    return sendBytes(reinterpret_cast<const std::uint8_t*>(&number), sizeof number);
}

// Closes the connection and ends waits before it takes the monitor, because the monitor's holder may be one
// of those that wait.
void KelvaneSocket::close() {
    const auto self = shared_from_this(); // a delegate may drop the last handle
    std::shared_ptr<DataDelegate> waiting;
    {
        const std::scoped_lock guard(stateMutex_);
        zombie_ = true;
        if (connection_)
            connection_->stop();
        connection_.reset();
        dataDelegateLock_.interrupt();
        waiting = dataDelegate_;
    }
    if (waiting)
        waiting->transportChanged(*this);

    std::shared_ptr<SocketDelegate> released;
    std::vector<std::shared_ptr<KelvaneSocket>> children;
    std::string path;
    {
        const std::scoped_lock monitor(monitor_);
        const std::scoped_lock guard(stateMutex_);
        released.swap(socketDelegate_);
        children.swap(children_);
        if (!children.empty()) {
            acceptThreadRun_ = false;
            path.swap(listenPath_);
            acceptStopped_.notify_all();
        }
    }
    if (!path.empty())
        ::unlink(path.c_str());
    for (const auto& child : children)
        child->close();
}

void KelvaneSocket::hangUp() {
    const std::scoped_lock guard(stateMutex_);
    if (connection_)
        ::shutdown(connection_->descriptor.get(), SHUT_RDWR);
}

// The descriptor does not block until it is connected or listening: a full backlog must not block the caller.
std::shared_ptr<KelvaneSocket::Connection> KelvaneSocket::open() {
    const std::scoped_lock guard(stateMutex_);
    if (!connection_) {
        FileDescriptor descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (!descriptor)
            return nullptr;
        connection_ = std::make_shared<Connection>(std::move(descriptor));
        connection_->setSendTimeout(sendTimeout_);
    }
    return connection_;
}

std::shared_ptr<KelvaneSocket::Connection> KelvaneSocket::setSocket(FileDescriptor descriptor) {
    const std::scoped_lock guard(stateMutex_);
    connection_ = std::make_shared<Connection>(std::move(descriptor));
    connection_->setSendTimeout(sendTimeout_);
    return connection_;
}

void KelvaneSocket::drop(const std::shared_ptr<Connection>& connection) {
    const std::scoped_lock guard(stateMutex_);
    if (connection_ == connection)
        connection_.reset();
}

bool KelvaneSocket::start(const std::shared_ptr<Connection>& connection) {
    std::shared_ptr<DataDelegate> waiting;
    {
        const std::scoped_lock guard(stateMutex_);
        if (!connection->isRunning())
            return false; // closed by another thread
        dataDelegateLock_.resume();
        connection->interruptions = dataDelegateLock_.interruptions();
        connection->isOpen = true;
        waiting = dataDelegate_;
    }
    if (waiting)
        waiting->transportChanged(*this);
    try {
        return startLinkThread([self = shared_from_this(), connection] { self->rcvThread(connection); });
    } catch (const std::bad_alloc&) { // no memory for the thread's body
        return false;
    }
}

// After this, the accept thread of a listener that closed without children can end.
void KelvaneSocket::end() {
    const std::scoped_lock guard(stateMutex_);
    handleGone_ = true;
    acceptStopped_.notify_all();
}

bool KelvaneSocket::sendBytes(const std::uint8_t* buffer, std::size_t length) {
    std::shared_ptr<Connection> connection;
    {
        const std::scoped_lock guard(stateMutex_);
        connection = connection_;
    }
    if (!connection)
        return false;
    if (connection->writeBytes(buffer, length))
        return true;
    if (!connection->isRunning())
        return false;                     // closed meanwhile: not a failure
    const auto self = shared_from_this(); // the delegate may drop the last handle
    const std::scoped_lock guard(monitor_);
    KelvaneCLog("KelvaneSocket write to socket failed");
    if (const auto delegate = socketDelegate_)
        delegate->socketFailed(*this);
    return false;
}

bool KelvaneSocket::isOpen() const {
    const std::scoped_lock guard(stateMutex_);
    return connection_ && connection_->isOpen;
}

std::shared_ptr<DataDelegate> KelvaneSocket::dataDelegate() const {
    const std::scoped_lock guard(stateMutex_);
    return dataDelegate_;
}

} // namespace kelvane
