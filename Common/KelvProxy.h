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

// Thrown for a selector that is not in the proxy's method table.
class UnknownSelector : public std::invalid_argument {
public:
    explicit UnknownSelector(std::string_view selector)
        : std::invalid_argument("no method signature for " + std::string(selector)) {}
};

// Turns calls into messages on a socket and back; both sides of the link use it.
//
// Outgoing calls: `call` and `invoke` block until the answer arrives if the method has a result; when the
// link is lost or closed meanwhile, they return 0 or an empty value. One call runs at a time, and a second
// caller waits for the first. Incoming calls: the peer's requests run on the delegate, either on the receive
// thread with `forwardingLock_` held, or on the main thread. There they must be void, and they run when the
// main thread returns to its loop, even while a call is waiting.
//
// A response that no call waits for, and a failure notice once any call has waited, is kept and taken by the
// next waiting call as its own. A proxy whose table has no method with a result never waits and drops them.
// The link is closed when the requests queued for the main thread exceed `mostQueuedBytes`.
//
// Ownership. `create` returns a handle; the proxy closes when the last one is released. The proxy owns its
// socket, and the socket keeps the proxy as its data delegate. The delegate is held weakly; requests for a
// destroyed delegate are dropped. A call in progress keeps proxy and socket alive.
//
// Threads. Any thread may call. `close`, of the proxy or of its socket, from any thread ends every wait until
// the next `setSocket`, or until that socket connects again. A call with a result made on the receive thread,
// from inside a request, blocks until that `close`.
class KelvaneProxy : public DataDelegate, public std::enable_shared_from_this<KelvaneProxy> {
public:
    // `mainLoop` is needed only for `setCallDelegateOnMainThread(true)`.
    [[nodiscard]] static std::shared_ptr<KelvaneProxy> create(std::shared_ptr<MainLoop> mainLoop = nullptr);
    ~KelvaneProxy() override;
    KelvaneProxy(const KelvaneProxy&) = delete;
    KelvaneProxy& operator=(const KelvaneProxy&) = delete;

    // Closes the previous socket. Without a socket, which is the initial state, a call sends nothing and
    // returns at once.
    void setSocket(std::shared_ptr<KelvaneSocket> socket);
    void setProtocol(Protocol protocol);
    void setDelegate(std::weak_ptr<InvocationTarget> delegate);
    void setCallDelegateOnMainThread(bool onMainThread);
    // Releases the socket without closing it.
    void close();

    static constexpr std::size_t mostQueuedBytes = std::size_t{64} << 20U;

    // Example: `call<"setPausedMinutes:">(1440U)`. Throws UnknownSelector when this proxy's table does not
    // have the selector, and std::invalid_argument for an absent object.
    template <Selector selector, class... Arguments>
    requires TakesArguments<selector, Arguments...>
    auto call(const Arguments&... arguments) {
        return callTyped<selector>(std::index_sequence_for<Arguments...>(), arguments...);
    }
    // The same for a selector known only at run time: arguments are converted to the method's types, and the
    // result to an object, absent for a void method. Also throws when the number of arguments is wrong.
    // `isAnswered`, when given, tells a 0 or empty value returned by the peer from one caused by a lost link;
    // it means nothing for a method without a result.
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

    // Called on the receive thread.
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

    // Returns false when the method has a result and no answer came.
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

    // Guards the fields down to `waitingOnResult_`, and is held for every `interrupt` and `resume` of
    // `resultCond_`. Never held while calling a delegate or a socket, except for `KelvaneSocket::isOpen`.
    mutable std::mutex stateMutex_;
    std::shared_ptr<KelvaneSocket> socket_;
    Protocol protocol_;
    std::weak_ptr<InvocationTarget> delegate_;
    Protocol delegateMethods_;
    bool callDelegateOnMainThread_ = false;
    bool waitingOnResult_ = false;

    // Both are recursive: a failed write notifies the socket's delegate inside the call, and the delegate may
    // call again.
    std::recursive_mutex forwardingLock_; // one outgoing call at a time, also held while a request runs
    std::recursive_mutex socketLock_;     // keeps the four writes of a frame together

    ConditionLock resultCond_;          // 0: no result; 1: a result or a failure
    std::optional<Value> resultObject_; // guarded by `resultCond_`; none: a failure

    struct QueuedInvocation {
        std::weak_ptr<InvocationTarget> target;
        Invocation invocation;
        std::size_t size; // in bytes
    };
    std::mutex invocationLock_;
    std::deque<QueuedInvocation> invocationQueue_;
    std::size_t queuedBytes_ = 0;
    bool isWakeUpPending_ = false;
};

} // namespace kelvane
