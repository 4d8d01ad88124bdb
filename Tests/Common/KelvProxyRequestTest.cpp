#include "Common/Protocols.h"
#include "Support/Logging.h"
#include "Tests/Harness/LinkPair.h"
#include "Tests/Harness/ManualLoop.h"

#include <future>
#include <new>

namespace {
std::atomic<std::size_t> largestAllocation{SIZE_MAX}; // larger ones fail
}

void* operator new(std::size_t size) {
    if (void* const memory = size > largestAllocation ? nullptr : std::malloc(size))
        return memory;
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t& /*unused*/) noexcept {
    return std::malloc(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

namespace kelvane::tests {
namespace {

constexpr MethodDescription methods[] = {
    {"note:", "v24@0:8@16"}, {"add:to:", "q24@0:8i16i20"}, {"echo:", "@24@0:8@16"},
    {"throw", "I16@0:8"},    {"large", "@16@0:8"},         {"refused", "@16@0:8"},
};

// Handles the methods of a table with a function.
class Target : public InvocationTarget {
public:
    Target(Protocol methods, std::function<void(Invocation&)> handler)
        : methods_(methods), handler_(std::move(handler)) {}
    [[nodiscard]] Protocol methods() const override { return methods_; }
    void invoke(Invocation& invocation) override { handler_(invocation); }

private:
    const Protocol methods_;
    const std::function<void(Invocation&)> handler_;
};

// Returns the bytes of a request; the arguments are alternating types and values.
std::string request(const char* selector, const Array& arguments = {}, const Value& count = {}) {
    Array entries{0, "v", selector, count.isAbsent() ? Value(arguments.size() / 2) : count};
    entries.insert(entries.end(), arguments.begin(), arguments.end());
    return message(requestFrame, entries);
}

class KelvProxyRequest : public LinkTest {
protected:
    KelvProxyRequest() {
        KelvaneLogStart("/");
        proxy->setProtocol(KelvaneDaemonProtocol);
        proxy->setDelegate(target);
        proxy->setSocket(socket);
    }
    void TearDown() override {
        proxy.reset();
        LinkTest::TearDown();
        loop->runPosted();
        setLogLevel(LogLevel::Notice);
    }
    void run(Invocation& invocation) {
        const std::string& selector = invocation.selector();
        if (selector == "note:")
            notes.add(invocation.argument(0).object());
        else if (selector == "add:to:")
            invocation.result().store<long long>(invocation.argument(0).load<int>() +
                                                 invocation.argument(1).load<int>());
        else if (selector == "echo:")
            invocation.result().storeObject(invocation.argument(0).object());
        else if (selector == "large")
            invocation.result().storeObject(Data(largestPayload));
        else if (selector == "refused") {
            invocation.result().storeObject(Data(1U << 20U));
            largestAllocation = 1U << 16U;
        } else
            throw std::runtime_error("on purpose");
    }

    Recorded<Value> notes;
    Recorded<std::string> log;
    const LogSinkToken sink = setLogSink([this](const LogEntry& entry) { log.add(entry.text); });
    const std::shared_ptr<ManualLoop> loop = std::make_shared<ManualLoop>();
    std::shared_ptr<Target> target =
        std::make_shared<Target>(methods, [this](Invocation& call) { run(call); });
    std::shared_ptr<KelvaneProxy> proxy = KelvaneProxy::create(loop);
    RawPeer peer = peerOf(socket);
};

TEST_F(KelvProxyRequest, IsRunAndAnswered) {
    const Value dictionary = Dictionary{{"a", Array{1, "two", 3.5, true}}};
    const std::pair<std::string, Value> cases[] = {
        {request("add:to:", {"i", 2, "i", -7}), -5},
        {request("add:to:", {"s", 2, "q", 3}), 5},     // converted from the sender's types
        {request("add:to:", {"i", 2}), 2},             // too few: missing ones read as 0
        {request("add:to:", {"i", "two", "i", 3}), 3}, // value and type differ
        {request("add:to:", {7, 2, "i", 3}, 0), 0},    // more entries than the count
        {request("echo:", {"@", dictionary}), dictionary},
        {request("echo:", {"I", 5}), {}},
        {request("echo:"), {}},
        {request("throw"), 0},
        {request("large"), {}},
        {request("refused"), {}}, // out of memory while encoding
    };
    for (const auto& [asked, answer] : cases) {
        peer.send(asked);
        const auto response = peer.receive();
        largestAllocation = SIZE_MAX;
        ASSERT_TRUE(response);
        EXPECT_EQ(response->first, responseFrame);
        EXPECT_EQ(response->second, answer);
    }
    EXPECT_EQ(log.next(), "ERROR: KelvaneProxy processInvocationArgs caught exception: on purpose.");
}

TEST_F(KelvProxyRequest, IsDroppedWithoutAnAnswerWhenItCannotRun) {
    const std::string caught = "ERROR: KelvaneProxy processData caught exception: ";
    const std::string lying = "KelvaneProxy dropped a request with fewer arguments than it announces: echo:";
    const std::pair<std::string, std::string> cases[] = {
        {request("unknown:", {"@", "x"}), ""},
        {message(requestFrame, Array{0, "v", "note:"}), ""},
        {message(requestFrame, Array{0, "v", 7, 0}), ""},
        {message(requestFrame, "echo:"), ""},
        {frame(77, "of no known type"), ""},
        {std::string(36, 'x'), "KelvaneSocket Expecting a UUID, got something else..."},
        {frame(requestFrame, ""), "Failed to unserialize request: "},
        {frame(requestFrame, "bplist00 garbage"), "Failed to unserialize request: "},
        {frame(responseFrame, "garbage"), "Failed to unserialize response: "},
        {request("echo:", {"@", "x"}, 2), lying},
        {request("echo:", {"@", "x"}, -1), lying},
        {request("echo:", {"@", "x"}, UINT64_MAX), lying},
        {request("echo:", {"@"}, 1), lying},
        {request("echo:", {"r*", "x"}), caught + "Unknown argument type specifier: r."},
        {request("echo:", {"@", "x", "@", "y"}), caught + "echo: takes fewer arguments."},
    };
    for (const auto& [bytes, text] : cases) {
        peer.send(bytes + request("echo:", {"@", "afterwards"}));
        EXPECT_EQ(peer.receive()->second, Value("afterwards")) << text;
        EXPECT_EQ(text.empty() ? "" : log.next().value_or("").substr(0, text.size()), text);
        EXPECT_EQ(log.count(), 0U) << text;
    }
}

TEST_F(KelvProxyRequest, WaitsForTheMainThreadInOrderUnderOnePost) {
    proxy->setCallDelegateOnMainThread(true);
    peer.send(request("note:", {"@", 1}) + request("throw") + request("note:", {"@", 2}) +
              message(responseFrame, 6));
    EXPECT_EQ(proxy->call<"serviceState">(), 6U) << "while requests wait";
    EXPECT_EQ(log.next(),
              "ERROR: KelvaneProxy processData caught exception: invocation on main thread not allowed for "
              "methods with non-zero return size.");
    EXPECT_EQ(notes.count(), 0U);
    EXPECT_EQ(loop->runPosted(), 1);
    EXPECT_EQ(notes.next(), Value(1));
    EXPECT_EQ(notes.next(), Value(2));

    // Requests queued when the link closes still run, but not for a destroyed delegate.
    peer.send(request("note:", {"@", 3}) + message(responseFrame, 6));
    EXPECT_EQ(proxy->call<"serviceState">(), 6U);
    proxy->close();
    socket->close();
    EXPECT_EQ(loop->runPosted(), 1);
    EXPECT_EQ(notes.next(), Value(3));
    const Data late = writeBinaryPropertyList(Array{0, "v", "note:", 1, "@", 4}).bytes;
    proxy->processData(&late, requestFrame);
    target.reset();
    EXPECT_EQ(loop->runPosted(), 1);
    EXPECT_EQ(notes.count(), 0U);
    EXPECT_EQ(log.count(), 0U);
    proxy->processData(&late, requestFrame);
    EXPECT_EQ(log.next(), "ERROR: KelvaneProxy processData caught exception: delegate is NULL.");
}

TEST_F(KelvProxyRequest, ThatKeepsComingDoesNotKeepTheMainThread) {
    proxy->setCallDelegateOnMainThread(true);
    const auto busy = std::make_shared<Target>(methods, [this](Invocation& call) {
        notes.add(call.argument(0).object());
        if (call.argument(0).object() != Value(1))
            return;
        loop->post([this] { notes.add("something else"); });
        peer.send(request("note:", {"@", 2}) + message(responseFrame, 6));
        EXPECT_EQ(proxy->call<"serviceState">(), 6U) << "by now the second one is queued";
    });
    proxy->setDelegate(busy);
    peer.send(request("note:", {"@", 1}) + message(responseFrame, 6));
    EXPECT_EQ(proxy->call<"serviceState">(), 6U);
    EXPECT_EQ(loop->runPosted(), 3) << "one wake-up for each";
    for (const Value& note : {Value(1), Value("something else"), Value(2)})
        EXPECT_EQ(notes.next(), note);
}

TEST_F(KelvProxyRequest, CostsThePeerItsLinkWhenTooManyWait) {
    proxy->setCallDelegateOnMainThread(true);
    // One MiB each in the frame; decoded array elements take more memory than their references.
    const Value large[] = {std::string(1U << 20U, 'x'), Array(1U << 20U, Value(1))};
    std::size_t taken = 0;
    for (const Value& argument : large) {
        const std::size_t size = argument.kind() == Value::Kind::Array ? sizeof(Value) << 20U : 1U << 20U;
        const std::size_t count = KelvaneProxy::mostQueuedBytes / size;
        for (std::size_t number = 0; number < count; ++number)
            peer.send(request("note:", {"@", argument}));
        EXPECT_FALSE(peer.receive());
        loop->runPosted();
        EXPECT_EQ(notes.count(), taken += count - 1) << "what was taken runs";
        socket = KelvaneSocket::create();
        peer = peerOf(socket);
        proxy->setSocket(socket);
    }
}

TEST_F(KelvProxyRequest, TakesRoomOnlyUntilItHasRun) {
    proxy->setCallDelegateOnMainThread(true);
    const std::string quarter = request("note:", {"@", std::string(KelvaneProxy::mostQueuedBytes / 4, 'x')}) +
                                message(responseFrame, 6);
    for (int number = 0; number < 6; ++number) {
        for (int time = 0; time < 2; ++time) {
            peer.send(quarter);
            EXPECT_EQ(proxy->call<"serviceState">(), 6U) << "by now it is queued";
        }
        loop->runPosted();
        EXPECT_EQ(notes.count(), 2U * static_cast<unsigned>(number + 1));
    }
}

// A proxy that calls only methods without a result would keep the response, and the failure after it, for
// ever.
TEST_F(KelvProxyRequest, GoesOnAfterAResponseThatNobodyCanWaitFor) {
    proxy->setProtocol(KelvaneClientProtocol);
    peer.send(message(responseFrame, 1) + message(responseFrame, 2) + request("add:to:", {"i", 1, "i", 2}));
    EXPECT_EQ(peer.receive()->second, Value(3));
}

// Off the main thread a request waits for the current call, whose response arrives on the same thread.
TEST_F(KelvProxyRequest, ThatWaitsForACallIsEndedByClose) {
    auto call = std::async(std::launch::async, [&] { return proxy->call<"serviceState">(); });
    EXPECT_TRUE(peer.receive());
    peer.send(request("note:", {"@", 1}) + message(responseFrame, 6));
    EXPECT_EQ(call.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    socket->close();
    EXPECT_EQ(call.get(), 0U);
    EXPECT_TRUE(threadsEnd());
}

} // namespace
} // namespace kelvane::tests
