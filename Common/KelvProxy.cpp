#include "Common/KelvProxy.h"

#include "Foundation/Assertion.h"
#include "Foundation/PropertyList/BinaryPropertyList.h"
#include "Support/Logging.h"

#include <algorithm>
#include <new>

namespace kelvane {
namespace {

constexpr std::string_view proxySource = "Common/KelvProxy";

// Fields of a request: return length, return type, selector, number of arguments; then the type and value of
// each argument.
constexpr std::size_t selectorEntry = 2;
constexpr std::size_t countEntry = 3;
constexpr std::size_t headerEntries = 4;

Array requestFor(const Invocation& invocation) {
    const MethodSignature& signature = invocation.signature();
    Array request{static_cast<unsigned long>(signature.returnLength()), signature.returnType,
                  invocation.selector(), static_cast<unsigned long>(signature.argumentCount)};
    for (std::size_t index = 0; index < signature.argumentCount; ++index) {
        const std::string_view type = signature.argumentTypes[index];
        Value encoded = encodeValue(type, invocation.argument(index));
        if (encoded.isAbsent())
            throw std::invalid_argument("an absent argument cannot be sent: " + invocation.selector());
        request.emplace_back(type);
        request.push_back(std::move(encoded));
    }
    return request;
}

void run(InvocationTarget& target, Invocation& invocation) {
    try {
        target.invoke(invocation);
    } catch (const std::exception& exception) {
        KelvaneCLogError("ERROR: KelvaneProxy processInvocationArgs caught exception: %@.", exception.what());
    } catch (...) {
        KelvaneCLogError("ERROR: KelvaneProxy processInvocationArgs caught unknown exception.");
    }
}

bool fitsFrame(const Data& payload) {
    return payload.size() <= static_cast<std::size_t>(largestPayload);
}

// The payload of the response, empty when there is no result or it cannot be sent. Throws std::bad_alloc when
// out of memory.
Data responseFor(const Invocation& invocation) {
    const Value result = encodeValue(invocation.signature().returnType, invocation.result());
    PropertyListWriting response;
    if (!result.isAbsent())
        response = writeBinaryPropertyList(result);
    if (response.succeeded() && !fitsFrame(response.bytes))
        response.error = "too large for a frame";
    if (response.succeeded())
        return std::move(response.bytes);
    KelvaneCLog("Failed to serialize response: %@", response.error);
    return {};
}

} // namespace

std::shared_ptr<KelvaneProxy> KelvaneProxy::create(std::shared_ptr<MainLoop> mainLoop) {
    std::shared_ptr<KelvaneProxy> object(new KelvaneProxy(std::move(mainLoop)));
    return {object.get(), [object](KelvaneProxy*) mutable {
                object->close();
                object.reset();
            }};
}

KelvaneProxy::KelvaneProxy(std::shared_ptr<MainLoop> mainLoop) : mainLoop_(std::move(mainLoop)) {
    resultCond_.interrupt();
}

KelvaneProxy::~KelvaneProxy() = default;

void KelvaneProxy::setSocket(std::shared_ptr<KelvaneSocket> socket) {
    std::shared_ptr<KelvaneSocket> old = socket;
    {
        const std::scoped_lock guard(stateMutex_);
        old.swap(socket_);
        resultCond_.interrupt(); // ends calls that wait on the old socket
        if (socket && socket->isOpen())
            resultCond_.resume();
    }
    if (old)
        old->close();
    if (!socket)
        return;
    socket->setDataDelegate(shared_from_this());
    transportChanged(*socket); // catches up on changes before this proxy was the delegate
}

void KelvaneProxy::setProtocol(Protocol protocol) {
    const std::scoped_lock guard(stateMutex_);
    protocol_ = protocol;
}

// Reads the method table now. The receive thread would have to hold the delegate to read it, and would
// destroy the delegate, with everything that it owns, when the owner releases it meanwhile.
void KelvaneProxy::setDelegate(std::weak_ptr<InvocationTarget> delegate) {
    const std::shared_ptr<InvocationTarget> target = delegate.lock();
    const std::scoped_lock guard(stateMutex_);
    delegateMethods_ = target ? target->methods() : Protocol();
    delegate_.swap(delegate);
}

void KelvaneProxy::setCallDelegateOnMainThread(bool onMainThread) {
    if (onMainThread && !mainLoop_)
        throw AssertionFailure("delivery on the main thread needs a main loop", proxySource, __LINE__);
    const std::scoped_lock guard(stateMutex_);
    callDelegateOnMainThread_ = onMainThread;
}

void KelvaneProxy::close() {
    std::shared_ptr<KelvaneSocket> released;
    {
        const std::scoped_lock guard(stateMutex_);
        released.swap(socket_);
        waitingOnResult_ = false;
        resultCond_.interrupt();
    }
}

Value KelvaneProxy::invoke(std::string_view selector, const std::vector<Value>& arguments, bool* isAnswered) {
    const MethodSignature signature = methodSignatureForSelector(selector);
    if (arguments.size() != signature.argumentCount)
        throw std::invalid_argument(std::string(selector) + " takes " +
                                    std::to_string(signature.argumentCount) + " arguments");
    Invocation invocation(selector, signature);
    for (std::size_t index = 0; index < arguments.size(); ++index)
        decodeValue(arguments[index], signature.argumentTypes[index], invocation.argument(index));
    const bool answered = forwardInvocation(invocation);
    if (isAnswered)
        *isAnswered = answered;
    return signature.returnLength() == 0 ? Value() : encodeValue(signature.returnType, invocation.result());
}

MethodSignature KelvaneProxy::methodSignatureForSelector(std::string_view selector) const {
    Protocol protocol;
    {
        const std::scoped_lock guard(stateMutex_);
        protocol = protocol_;
    }
    const MethodDescription* method = findMethod(protocol, selector);
    if (!method)
        throw UnknownSelector(selector);
    return MethodSignature::fromTypes(method->types);
}

bool KelvaneProxy::forwardInvocation(Invocation& invocation) {
    const auto self = shared_from_this();
    const std::scoped_lock forwarding(forwardingLock_);
    const PropertyListWriting request = writeBinaryPropertyList(requestFor(invocation));
    if (!request.succeeded() || !fitsFrame(request.bytes)) {
        KelvaneCLog("serialization failed");
        return false;
    }
    std::shared_ptr<KelvaneSocket> transport;
    unsigned interruptions = 0;
    { // Read under one lock. Otherwise a socket that is set in between would get the request of a call that
      // is already interrupted, and the next call would take the answer.
        const std::scoped_lock guard(stateMutex_);
        transport = socket_;
        interruptions = resultCond_.interruptions();
    }
    sendFrame(transport, requestFrame, request.bytes);
    return invocation.signature().returnLength() == 0 || waitForResult(invocation, interruptions);
}

bool KelvaneProxy::waitForResult(Invocation& invocation, unsigned interruptions) {
    {
        const std::scoped_lock guard(stateMutex_);
        waitingOnResult_ = true;
    }
    if (!resultCond_.lockWhenCondition(1, interruptions))
        return false; // closed: the result stays 0 or empty
    const std::optional<Value> object = std::exchange(resultObject_, std::nullopt);
    resultCond_.unlockWithCondition(0);
    decodeValue(object.value_or(Value()), invocation.signature().returnType, invocation.result());
    return object.has_value();
}

void KelvaneProxy::sendFrame(const std::shared_ptr<KelvaneSocket>& transport, std::int32_t type,
                             const Data& payload) {
    if (!transport)
        return;
    const std::scoped_lock guard(socketLock_);
    // Ignores failed writes: a call that waits for an answer gets the failure notice.
    static_cast<void>(transport->sendString(frameMarker));
    static_cast<void>(transport->sendInt(type));
    static_cast<void>(transport->sendInt(static_cast<std::int32_t>(payload.size())));
    if (!payload.empty())
        static_cast<void>(transport->sendData(payload));
}

bool KelvaneProxy::processData(const Data* payload, std::int32_t type) {
    try {
        if (type == requestFrame)
            processRequest(payload);
        else if (type == responseFrame)
            processResponse(payload);
        else
            processFailureNotice();
    } catch (const std::exception& exception) {
        KelvaneCLogError("ERROR: KelvaneProxy processData caught exception: %@.", exception.what());
    } catch (...) {
        KelvaneCLogError("ERROR: KelvaneProxy processData caught unknown exception.");
    }
    return true;
}

// Reads the state under the lock, so that the later of a concurrent close and connect wins.
void KelvaneProxy::transportChanged(const KelvaneSocket& socket) {
    const std::scoped_lock guard(stateMutex_);
    if (socket_.get() != &socket)
        return; // not the current socket
    if (socket.isOpen())
        resultCond_.resume();
    else
        resultCond_.interrupt();
}

void KelvaneProxy::processRequest(const Data* payload) {
    const PropertyListReading request =
        readBinaryPropertyList(payload ? std::span(*payload) : std::span<const std::uint8_t>());
    if (!request.succeeded())
        KelvaneCLog("Failed to unserialize request: %@", request.error);
    else if (request.value.array().size() >= headerEntries)
        processInvocationArgs(request.value.array(), request.expansion);
}

void KelvaneProxy::processResponse(const Data* payload) {
    if (!hasResults()) {
        KelvaneCLog("KelvaneProxy dropped a response: no call can be waiting for it");
        return;
    }
    PropertyListReading response;
    const char* failure = nullptr;
    try {
        if (payload)
            response = readBinaryPropertyList(*payload);
    } catch (const std::bad_alloc&) {
        failure = "not enough memory";
    }
    if (!response.succeeded())
        failure = response.error.c_str();
    if (failure)
        KelvaneCLog("Failed to unserialize response: %@", failure);
    if (!resultCond_.lockWhenCondition(0))
        return;
    resultObject_ = std::move(response.value);
    resultCond_.unlockWithCondition(1);
}

void KelvaneProxy::processFailureNotice() {
    if (!resultCond_.lockWhenCondition(0))
        return;
    bool waiting = false;
    {
        const std::scoped_lock guard(stateMutex_);
        waiting = waitingOnResult_;
    }
    if (waiting) {
        KelvaneCLog("KelvProxy detected error while waiting on result");
        resultObject_.reset();
    }
    resultCond_.unlockWithCondition(waiting ? 1 : 0);
}

void KelvaneProxy::processInvocationArgs(const Array& arguments, std::size_t expansion) {
    const std::string& selector = arguments[selectorEntry].stringValue();
    Protocol methods;
    bool onMainThread = false;
    {
        const std::scoped_lock guard(stateMutex_);
        methods = delegateMethods_;
        onMainThread = callDelegateOnMainThread_;
    }
    const MethodDescription* method = findMethod(methods, selector);
    if (!method)
        return;
    const std::uint64_t count = arguments[countEntry].uint64Value();
    if (count > (arguments.size() - headerEntries) / 2) {
        KelvaneCLog("KelvaneProxy dropped a request with fewer arguments than it announces: %@", selector);
        return;
    }
    Invocation invocation(selector, MethodSignature::fromTypes(method->types));
    for (std::size_t index = 0; index < count; ++index) {
        const Value& type = arguments[headerEntries + 2 * index];
        decodeValue(arguments[headerEntries + 2 * index + 1], type.stringValue(), invocation.argument(index));
    }
    if (onMainThread && invocation.signature().returnLength() != 0)
        throw AssertionFailure("invocation on main thread not allowed for methods with non-zero return size",
                               proxySource, 185);
    std::weak_ptr<InvocationTarget> target;
    {
        const std::scoped_lock guard(stateMutex_);
        target = delegate_;
    }
    // Does not hold a delegate of the main thread: when its owner releases it meanwhile, it must not be
    // destroyed on this thread, with everything that it owns.
    if (onMainThread && !target.expired())
        return enqueue(std::move(target), std::move(invocation), sizeof(QueuedInvocation) + expansion);
    const std::shared_ptr<InvocationTarget> alive = onMainThread ? nullptr : target.lock();
    if (!alive)
        throw AssertionFailure("delegate is NULL", proxySource, 187);
    invokeAndRespond(*alive, invocation);
}

void KelvaneProxy::enqueue(std::weak_ptr<InvocationTarget> target, Invocation invocation, std::size_t size) {
    {
        const std::scoped_lock guard(invocationLock_);
        if (invocationQueue_.empty() || queuedBytes_ + size <= mostQueuedBytes) {
            invocationQueue_.push_back({std::move(target), std::move(invocation), size});
            queuedBytes_ += size;
            postWakeUp();
            return;
        }
    }
    KelvaneCLog("KelvaneProxy closed the connection: too many requests are queued for the main thread");
    if (const std::shared_ptr<KelvaneSocket> transport = socket())
        transport->hangUp();
}

// Call with `invocationLock_` held. Does nothing when a wake-up is pending.
void KelvaneProxy::postWakeUp() {
    if (!isWakeUpPending_)
        mainLoop_->post([self = shared_from_this()] { self->handlePortMessage(); });
    isWakeUpPending_ = true; // set last, because the post may throw
}

// Runs the requests that are queued now. Later ones get their own turn, so that a busy peer does not block
// the main thread.
void KelvaneProxy::handlePortMessage() {
    std::size_t count = 0;
    {
        const std::scoped_lock guard(invocationLock_);
        // Requests that arrive while one of these runs a nested loop need another wake-up.
        isWakeUpPending_ = false;
        count = invocationQueue_.size();
    }
    for (; count > 0; --count) {
        std::optional<QueuedInvocation> next;
        {
            const std::scoped_lock guard(invocationLock_);
            if (invocationQueue_.empty())
                return; // already run by a nested loop
            next = std::move(invocationQueue_.front());
            invocationQueue_.pop_front();
            queuedBytes_ -= next->size;
        }
        if (const std::shared_ptr<InvocationTarget> target = next->target.lock())
            run(*target, next->invocation);
    }
    const std::scoped_lock guard(invocationLock_);
    if (!invocationQueue_.empty())
        postWakeUp();
}

// A caller that waits for a result always gets a frame, even if it is empty.
void KelvaneProxy::invokeAndRespond(InvocationTarget& target, Invocation& invocation) {
    const std::scoped_lock forwarding(forwardingLock_);
    run(target, invocation);
    if (invocation.signature().returnLength() == 0)
        return;
    Data response;
    try {
        response = responseFor(invocation);
    } catch (const std::exception& exception) {
        KelvaneCLog("Failed to serialize response: %@", exception.what());
    }
    sendFrame(socket(), responseFrame, response);
}

std::shared_ptr<KelvaneSocket> KelvaneProxy::socket() const {
    const std::scoped_lock guard(stateMutex_);
    return socket_;
}

bool KelvaneProxy::hasResults() const {
    const std::scoped_lock guard(stateMutex_);
    return std::ranges::any_of(protocol_, [](const MethodDescription& method) {
        return MethodSignature::fromTypes(method.types).returnLength() != 0;
    });
}

} // namespace kelvane
