#include "Common/SocketConnection.h"

#include "Support/Logging.h"

#include <cerrno>
#include <csignal>
#include <exception>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <thread>

namespace kelvane {
namespace {

// Never destroyed: a thread may end after the statics have gone.
struct LiveThreads {
    std::mutex mutex;
    std::condition_variable changed;
    int count = 0;
};

LiveThreads& live() {
    static auto* const threads = new LiveThreads;
    return *threads;
}

// Counts from before the thread starts, so that nobody can miss one that is about to.
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
    while (count > 0) {
        // MSG_NOSIGNAL: a peer that went away must not end the process.
        const ssize_t result = ::send(descriptor.get(), buffer, count, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (result < 0 && errno == EAGAIN && hasRoom())
            continue;
        if (result <= 0)
            return false;
        buffer += result;
        count -= static_cast<std::size_t>(result);
    }
    return true;
}

// Waits for it; also true when the connection has ended, which the next write then finds.
bool KelvaneSocket::Connection::hasRoom() const {
    pollfd writable{descriptor.get(), POLLOUT, 0};
    return ::poll(&writable, 1, sendTimeout_) > 0;
}

void KelvaneSocket::Connection::stop() {
    const std::scoped_lock guard(mutex_);
    running_ = false;
    // Closing alone would leave a reader blocked.
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
    pthread_sigmask(SIG_SETMASK, &all, &before); // the new thread inherits it
    bool started = true;
    try {
        auto alive = std::make_shared<LiveThread>();
        std::thread([body = std::move(body), alive]() mutable {
            runGuarded(body);
            body = nullptr; // what it holds goes before the thread counts as ended
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
