#pragma once

#include "Common/FrameReader.h"
#include "Foundation/ConditionLock.h"
#include "Foundation/MainLoop.h"
#include "Foundation/Value.h"
#include "Platform/FileDescriptor.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace kelvane {

class KelvaneSocket;

// Whether the process at the other end of a connected descriptor runs as root or as the current user.
[[nodiscard]] bool isTrustedPeer(int descriptor);

// Receives a socket's events. Called with the socket's monitor held, on the receive thread, the accept
// thread, or the thread whose write failed or which sets another delegate. If the socket was configured so,
// the calls of the receive thread come on the main thread instead, without the monitor. A delegate must not
// wait for anything that needs the monitor on another thread, as a call over the same link may.
class SocketDelegate {
public:
    virtual ~SocketDelegate() = default;
    virtual void socketConnected(KelvaneSocket& /*socket*/) {}
    virtual void socketFailed(KelvaneSocket& /*socket*/) {}
    // A listening socket accepted `child`, whose receive thread runs already. The listener keeps it until one
    // of them is closed.
    virtual void socketCreated(const std::shared_ptr<KelvaneSocket>& /*child*/) {}
};

// Receives the frames of a socket, on its receive thread.
class DataDelegate {
public:
    virtual ~DataDelegate() = default;
    // `payload` is null for a frame of length 0. Type 0 without a payload means that the connection has
    // failed.
    virtual bool processData(const Data* payload, std::int32_t type) = 0;
    // The socket has closed, and waits on it must end, or it has connected again; `isOpen` tells which.
    // Called on any thread.
    virtual void transportChanged(const KelvaneSocket& /*socket*/) {}
};

// The byte transport between pane and daemon: a Unix domain stream socket that frames every message.
//
// Ownership. `create` returns a handle; releasing the last handle closes the socket. The receive and accept
// threads keep the object alive until they end, at most 2 s after `close` unless a delegate blocks them. The
// socket keeps its socket delegate until `close`, and its data delegate until it is replaced or the socket is
// destroyed.
//
// Threads. Any thread may call any operation, also from inside a delegate's call. `close` may be called twice
// and while the receive thread is blocked, and waits for no thread. The threads that the socket starts block
// all signals.
//
// A listening socket that is closed before it has accepted a connection leaves its path in place and its
// accept thread parked until the last handle is released; one that has accepted a connection removes the
// path, ends the thread and closes its children.
class KelvaneSocket : public std::enable_shared_from_this<KelvaneSocket> {
public:
    // `mainLoop` is needed only for `setCallDelegateOnMainThread(true)`.
    [[nodiscard]] static std::shared_ptr<KelvaneSocket> create(std::shared_ptr<MainLoop> mainLoop = nullptr);
    ~KelvaneSocket();
    KelvaneSocket(const KelvaneSocket&) = delete;
    KelvaneSocket& operator=(const KelvaneSocket&) = delete;

    // The path is truncated to 103 bytes. Never blocks. Returns false on failure, and logs why the system
    // refused the connection; the same object may try again. A peer that runs neither as root nor as the
    // current user is refused.
    [[nodiscard]] bool connectToPath(const std::string& path);
    // Replaces whatever is at the path. Everybody who can reach the path may connect (mode 0777), but only
    // root and the current user are accepted. Returns false with the reason in `errno`.
    [[nodiscard]] bool listenAtPath(const std::string& path);

    // The previous delegate gets `socketFailed`.
    void setSocketDelegate(std::shared_ptr<SocketDelegate> delegate);
    // Waits for a delivery in progress to end, unless called from inside that delivery. Frames that arrive
    // while there is no data delegate wait for the first one.
    void setDataDelegate(std::shared_ptr<DataDelegate> delegate);
    void setCallDelegateOnMainThread(bool onMainThread);
    // A write fails when the peer has not read a complete piece of it (15 KiB) for this long; none: no limit.
    void setSendTimeout(std::optional<std::chrono::milliseconds> timeout);

    // Returns false at once when not connected. A failed write notifies the socket delegate before it returns
    // false.
    [[nodiscard]] bool sendData(std::span<const std::uint8_t> bytes);
    [[nodiscard]] bool sendString(std::string_view text);
    [[nodiscard]] bool sendInt(std::int32_t number);

    void close();
    // Acts as if the peer had hung up: the receive thread notices and reports the failure.
    void hangUp();
    [[nodiscard]] bool isZombie() const { return zombie_; }
    // Whether the socket is connected or listening.
    [[nodiscard]] bool isOpen() const;

    // The number of running receive and accept threads in this program or plug-in.
    [[nodiscard]] static int liveThreads();
    // Call at the end of a program, so that none of these threads runs while static objects are destroyed.
    // Returns false when some still run after `limit`.
    static bool waitForThreads(std::chrono::milliseconds limit = std::chrono::seconds(2));

private:
    struct Connection;

    explicit KelvaneSocket(std::shared_ptr<MainLoop> mainLoop);

    [[nodiscard]] std::shared_ptr<Connection> open();
    [[nodiscard]] std::shared_ptr<Connection> setSocket(FileDescriptor descriptor);
    void drop(const std::shared_ptr<Connection>& connection);
    [[nodiscard]] bool start(const std::shared_ptr<Connection>& connection);
    void end();

    [[nodiscard]] bool sendBytes(const std::uint8_t* buffer, std::size_t length);
    void rcvThread(const std::shared_ptr<Connection>& connection);
    bool receiveFrame(Connection& connection, FrameReader& reader);
    void reportFailure(Connection& connection);
    void deliver(Connection& connection, const Data* payload, std::int32_t type);
    void notifyDelegate(const Connection& connection, void (SocketDelegate::*operation)(KelvaneSocket&));

    void acceptThread(std::shared_ptr<Connection> connection);
    void acceptOne(const Connection& connection, FileDescriptor descriptor);
    void removeChild(const std::shared_ptr<KelvaneSocket>& child);
    [[nodiscard]] std::shared_ptr<DataDelegate> dataDelegate() const;

    const std::shared_ptr<MainLoop> mainLoop_;

    std::mutex connectMutex_; // one attempt at a time

    // Guards the socket delegate, the calls to it and `close`. Recursive, because a delegate may close the
    // socket inside a call.
    std::recursive_mutex monitor_;
    std::shared_ptr<SocketDelegate> socketDelegate_;
    std::atomic<bool> callDelegateOnMainThread_{false};

    // 0: no data delegate yet; 1: there is one. Held while the delegate is called.
    ConditionLock dataDelegateLock_;
    std::atomic<std::thread::id> deliveringThread_;

    // Guards the members below; never held while calling out.
    mutable std::mutex stateMutex_;
    std::condition_variable acceptStopped_;
    std::shared_ptr<Connection> connection_;
    std::shared_ptr<DataDelegate> dataDelegate_;
    std::optional<std::chrono::milliseconds> sendTimeout_;
    std::string listenPath_;
    bool acceptThreadRun_ = false;
    bool handleGone_ = false;
    std::vector<std::shared_ptr<KelvaneSocket>> children_;

    std::atomic<bool> zombie_{false};
};

} // namespace kelvane
