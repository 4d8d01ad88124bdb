#include "Common/Protocols.h"
#include "Tests/Harness/LinkPair.h"

#include <future>

namespace kelvane::tests {
namespace {

class KelvProxy : public LinkTest {
protected:
    KelvProxy() {
        proxy->setProtocol(KelvaneDaemonProtocol);
        proxy->setSocket(socket);
    }
    void TearDown() override {
        proxy.reset();
        LinkTest::TearDown();
    }
    [[nodiscard]] std::future<std::uint32_t> callElsewhere() {
        return std::async(std::launch::async, [this] { return proxy->call<"serviceState">(); });
    }

    std::shared_ptr<KelvaneProxy> proxy = KelvaneProxy::create();
    RawPeer peer = peerOf(socket);
};

TEST_F(KelvProxy, WritesACallAsOneFrame) {
    proxy->call<"setFileTypeToggle:toggle:">("movies", 7U); // void: needs no answer
    std::string header(44, ' ');
    ASSERT_EQ(peer.readBytes(44, reinterpret_cast<std::uint8_t*>(header.data())), 44);
    const std::string numbers{1, 0, 0, 0, header[40], 0, 0, 0};
    EXPECT_EQ(header, "DC41B5B5-D458-4454-9BFC-D4C4203F035C" + numbers);
    Data payload(static_cast<unsigned char>(header[40]));
    ASSERT_EQ(peer.readBytes(header[40], payload.data()), header[40]);
    EXPECT_EQ(readBinaryPropertyList(payload).value,
              Value(Array{0, "v", "setFileTypeToggle:toggle:", 2, "@", "movies", "I", 7}));

    // Calls a selector that is known only at run time.
    EXPECT_TRUE(proxy->invoke("terminate").isAbsent());
    EXPECT_EQ(peer.receive()->second, Value(Array{0, "v", "terminate", 0}));
    peer.send(message(responseFrame, 3));
    EXPECT_EQ(proxy->invoke("restoreFile:toPath:version:priority:", {"/a", "/b", 1, 2}), Value(3));
    EXPECT_EQ(peer.receive()->second, Value(Array{4, "I", "restoreFile:toPath:version:priority:", 4, "@",
                                                  "/a", "@", "/b", "I", 1, "I", 2}));

    proxy->call<"setEnabled:">(true);
    EXPECT_EQ(peer.receive()->second.at(5).kind(), Value::Kind::Integer) << "a c is a number on the wire";
}

// A response that arrives before its call is kept for the next call that waits, and so is the one after it.
TEST_F(KelvProxy, TakesTheAnswerThatStandsThere) {
    const Value state = Dictionary{{"serviceState", 8}, {"paused", true}};
    for (const Value& answer : {Value(25U), Value(-5), Value(UINT64_MAX), state, Value(4294967297)})
        peer.send(message(responseFrame, answer));
    EXPECT_EQ(proxy->call<"serviceState">(), 25U);
    EXPECT_EQ(proxy->call<"longForState:">(1U), -5);
    EXPECT_EQ(proxy->call<"longlongForState:">(1U), UINT64_MAX);
    EXPECT_EQ(proxy->call<"daemonState">(), state);
    EXPECT_EQ(proxy->call<"serviceState">(), 1U) << "cut to its width";

    // A missing result, or one of another type, reads as 0 or nothing.
    peer.send(frame(responseFrame, "") + frame(responseFrame, "garbage") + message(responseFrame, "six"));
    for (int time = 0; time < 3; ++time)
        EXPECT_EQ(proxy->call<"serviceState">(), 0U);
    peer.send(frame(responseFrame, ""));
    EXPECT_TRUE(proxy->call<"daemonState">().isAbsent());

    // Two responses block the receive thread until the first is taken, but do not keep it from ending.
    peer.send(message(responseFrame, 1) + message(responseFrame, 2));
    EXPECT_TRUE(eventually([&] { return peer.unread() == 0; }));
    socket->close();
    EXPECT_TRUE(threadsEnd());
}

// An incomplete frame or a lock that is still held would show in the following call.
TEST_F(KelvProxy, TellsItsCallerOfWhatItCannotSend) {
    const Value broken("\xFF");
    const Value large = Data(largestPayload);
    for (int time = 0; time < 2; ++time) {
        EXPECT_THROW(proxy->invoke("dismissAlert:", {"x"}), UnknownSelector);
        EXPECT_THROW(proxy->invoke("terminate", {1}), std::invalid_argument);
        EXPECT_THROW(proxy->invoke("addFileToBackup:", {Value()}), std::invalid_argument);
        bool isAnswered = true;
        EXPECT_TRUE(
            proxy->invoke("dictionaryForPath:", {time == 0 ? broken : large}, &isAnswered).isAbsent());
        EXPECT_FALSE(isAnswered);
        peer.send(message(responseFrame, 8));
        EXPECT_EQ(callElsewhere().get(), 8U);
        EXPECT_EQ(peer.receive()->second.at(2), Value("serviceState"));
    }
}

TEST_F(KelvProxy, GivesEachThreadItsOwnAnswer) {
    const auto daemon = std::async(std::launch::async, [&] {
        while (const auto request = peer.receive())
            peer.send(message(responseFrame, request->second.at(5)));
    });
    const auto calls = [&](unsigned first) {
        for (unsigned number = first; number < first + 300; ++number)
            ASSERT_EQ(proxy->call<"longForState:">(number), number);
    };
    const auto other = std::async(std::launch::async, calls, 1000000U);
    calls(1);
    other.wait();
    socket->close();
}

TEST_F(KelvProxy, EndsEveryWaitWhenItsLinkClosesOrIsLost) {
    const auto other = KelvaneSocket::create();
    RawPeer otherPeer = peerOf(other);
    const std::function<void()> ways[] = {[&] { peer.hangUp(); }, [&] { proxy->close(); },
                                          [&] { socket->close(); }, [&] { proxy->setSocket(other); }};
    for (const auto& close : ways) {
        socket = KelvaneSocket::create();
        peer = peerOf(socket);
        proxy->setSocket(socket);
        auto waiting = callElsewhere();
        EXPECT_TRUE(peer.receive());
        auto inLine = callElsewhere();
        close();
        EXPECT_EQ(waiting.get(), 0U);
        const bool isReplaced = &close == &ways[3];
        if (isReplaced) { // the queued call uses the new socket
            EXPECT_FALSE(socket->isOpen());
            EXPECT_TRUE(otherPeer.receive());
            otherPeer.send(message(responseFrame, 8));
        }
        EXPECT_EQ(inLine.get(), isReplaced ? 8U : 0U);
    }
    other->close();
    proxy->setSocket(other); // closed before it was set
    EXPECT_EQ(proxy->call<"serviceState">(), 0U);
}

// A failure affects only a call that has waited on the current link.
TEST_F(KelvProxy, ForgetsWhenItClosesThatACallHasWaited) {
    peer.send(message(responseFrame, 1));
    EXPECT_EQ(proxy->call<"serviceState">(), 1U);
    proxy->close();
    const auto next = KelvaneSocket::create();
    RawPeer nextPeer = peerOf(next);
    proxy->setSocket(next);
    proxy->processData(nullptr, failureNotice);
    nextPeer.send(message(responseFrame, 8));
    EXPECT_EQ(proxy->call<"serviceState">(), 8U);
    next->close();
}

TEST_F(KelvProxy, SurvivesADelegateThatClosesEverythingInTheMiddleOfAWrite) {
    int depth = 0;
    fate->onEvent = [&](const std::string& event, KelvaneSocket&) {
        if (event != "failed")
            return;
        if (++depth == 1) { // a nested call is allowed
            EXPECT_EQ(proxy->call<"serviceState">(), 0U);
            return;
        }
        proxy->close();
        proxy.reset();
        socket->close();
        socket.reset();
    };
    socket->setSocketDelegate(fate);
    peer.hangUp();
    const std::weak_ptr<KelvaneProxy> object = proxy->weak_from_this();
    EXPECT_EQ(proxy->call<"serviceState">(), 0U);
    EXPECT_EQ(depth, 2) << "what follows a closed write is not tried";
    EXPECT_TRUE(eventually([&] { return object.expired(); }));
}

} // namespace
} // namespace kelvane::tests
