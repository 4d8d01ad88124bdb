#pragma once

#include "Common/Invocation.h"
#include "Common/KelvSocket.h"
#include "Common/TypedCall.h"
#include "Foundation/ConditionLock.h"
#include "Foundation/MainLoop.h"

#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <vector>

namespace kelvane {

// A call of a selector that the proxy's method table does not have.
class UnknownSelector : public std::invalid_argument {
public:
    explicit UnknownSelector(std::string_view selector)
        : std::invalid_argument("no method signature for " + std::string(selector)) {}
};

// Turns calls into messages on a socket and back; both sides of the link use it alike.
//
// Outgoing: `call` and `invoke` block their thread until the answer is there when the method has a result; a
// link that is lost or closed meanwhile answers 0 or nothing. One call at a time; a second caller waits for
// the first. Incoming: the peer's requests run on the delegate, on the receive thread with `forwardingLock`
// held, or on the main thread, where they must be void and where they run when the main thread is back in its
// loop, while a call may be waiting.
//
// An answer that nobody waited for, and a failure notice once a call has waited, stays until the next waiting
// call takes it for its own; a proxy whose table has no method with a result, which never waits, drops it. A
// peer that sends requests faster than the main thread runs them loses the link once those that wait take
// `mostQueuedBytes`.
//
// Ownership. `create` returns a handle; when the last one goes away the proxy closes. It owns its socket; the
// socket keeps it as its data delegate; the delegate is held weakly, and requests for one that is gone are
// dropped. A call under way keeps proxy and socket alive.
//
// Threads. Any thread may call, and `close` from any thread, of the proxy or of its socket, ends every wait
// until the next `setSocket`, or until that socket is connected again. A call that waits on the receive
// thread itself (from inside a request) would wait for that `close`.
class KelvaneProxy : public DataDelegate, public std::enable_shared_from_this<KelvaneProxy> {
public:
    // `mainLoop` is needed only for `setCallDelegateOnMainThread(true)`.
    [[nodiscard]] static std::shared_ptr<KelvaneProxy> create(std::shared_ptr<MainLoop> mainLoop = nullptr);
    ~KelvaneProxy() override;
    KelvaneProxy(const KelvaneProxy&) = delete;
    KelvaneProxy& operator=(const KelvaneProxy&) = delete;

    // Closes the socket that it had. Without a socket, as at first, a call sends nothing and returns at once.
    void setSocket(std::shared_ptr<KelvaneSocket> socket);
    void setProtocol(Protocol protocol);
    void setDelegate(std::weak_ptr<InvocationTarget> delegate);
    void setCallDelegateOnMainThread(bool onMainThread);
    // Lets go of the socket without closing it.
    void close();

    static constexpr std::size_t mostQueuedBytes = std::size_t{64} << 20U;

    // `call<"setPausedMinutes:">(1440U)`. Throws UnknownSelector when this proxy's table has not got it, and
    // std::invalid_argument for an absent object.
    template <Selector selector, class... Arguments>
    requires TakesArguments<selector, Arguments...>
    auto call(const Arguments&... arguments) {
        return callTyped<selector>(std::index_sequence_for<Arguments...>(), arguments...);
    }
    // The same for a selector that is known only now: arguments are turned into the method's types, the
    // result back into an object, absent for a void method. Throws also when the number of arguments is
    // another. `isAnswered`, when given, tells the peer's own 0 or nothing from that of a link that was lost;
    // it says nothing about a method without a result.
    Value invoke(std::string_view selector, const std::vector<Value>& arguments = {},
                 bool* isAnswered = nullptr);

    // Throws UnknownSelector.
    [[nodiscard]] MethodSignature methodSignatureForSelector(std::string_view selector) const;
    [[nodiscard]] static Value encodeType(std::string_view type, const ValueBuffer& buffer,
                                          std::uint32_t* resultSize = nullptr) {
        return encodeValue(type, buffer, resultSize);
    }
    static void decodeObject(const Value& object, std::string_view type, ValueBuffer& buffer) {
        decodeValue(object, type, buffer);
    }

    // On the receive thread.
    bool processData(const Data* payload, std::int32_t type) override;
    void transportChanged(const KelvaneSocket& socket) override;

private:
    explicit KelvaneProxy(std::shared_ptr<MainLoop> mainLoop);

    template <Selector selector, std::size_t... index, class... Arguments>
    auto callTyped(std::index_sequence<index...> /*positions*/, const Arguments&... arguments) {
        using Method = TypedMethod<selector>;
        Invocation invocation(selector.view(), methodSignatureForSelector(selector.view()));
        (storeNative<typename Method::template Argument<index>>(invocation.argument(index), arguments), ...);
        forwardInvocation(invocation);
        if constexpr (!std::same_as<typename Method::Result, void>)
            return loadNative<typename Method::Result>(invocation.result());
    }

    // False when there should have been an answer and none came.
    bool forwardInvocation(Invocation& invocation);
    bool waitForResult(Invocation& invocation, unsigned interruptions);
    void sendFrame(const std::shared_ptr<KelvaneSocket>& transport, std::int32_t type, const Data& payload);

    void processRequest(const Data* payload);
    void processResponse(const Data* payload);
    void processFailureNotice();
    void processInvocationArgs(const Array& arguments, std::size_t expansion);
    void enqueue(std::weak_ptr<InvocationTarget> target, Invocation invocation, std::size_t size);
    void postWakeUp();
    void handlePortMessage();
    void invokeAndRespond(InvocationTarget& target, Invocation& invocation);

    [[nodiscard]] std::shared_ptr<KelvaneSocket> socket() const;
    [[nodiscard]] bool hasResults() const;

    const std::shared_ptr<MainLoop> mainLoop_;

    // Guards the fields down to `waitingOnResult_` and every interruption; never held while calling out.
    mutable std::mutex stateMutex_;
    std::shared_ptr<KelvaneSocket> socket_;
    Protocol protocol_;
    std::weak_ptr<InvocationTarget> delegate_;
    Protocol delegateMethods_;
    bool callDelegateOnMainThread_ = false;
    bool waitingOnResult_ = false;

    // Both recursive: a write that fails tells the socket's delegate inside the call, and that one may call
    // again.
    std::recursive_mutex forwardingLock_; // one outgoing call at a time, also held while a request runs
    std::recursive_mutex socketLock_;     // keeps the four writes of a frame together

    ConditionLock resultCond_;          // 0 no result, 1 a result or a failure is there
    std::optional<Value> resultObject_; // with `resultCond_` held; none: a failure

    struct QueuedInvocation {
        std::weak_ptr<InvocationTarget> target;
        Invocation invocation;
        std::size_t size; // bytes that it takes
    };
    std::mutex invocationLock_;
    std::deque<QueuedInvocation> invocationQueue_;
    std::size_t queuedBytes_ = 0;
    bool isWakeUpPending_ = false;
};

} // namespace kelvane
