#include "Common/SocketConnection.h"

#include "Support/Logging.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <exception>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <thread>

namespace kelvane {
namespace {

// The kernel frees a write's part of the buffer only when the peer has read all of it. With its overhead, a
// write of this size fills one kernel memory block.
constexpr std::size_t largestWrite = 15 * 1024;
constexpr int writablePollInterval = 20; // milliseconds

// Never destroyed: a thread may end after static objects are destroyed.
struct LiveThreads {
    std::mutex mutex;
    std::condition_variable changed;
    int count = 0;
};

LiveThreads& live() {
    static auto* const threads = new LiveThreads;
    return *threads;
}

// Counts the thread before it starts, so that one about to start is not missed.
class LiveThread {
public:
    LiveThread() { add(1); }
    ~LiveThread() { add(-1); }
    LiveThread(const LiveThread&) = delete;
    LiveThread& operator=(const LiveThread&) = delete;

private:
    static void add(int change) {
        const std::scoped_lock guard(live().mutex);
        live().count += change;
        live().changed.notify_all();
    }
};

void runGuarded(const std::function<void()>& body) {
    try {
        body();
    } catch (const std::exception& error) {
        KelvaneCLog("KelvaneSocket thread ended by an exception: %@", error.what());
    } catch (...) {
        KelvaneCLog("KelvaneSocket thread ended by an unknown exception");
    }
}

} // namespace

std::int32_t KelvaneSocket::Connection::readBytes(std::int32_t count, std::uint8_t* buffer) {
    if (count < 0)
        return -1;
    std::int32_t total = 0;
    while (total < count) {
        errno = 0;
        const ssize_t result =
            ::read(descriptor.get(), buffer + total, static_cast<std::size_t>(count - total));
        if (result <= 0)
            return errno == EAGAIN && result != 0 ? total : -1;
        total += static_cast<std::int32_t>(result);
    }
    return total;
}

bool KelvaneSocket::Connection::writeBytes(const std::uint8_t* buffer, std::size_t count) {
    const std::scoped_lock guard(sendMutex_);
    Stall stall;
    while (count > 0) {
        // MSG_NOSIGNAL: a peer that has disconnected must not end the process.
        const ssize_t result =
            ::send(descriptor.get(), buffer, std::min(count, largestWrite), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (result < 0 && errno == EAGAIN && waitUntilWritable(stall))
            continue;
        if (result <= 0)
            return false;
        stall = {};
        buffer += result;
        count -= static_cast<std::size_t>(result);
    }
    return true;
}

// Waits for room in the buffer, but only for a short time: the system signals room when three quarters of the
// buffer are free, while a write succeeds as soon as the peer has read anything. Returns false when the peer
// has read nothing for the send timeout.
bool KelvaneSocket::Connection::waitUntilWritable(Stall& stall) const {
    const int limit = sendTimeout_;
    const auto now = std::chrono::steady_clock::now();
    if (!stall.since)
        stall.since = now;
    else if (limit != forEver && now - *stall.since >= std::chrono::milliseconds(limit))
        return false;
    pollfd writable{descriptor.get(), POLLOUT, 0};
    return ::poll(&writable, 1, writablePollInterval) >= 0 || errno == EINTR;
}

void KelvaneSocket::Connection::stop() {
    const std::scoped_lock guard(mutex_);
    running_ = false;
    // Closing the descriptor alone would leave a reader blocked.
    ::shutdown(descriptor.get(), SHUT_RDWR);
    stopped_.notify_all();
}

void KelvaneSocket::Connection::pause(std::chrono::milliseconds duration) {
    std::unique_lock guard(mutex_);
    stopped_.wait_for(guard, duration, [this] { return !running_; });
}

bool startLinkThread(std::function<void()> body) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before); // inherited by the new thread
    bool started = true;
    try {
        auto alive = std::make_shared<LiveThread>();
        std::thread([body = std::move(body), alive]() mutable {
            runGuarded(body);
            body = nullptr; // destroys what the body holds before the thread counts as ended
            alive.reset();
        }).detach();
    } catch (const std::exception& error) {
        KelvaneCLog("KelvaneSocket could not start a thread: %@", error.what());
        started = false;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return started;
}

int KelvaneSocket::liveThreads() {
    const std::scoped_lock guard(live().mutex);
    return live().count;
}

bool KelvaneSocket::waitForThreads(std::chrono::milliseconds limit) {
    std::unique_lock guard(live().mutex);
    return live().changed.wait_for(guard, limit, [] { return live().count == 0; });
}

} // namespace kelvane
