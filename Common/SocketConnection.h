#pragma once

#include "Common/KelvSocket.h"

#include <functional>

namespace kelvane {

// A descriptor with the state that its threads share. Its number cannot be reused while one of them still
// reads, and `stop` wakes every thread that is blocked in it.
struct KelvaneSocket::Connection : ByteSource, std::enable_shared_from_this<Connection> {
    explicit Connection(FileDescriptor owned) : descriptor(std::move(owned)) {}

    std::int32_t readBytes(std::int32_t count, std::uint8_t* buffer) override;
    // Writes all bytes, not interleaved with another thread's, or returns false.
    [[nodiscard]] bool writeBytes(const std::uint8_t* buffer, std::size_t count);
    // A write fails when it has made no progress for this long; none: no limit.
    void setSendTimeout(std::optional<std::chrono::milliseconds> timeout) {
        sendTimeout_ = timeout ? static_cast<int>(timeout->count()) : forEver;
    }

    // Permanent: a new attempt needs a new connection.
    void stop();
    [[nodiscard]] bool isRunning() const { return running_; }
    // Ends at once when the connection is stopped.
    void pause(std::chrono::milliseconds duration);

    const FileDescriptor descriptor;
    // The interruption count of the data delegate's lock when the receive thread started.
    unsigned interruptions = 0;
    bool isOpen = false; // guarded by the socket's `stateMutex_`

private:
    static constexpr int forEver = -1; // the value that poll uses

    // Since when a write has made no progress.
    struct Stall {
        std::optional<std::chrono::steady_clock::time_point> since;
    };
    [[nodiscard]] bool waitUntilWritable(Stall& stall) const;

    std::atomic<bool> running_{true};
    std::atomic<int> sendTimeout_{forEver};
    std::mutex sendMutex_;
    std::mutex mutex_;
    std::condition_variable stopped_;
};

// Runs `body` on a new thread that blocks all signals and counts as alive until it ends; an exception is
// logged. Returns false when the system cannot start a thread.
[[nodiscard]] bool startLinkThread(std::function<void()> body);

} // namespace kelvane
