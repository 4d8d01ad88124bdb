#pragma once

#include "Common/KelvProxy.h"
#include "Common/KelvSocket.h"
#include "Foundation/PropertyList/BinaryPropertyList.h"
#include "Tests/Harness/Recorded.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <functional>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>

// A link whose other end is a bare descriptor of the test, and delegates that record what they receive.
namespace kelvane::tests {

inline std::string frame(std::int32_t type, std::string_view payload,
                         std::optional<std::int32_t> length = {}) {
    const std::int32_t numbers[] = {type, length.value_or(static_cast<std::int32_t>(payload.size()))};
    return std::string(frameMarker)
        .append(reinterpret_cast<const char*>(numbers), sizeof numbers)
        .append(payload);
}

// The same with a value as its payload.
inline std::string message(std::int32_t type, const Value& value) {
    const Data payload = writeBinaryPropertyList(value).bytes;
    return frame(type, std::string(payload.begin(), payload.end()));
}

// The bare end of a link.
class RawPeer : public ByteSource {
public:
    explicit RawPeer(int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
        : descriptor_(descriptor) {}

    [[nodiscard]] bool connect(const std::string& path) const { return at(path, ::connect); }
    [[nodiscard]] bool listen(const std::string& path, int backlog = 10) const {
        return at(path, ::bind) && ::listen(descriptor_.get(), backlog) == 0;
    }
    RawPeer accept() const { return RawPeer(::accept4(descriptor_.get(), nullptr, nullptr, SOCK_CLOEXEC)); }
    void hangUp() { descriptor_.reset(); }

    void send(std::string_view bytes) const {
        ASSERT_EQ(::send(descriptor_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), std::ssize(bytes));
    }
    std::int32_t readBytes(std::int32_t count, std::uint8_t* buffer) override {
        return ::recv(descriptor_.get(), buffer, static_cast<std::size_t>(count), MSG_WAITALL) == count
                   ? count
                   : -1;
    }
    // The next frame's type and the value in its payload, absent when that is empty; none at the end of the
    // stream.
    [[nodiscard]] std::optional<std::pair<std::int32_t, Value>> receive() {
        FrameReader reader(*this);
        const bool isFound = reader.readMarker() == FrameReader::Marker::Found;
        const std::optional<Frame> received = isFound ? reader.readFrame() : std::nullopt;
        if (!received)
            return std::nullopt;
        return std::pair(received->type,
                         received->payload ? readBinaryPropertyList(*received->payload).value : Value());
    }
    // The number of bytes that this side has not read yet, and the number that the other side has not read
    // yet; 0 when there is no other side.
    [[nodiscard]] int waiting() const { return queued(SIOCINQ); }
    [[nodiscard]] int unread() const { return queued(SIOCOUTQ); }

private:
    [[nodiscard]] int queued(unsigned long direction) const {
        int count = 0;
        return ::ioctl(descriptor_.get(), direction, &count) == 0 ? count : 0;
    }
    template <class Operation>
    [[nodiscard]] bool at(const std::string& path, Operation operation) const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
        return operation(descriptor_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }

    FileDescriptor descriptor_;
};

class RecordingDataDelegate : public DataDelegate {
public:
    using Delivery = std::pair<std::int32_t, std::optional<std::string>>;

    bool processData(const Data* payload, std::int32_t type) override {
        deliveries.add(
            {type, payload ? std::optional(std::string(payload->begin(), payload->end())) : std::nullopt});
        if (onData)
            onData();
        return false;
    }

    Recorded<Delivery> deliveries;
    std::function<void()> onData;
};

class RecordingSocketDelegate : public SocketDelegate {
public:
    void socketConnected(KelvaneSocket& socket) override { hear("connected", socket); }
    void socketFailed(KelvaneSocket& socket) override { hear("failed", socket); }
    void socketCreated(const std::shared_ptr<KelvaneSocket>& child) override {
        children.add(child);
        hear("created", *child);
    }

    Recorded<std::string> events;
    Recorded<std::shared_ptr<KelvaneSocket>> children;
    std::function<void(const std::string& event, KelvaneSocket& socket)> onEvent;

private:
    void hear(const std::string& event, KelvaneSocket& socket) {
        events.add(event);
        if (onEvent)
            onEvent(event, socket);
    }
};

// No test may leave a thread of a link behind: each must end within two seconds of its socket's close.
class LinkTest : public ::testing::Test {
protected:
    void TearDown() override {
        socket.reset();
        EXPECT_TRUE(threadsEnd());
    }
    [[nodiscard]] static bool threadsEnd() {
        return eventually([] { return KelvaneSocket::liveThreads() == 0; }, std::chrono::seconds(2));
    }
    // Connects to a bare peer.
    [[nodiscard]] RawPeer peerOf(const std::shared_ptr<KelvaneSocket>& connecting) const {
        static int number = 0;
        const std::string path = folder / std::to_string(++number);
        const RawPeer listener;
        EXPECT_TRUE(listener.listen(path));
        EXPECT_TRUE(connecting->connectToPath(path));
        return listener.accept();
    }

    const TemporaryFolder folder;
    std::shared_ptr<KelvaneSocket> socket = KelvaneSocket::create();
    const std::shared_ptr<RecordingDataDelegate> data = std::make_shared<RecordingDataDelegate>();
    const std::shared_ptr<RecordingSocketDelegate> fate = std::make_shared<RecordingSocketDelegate>();
};

} // namespace kelvane::tests
