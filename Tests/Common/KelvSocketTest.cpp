#include "Common/ValueBuffer.h"
#include "Foundation/Assertion.h"
#include "Tests/Harness/LinkPair.h"
#include "Tests/Harness/ManualLoop.h"

#include <future>
#include <sys/resource.h>

namespace kelvane::tests {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Delivery = RecordingDataDelegate::Delivery;
using KelvSocket = LinkTest;

TEST_F(KelvSocket, KeepsWhatArrivesUntilThereIsADataDelegate) {
    const RawPeer peer = peerOf(socket);
    peer.send(frame(1, "first"));
    EXPECT_TRUE(eventually([&] { return peer.unread() == 0; }));
    peer.send(frame(2, "") + frame(-3, "third"));
    socket->setDataDelegate(data);
    EXPECT_EQ(data->deliveries.next(), Delivery(1, "first"));
    EXPECT_EQ(data->deliveries.next(), Delivery(2, std::nullopt));
    EXPECT_EQ(data->deliveries.next(), Delivery(-3, "third"));
}

TEST_F(KelvSocket, PausesAfterGarbageAndNotAfterGoodFrames) {
    socket->setSocketDelegate(fate);
    socket->setDataDelegate(data);
    const RawPeer peer = peerOf(socket);
    EXPECT_EQ(fate->events.next(), "connected");
    const auto start = Clock::now();
    for (int number = 0; number < 100; ++number)
        peer.send(frame(number, ""));
    for (int number = 0; number < 100; ++number)
        ASSERT_EQ(data->deliveries.next(), Delivery(number, std::nullopt));
    EXPECT_LT(Clock::now() - start, 5s); // instead of 100 times 0.1 s

    const auto garbage = Clock::now();
    peer.send(std::string(72, '#') + frame(1, "found again"));
    EXPECT_EQ(data->deliveries.next(), Delivery(1, "found again"));
    EXPECT_GE(Clock::now() - garbage, 200ms);
    EXPECT_EQ(fate->events.count(), 0U) << "garbage is not a failure";
}

TEST_F(KelvSocket, ReportsAFailedReadUntilItIsClosed) {
    Recorded<std::string> order;
    data->onData = [&] { order.add("data"); };
    fate->onEvent = [&](const std::string& event, KelvaneSocket&) { order.add(event); };
    socket->setDataDelegate(data);
    socket->setSocketDelegate(fate);
    RawPeer peer = peerOf(socket);
    EXPECT_EQ(order.next(), "connected");
    const auto lost = Clock::now();
    peer.send(frame(1, "", -1) + frame(1, "", largestPayload + 1) + frame(1, "still there"));
    EXPECT_EQ(data->deliveries.next(), Delivery(0, std::nullopt));
    EXPECT_GE(Clock::now() - lost, 1s);
    EXPECT_EQ(data->deliveries.next(), Delivery(0, std::nullopt));
    EXPECT_EQ(data->deliveries.next(), Delivery(1, "still there"));
    peer.hangUp();
    for (const char* told : {"data", "failed", "data", "failed", "data", "data", "failed", "data", "failed"})
        EXPECT_EQ(order.next(), told);
    EXPECT_GE(Clock::now() - lost, 4300ms);
    EXPECT_EQ(data->deliveries.next(), Delivery(0, std::nullopt));
    socket->close();
}

TEST_F(KelvSocket, TriesAgainWithTheSameObjectAndNeverBlocks) {
    const std::string path = folder / "socket";
    EXPECT_FALSE(socket->sendInt(1)) << "without a descriptor";
    EXPECT_FALSE(socket->connectToPath(path));
    const RawPeer listener;
    ASSERT_TRUE(listener.listen(path, 0));
    std::vector<std::shared_ptr<KelvaneSocket>> others;
    do // until the backlog is full
        others.push_back(KelvaneSocket::create());
    while (others.back()->connectToPath(path) && others.size() < 100);
    EXPECT_LT(others.size(), 100U);
    EXPECT_FALSE(socket->connectToPath(path));
    const RawPeer first = listener.accept();
    EXPECT_TRUE(socket->connectToPath(path));
    EXPECT_FALSE(socket->connectToPath(path)) << "connected already";
    EXPECT_TRUE(socket->sendString("x"));
}

TEST_F(KelvSocket, SpeaksToItsDelegateOnTheMainThreadExceptAboutWrites) {
    EXPECT_THROW(socket->setCallDelegateOnMainThread(true), AssertionFailure) << "has no loop";
    const auto loop = std::make_shared<ManualLoop>();
    socket = KelvaneSocket::create(loop);
    socket->setCallDelegateOnMainThread(true);
    socket->setSocketDelegate(fate);
    socket->setDataDelegate(data);
    RawPeer peer = peerOf(socket);
    peer.send(frame(1, ""));
    EXPECT_TRUE(data->deliveries.next());
    EXPECT_EQ(fate->events.count(), 0U);
    EXPECT_EQ(loop->runPosted(), 1);
    EXPECT_EQ(fate->events.next(), "connected");

    peer.hangUp();
    EXPECT_FALSE(socket->sendInt(1));
    EXPECT_EQ(fate->events.next(), "failed") << "at once, on the thread that wrote";
    EXPECT_TRUE(eventually([&] { return loop->posted() > 0; }));
    socket->close();
    EXPECT_TRUE(threadsEnd());
    loop->runPosted();
    EXPECT_EQ(fate->events.count(), 0U) << "what was to be told before it was closed";
}

TEST_F(KelvSocket, NeedsDelegatesAndTellsTheOneThatIsReplaced) {
    const auto textOf = [](const auto& fails) {
        try {
            fails();
        } catch (const AssertionFailure& failure) {
            return std::string(failure.what()) + ' ' + std::to_string(failure.line());
        }
        return std::string();
    };
    EXPECT_EQ(textOf([&] { socket->setSocketDelegate(nullptr); }), "Setting delegate to NULL 559");
    EXPECT_EQ(textOf([&] { socket->setDataDelegate(nullptr); }), "Setting result delegate to NULL 575");
    ValueBuffer buffer;
    EXPECT_EQ(textOf([&] { static_cast<void>(encodeValue("r", buffer)); }),
              "Unknown argument type specifier: r 489");
    EXPECT_EQ(textOf([&] { decodeValue(1, "r", buffer); }), "Unknown argument type specifier: r 563");

    socket->setSocketDelegate(fate);
    socket->setSocketDelegate(fate);
    EXPECT_EQ(fate->events.count(), 0U);
    socket->setSocketDelegate(std::make_shared<RecordingSocketDelegate>());
    EXPECT_EQ(fate->events.next(), "failed");
}

TEST_F(KelvSocket, CutsAPathToWhatAnAddressHolds) {
    const std::string path = folder / std::string(200, 'x');
    ASSERT_TRUE(socket->listenAtPath(path));
    EXPECT_EQ(std::filesystem::path(path.substr(0, 103)).filename(), *folder.names().begin());
    EXPECT_TRUE(KelvaneSocket::create()->connectToPath(path));
}

TEST_F(KelvSocket, PausesWhenItCannotAccept) {
#if defined(__clang__)
#if __has_feature(undefined_behavior_sanitizer)
    GTEST_SKIP() << "the sanitizer looks at memory through pipes, for which there are no descriptors";
#endif
#endif
    const std::string path = folder / "socket";
    ASSERT_TRUE(socket->listenAtPath(path));
    const auto processorTime = [] {
        timespec time{};
        EXPECT_EQ(::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time), 0);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    };
    const RawPeer peers[2]; // the thread may already have a descriptor for one
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{3, limit.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_TRUE(peers[0].connect(path) && peers[1].connect(path));
    const auto before = processorTime();
    EXPECT_FALSE(eventually([&] { return processorTime() > before + 100ms; }, 1s)) << "tries without a pause";
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
}

TEST_F(KelvSocket, KeepsTheBytesOfOneWriteTogether) {
    socket->setSendTimeout(60s);
    RawPeer peer = peerOf(socket);
    const auto send = [&](std::uint8_t letter) { EXPECT_TRUE(socket->sendData(Data(1U << 20U, letter))); };
    const auto first = std::async(std::launch::async, send, 1);
    const auto second = std::async(std::launch::async, send, 2);
    Data received(2U << 20U);
    ASSERT_GT(peer.readBytes(2 << 20, received.data()), 0);
    const auto middle = received.begin() + (1 << 20);
    EXPECT_EQ(std::count(received.begin(), middle, received.front()), 1 << 20);
    EXPECT_EQ(std::count(middle, received.end(), received.front()), 0);
}

TEST_F(KelvSocket, HangsUpOnAPeerThatItsDelegateDoesNotTake) {
    fate->onEvent = [](const std::string&, KelvaneSocket&) { throw std::runtime_error("on purpose"); };
    socket->setSocketDelegate(fate);
    ASSERT_TRUE(socket->listenAtPath(folder / "socket"));
    for (int time = 0; time < 2; ++time) {
        RawPeer peer;
        ASSERT_TRUE(peer.connect(folder / "socket"));
        EXPECT_FALSE(peer.receive());
    }
}

TEST_F(KelvSocket, ReportsADelegateThatThrowsAndGoesOnWithAnother) {
    const auto other = std::make_shared<RecordingDataDelegate>();
    data->onData = [&] {
        if (data->deliveries.next()->first != 1)
            return;
        socket->setDataDelegate(other); // the lock is not held
        throw 1;                        // NOLINT: of no known type
    };
    fate->onEvent = [](const std::string& event, KelvaneSocket&) {
        if (event == "connected")
            throw std::runtime_error("on purpose");
    };
    socket->setSocketDelegate(fate);
    socket->setDataDelegate(data);
    const RawPeer peer = peerOf(socket);
    for (const char* event : {"connected", "failed"})
        EXPECT_EQ(fate->events.next(), event);
    peer.send(frame(1, "") + frame(2, ""));
    EXPECT_EQ(fate->events.next(), "failed");
    for (const std::int32_t type : {0, 2}) // the failure, and the next frame
        EXPECT_EQ(other->deliveries.next(), Delivery(type, std::nullopt));
}

// The kernel reports the socket as writable only when three quarters of the buffer are free, which takes this
// peer longer than the timeout: it reads on as soon as more has arrived, or after 1.5 s.
TEST_F(KelvSocket, WritesToAPeerThatTakesLittleAtATime) {
    constexpr int all = 1 << 19;
    constexpr int bite = 1 << 14;
    socket->setSendTimeout(1s);
    RawPeer peer = peerOf(socket);
    auto sent = std::async(std::launch::async, [&] {
        const bool isSent = socket->sendData(Data(all));
        socket->hangUp();
        return isSent;
    });
    Data taken(bite);
    for (int count = 0; count < all; count += bite) {
        const int before = count + peer.waiting();
        ASSERT_GT(peer.readBytes(bite, taken.data()), 0);
        const auto isMore = [&] { return count + bite + peer.waiting() > before || before == all; };
        static_cast<void>(eventually(isMore, 1500ms));
    }
    EXPECT_TRUE(sent.get());
}

TEST_F(KelvSocket, GivesUpAWriteThatFindsNoRoomInTime) {
    socket->setSendTimeout(1s);
    socket->setSocketDelegate(fate);
    const RawPeer peer = peerOf(socket);
    EXPECT_EQ(fate->events.next(), "connected");
    const auto start = Clock::now();
    EXPECT_FALSE(socket->sendData(Data(8U << 20U))) << "although there was room for some of it";
    EXPECT_EQ(fate->events.next(), "failed");
    EXPECT_GE(Clock::now() - start, 1s);
    EXPECT_LT(Clock::now() - start, 1900ms);
}

} // namespace
} // namespace kelvane::tests
