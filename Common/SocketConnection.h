#pragma once

#include "Common/KelvSocket.h"

#include <functional>

namespace kelvane {

// A descriptor together with the state that its threads share: its number cannot be given to somebody else
// while one of them still reads, and `stop` wakes whoever is blocked in it.
struct KelvaneSocket::Connection : ByteSource, std::enable_shared_from_this<Connection> {
    explicit Connection(FileDescriptor owned) : descriptor(std::move(owned)) {}

    std::int32_t readBytes(std::int32_t count, std::uint8_t* buffer) override;
    // All of them, not mixed with those of another thread, or false.
    [[nodiscard]] bool writeBytes(const std::uint8_t* buffer, std::size_t count);
    // How long the peer may take nothing of a write; none: for ever.
    void setSendTimeout(std::optional<std::chrono::milliseconds> timeout) {
        sendTimeout_ = timeout ? static_cast<int>(timeout->count()) : forEver;
    }

    // For good: whoever wants to go on takes another connection.
    void stop();
    [[nodiscard]] bool isRunning() const { return running_; }
    // Ends at once when the connection is stopped.
    void pause(std::chrono::milliseconds duration);

    const FileDescriptor descriptor;
    unsigned interruptions = 0; // of the data delegate's lock, when the receive thread started
    bool isOpen = false;        // guarded by the socket's `stateMutex_`

private:
    static constexpr int forEver = -1; // as poll has it

    // Since when a write has found no room.
    struct Stall {
        std::optional<std::chrono::steady_clock::time_point> since;
    };
    [[nodiscard]] bool waitForRoom(Stall& stall) const;

    std::atomic<bool> running_{true};
    std::atomic<int> sendTimeout_{forEver};
    std::mutex sendMutex_;
    std::mutex mutex_;
    std::condition_variable stopped_;
};

// Runs `body` on a thread of its own that no signal reaches and that counts as alive until it ends; what it
// throws is logged. False when the system has no thread to give.
[[nodiscard]] bool startLinkThread(std::function<void()> body);

} // namespace kelvane
