#include "Support/Logging.h"
#include "Tests/Harness/LinkPair.h"

#include <future>
#include <sys/wait.h>

namespace kelvane::tests {
namespace {

using KelvSocketClose = LinkTest;

// Each case blocks the receive thread at a different point when the socket closes.
TEST_F(KelvSocketClose, EndsTheReceiveThreadWhereverItIs) {
    const std::pair<const char*, std::function<void(RawPeer&)>> places[] = {
        {"in read", [](RawPeer&) {}},
        {"in the middle of a frame", [](RawPeer& peer) { peer.send(frame(1, "half", 8)); }},
        {"in the wait for a data delegate", [](RawPeer& peer) { peer.send(frame(1, "")); }},
        {"in the pause after garbage", [](RawPeer& peer) { peer.send(std::string(36, '#')); }},
        {"in the pause after a failure", [](RawPeer& peer) { peer.send(frame(1, "", -1)); }},
        {"after the end", [](RawPeer& peer) { peer.hangUp(); }},
    };
    for (const auto& [place, reach] : places) {
        for (const bool byDroppingIt : {false, true}) {
            SCOPED_TRACE(place);
            socket = KelvaneSocket::create();
            socket->setSocketDelegate(fate);
            RawPeer peer = peerOf(socket);
            EXPECT_EQ(fate->events.next(), "connected");
            reach(peer);
            EXPECT_TRUE(eventually([&] { return peer.unread() == 0; }));
            if (byDroppingIt)
                socket.reset();
            else
                std::thread([&] { socket->close(); }).join();
            EXPECT_TRUE(threadsEnd());
            EXPECT_FALSE(peer.receive());
        }
    }
    EXPECT_EQ(fate->events.count(), 0U) << "a closed socket has no failures to tell of";
}

TEST_F(KelvSocketClose, WorksFromEveryCallbackAndTwice) {
    for (const std::string place : {"connected", "failed", "data"}) {
        SCOPED_TRACE(place);
        socket = KelvaneSocket::create();
        fate->onEvent = [&](const std::string& event, KelvaneSocket& closing) {
            if (event == place)
                closing.close();
        };
        data->onData = [&] { place == "data" ? socket->close() : void(); };
        socket->setSocketDelegate(fate);
        socket->setDataDelegate(data);
        RawPeer peer = peerOf(socket);
        if (place != "connected")
            peer.send(frame(1, "", place == "failed" ? -1 : 0));
        EXPECT_TRUE(eventually([&] { return socket->isZombie(); }));
        EXPECT_TRUE(threadsEnd());
        socket->close();
        EXPECT_FALSE(socket->sendInt(1));
    }
}

TEST_F(KelvSocketClose, WakesASenderThatFindsNoRoom) {
    const RawPeer peer = peerOf(socket);
    auto sent = std::async(std::launch::async, [&] { return socket->sendData(Data(8U << 20U)); });
    EXPECT_EQ(sent.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    socket->close();
    EXPECT_FALSE(sent.get());
}

TEST_F(KelvSocketClose, OfAListenerTakesChildrenPathAndThread) {
    const std::string path = folder.write("socket", "in the way");
    socket->setSocketDelegate(fate);
    ASSERT_TRUE(socket->listenAtPath(path));
    using std::filesystem::perms;
    EXPECT_EQ(std::filesystem::status(path).permissions(),
              perms::owner_all | perms::group_all | perms::others_all);
    RawPeer first;
    RawPeer second;
    ASSERT_TRUE(first.connect(path) && second.connect(path));
    const auto child = fate->children.next().value_or(nullptr);
    ASSERT_TRUE(child && fate->children.next());
    child->setDataDelegate(data);
    first.send(frame(1, "to the child"));
    EXPECT_EQ(data->deliveries.next(), RecordingDataDelegate::Delivery(1, "to the child"));
    EXPECT_TRUE(child->sendString(frame(2, "")));
    EXPECT_EQ(first.receive()->first, 2);

    socket->close();
    EXPECT_TRUE(threadsEnd());
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_FALSE(first.receive() || second.receive());
}

// The limit counts children, including closed ones, whether or not the socket listens.
TEST_F(KelvSocketClose, OfAListenerWithoutChildrenLeavesPathAndThread) {
    const std::string path = folder / "socket";
    ASSERT_TRUE(socket->listenAtPath(path));
    socket->close();
    socket->close();
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_FALSE(RawPeer().connect(path));
    EXPECT_EQ(KelvaneSocket::liveThreads(), 1);
    socket.reset();
    EXPECT_TRUE(threadsEnd());

    for (const bool fromCallback : {false, true}) {
        socket = KelvaneSocket::create();
        fate->onEvent = [&](const std::string&, KelvaneSocket& child) {
            fromCallback ? socket->close() : child.close();
        };
        socket->setSocketDelegate(fate);
        ASSERT_TRUE(socket->listenAtPath(path));
        RawPeer peer;
        ASSERT_TRUE(peer.connect(path));
        EXPECT_FALSE(peer.receive());
        socket->close();
        EXPECT_FALSE(std::filesystem::exists(path));
        EXPECT_TRUE(threadsEnd());
    }
}

TEST_F(KelvSocketClose, LosesNoDescriptorAndNoThreadInAThousandConnections) {
    socket->setSocketDelegate(fate);
    ASSERT_TRUE(socket->listenAtPath(folder / "socket"));
    const auto counts = [] {
        const auto entries = [](const char* of) {
            return std::distance(std::filesystem::directory_iterator(of), {});
        };
        return std::pair(entries("/proc/self/fd"), entries("/proc/self/task"));
    };
    const auto before = counts();
    std::vector<std::weak_ptr<KelvaneSocket>> children;
    for (int number = 0; number < 1000; ++number) {
        const auto client = KelvaneSocket::create();
        ASSERT_TRUE(
            eventually([&] { return client->connectToPath(folder / "socket"); })); // the backlog may be full
        ASSERT_TRUE(client->sendInt(number));
        const auto child = fate->children.next().value_or(nullptr);
        ASSERT_TRUE(child);
        (number % 2 == 0 ? client : child)->close();
        child->close();
        children.push_back(child);
    }
    EXPECT_TRUE(eventually([&] { return counts() == before; }));
    EXPECT_LT(std::ranges::count_if(children, [](const auto& child) { return !child.expired(); }), 10)
        << "a listener lets go of those that are closed";
}

// Runs `body` as another user; returns false when this process cannot change its user.
bool asAnotherUser(const std::function<bool()>& body) {
    constexpr uid_t nobody = 65534;
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(::setuid(nobody) == 0 && body() ? 0 : 1);
    int status = 1;
    ::waitpid(child, &status, 0);
    return status == 0;
}

TEST_F(KelvSocketClose, RefusesPeersOfAnotherUser) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "needs root to become somebody else";
    std::filesystem::permissions(folder.path(), std::filesystem::perms::all);
    const std::string path = folder / "socket";
    const std::string strange = folder / "strange";
    socket->setSocketDelegate(fate);
    ASSERT_TRUE(socket->listenAtPath(path));
    Recorded<std::string> lines;
    LogSinkToken log = setLogSink([&](const LogEntry& entry) { lines.add(entry.line()); });
    for (int attempt = 0; attempt < 5; ++attempt)
        EXPECT_TRUE(asAnotherUser([&] {
            RawPeer stranger;
            return stranger.connect(path) && !stranger.receive();
        }));
    EXPECT_NE(lines.next().value_or("").find("other users: 1"), std::string::npos);
    EXPECT_EQ(lines.count(), 0U) << "more than once a minute it would push other lines out of the log";
    log = {};
    const RawPeer friendly;
    ASSERT_TRUE(friendly.connect(path));
    EXPECT_TRUE(fate->children.next());
    EXPECT_EQ(fate->children.count(), 0U);

    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const FileDescriptor own(ends[0]);
    const FileDescriptor ofRoot(ends[1]);
    EXPECT_TRUE(asAnotherUser([&] { return isTrustedPeer(own.get()); })) << "anybody trusts root";

    // The listening descriptor is inherited, and has the credentials of the process that called listen.
    const RawPeer listener;
    EXPECT_TRUE(asAnotherUser([&] { return listener.listen(strange); }));
    const auto client = KelvaneSocket::create();
    EXPECT_TRUE(RawPeer().connect(strange));
    EXPECT_FALSE(client->connectToPath(strange));
    EXPECT_TRUE(client->connectToPath(path)) << "with the same object";
}

} // namespace
} // namespace kelvane::tests
