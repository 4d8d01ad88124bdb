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

// Whether the process at the other end of a connected descriptor runs as root or as this user.
[[nodiscard]] bool isTrustedPeer(int descriptor);

// Hears of a socket's fate. Called with the socket's monitor held, on the receive thread, on the accept
// thread or on the thread whose write failed; when the socket was told so, on the main thread, without the
// monitor. So what the delegate waits for must not need the monitor on another thread: a call over the same
// link may.
class SocketDelegate {
public:
    virtual ~SocketDelegate() = default;
    virtual void socketConnected(KelvaneSocket& /*socket*/) {}
    virtual void socketFailed(KelvaneSocket& /*socket*/) {}
    // A listening socket accepted `child`, whose receive thread runs already. The listener keeps it until one
    // of them is closed.
    virtual void socketCreated(const std::shared_ptr<KelvaneSocket>& /*child*/) {}
};

// Takes what a socket receives, on its receive thread.
class DataDelegate {
public:
    virtual ~DataDelegate() = default;
    // `payload` is null for a frame without one; type 0 without a payload says that the connection failed.
    virtual bool processData(const Data* payload, std::int32_t type) = 0;
    // The socket has closed, and whatever waits on its behalf must end; or it is connected again. `isOpen`
    // says which. From any thread.
    virtual void transportChanged(const KelvaneSocket& /*socket*/) {}
};

// The byte transport between pane and daemon: a stream socket in the Unix domain that frames every message.
//
// Ownership. `create` returns a handle; the last handle that goes away closes the socket. The receive and the
// accept thread keep the object itself alive until they have ended, which is at most 2 s after `close` unless
// a delegate holds them up. The socket keeps its socket delegate until `close`, and its data delegate until
// it is replaced or the socket is gone.
//
// Threads. Any thread may call any operation, also from inside a delegate's call; `close` twice or while the
// receive thread is blocked anywhere is fine, and waits for none of the threads. The threads that it starts
// block all signals.
//
// A listening socket that is closed before it has accepted anyone leaves its path where it is and its accept
// thread parked until the last handle goes; one that has accepted somebody takes path, thread and children
// with it.
class KelvaneSocket : public std::enable_shared_from_this<KelvaneSocket> {
public:
    // `mainLoop` is needed only for `setCallDelegateOnMainThread(true)`.
    [[nodiscard]] static std::shared_ptr<KelvaneSocket> create(std::shared_ptr<MainLoop> mainLoop = nullptr);
    ~KelvaneSocket();
    KelvaneSocket(const KelvaneSocket&) = delete;
    KelvaneSocket& operator=(const KelvaneSocket&) = delete;

    // At most 103 bytes of the path count. Never blocks; false is logged, and the same object may try again.
    // A peer that runs neither as root nor as this user is refused.
    [[nodiscard]] bool connectToPath(const std::string& path);
    // Replaces whatever stands at the path; whoever may reach it may connect (mode 0777), but only root and
    // this user are accepted. False with the reason in `errno`.
    [[nodiscard]] bool listenAtPath(const std::string& path);

    // The one before is told `socketFailed`.
    void setSocketDelegate(std::shared_ptr<SocketDelegate> delegate);
    // Waits for the end of a delivery that is under way, unless it is called from inside that one. What
    // arrives while there is no data delegate waits for the first.
    void setDataDelegate(std::shared_ptr<DataDelegate> delegate);
    void setCallDelegateOnMainThread(bool onMainThread);
    // How long the peer may take less than a piece of a write (15 KiB) before it counts as failed; none: for
    // ever.
    void setSendTimeout(std::optional<std::chrono::milliseconds> timeout);

    // False at once without a connection. A write that fails tells the socket delegate before it returns
    // false.
    [[nodiscard]] bool sendData(std::span<const std::uint8_t> bytes);
    [[nodiscard]] bool sendString(std::string_view text);
    [[nodiscard]] bool sendInt(std::int32_t number);

    void close();
    // As if the peer had: the receive thread finds it and reports the failure.
    void hangUp();
    [[nodiscard]] bool isZombie() const { return zombie_; }
    // Connected or listening, and not closed since.
    [[nodiscard]] bool isOpen() const;

    // Receive and accept threads that are alive in this program or plug-in.
    [[nodiscard]] static int liveThreads();
    // What a program does at its end, so that none of them runs on while it is taken down. False when some
    // are still alive after `limit`.
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
    void tellDelegate(const Connection& connection, void (SocketDelegate::*operation)(KelvaneSocket&));

    void acceptThread(std::shared_ptr<Connection> connection);
    void acceptOne(const Connection& connection, FileDescriptor descriptor);
    void removeChild(const std::shared_ptr<KelvaneSocket>& child);
    [[nodiscard]] std::shared_ptr<DataDelegate> dataDelegate() const;

    const std::shared_ptr<MainLoop> mainLoop_;

    std::mutex connectMutex_; // one attempt at a time

    // Guards the socket delegate, its calls and `close`; recursive, because a delegate may close from inside
    // a call.
    std::recursive_mutex monitor_;
    std::shared_ptr<SocketDelegate> socketDelegate_;
    std::atomic<bool> callDelegateOnMainThread_{false};

    // 0 no data delegate yet, 1 there is one. Held while the delegate is called.
    ConditionLock dataDelegateLock_;
    std::atomic<std::thread::id> deliveringThread_;

    // Guards what follows; never held while calling out.
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
