#include "FakeDaemon/FakeDaemon.h"

#include <algorithm>
#include <unistd.h>

namespace kelvane {
namespace {

using namespace std::chrono_literals;

constexpr auto waitTimeout = 10s;
constexpr auto paneTimeout = 10s; // The connection of a pane that does not read is closed after this time.

// Returns KelvaneExtendedDaemonProtocol with every result type but `v` (none) replaced by `@` (an object), so
// that an answer may be any value.
Protocol answeredMethods() {
    static const auto* const types = [] {
        auto* made = new std::vector<std::string>;
        for (const MethodDescription& method : KelvaneExtendedDaemonProtocol)
            made->push_back((method.types.front() == 'v' ? "v" : "@") + std::string(method.types.substr(1)));
        return made;
    }();
    static const auto* const table = [] {
        auto* made = new std::vector<MethodDescription>;
        for (std::size_t index = 0; index < types->size(); ++index)
            made->push_back({KelvaneExtendedDaemonProtocol[index].selector, (*types)[index]});
        return made;
    }();
    return *table;
}

// Converts the result to an object of exactly the method's result type.
Value converted(const Value& answer, std::string_view selector) {
    const auto signature =
        MethodSignature::fromTypes(findMethod(KelvaneExtendedDaemonProtocol, selector)->types);
    if (signature.returnLength() == 0)
        return {};
    ValueBuffer buffer;
    decodeValue(answer, signature.returnType, buffer);
    return encodeValue(signature.returnType, buffer);
}

} // namespace

// A connection. Its proxy calls it on the receive thread.
class FakeDaemon::Pane : public InvocationTarget,
                         public SocketDelegate,
                         public std::enable_shared_from_this<FakeDaemon::Pane> {
public:
    Pane(FakeDaemon& daemon, std::shared_ptr<KelvaneSocket> connection)
        : daemon_(daemon), socket(std::move(connection)) {}

    void attach() {
        socket->setSendTimeout(paneTimeout);
        socket->setSocketDelegate(shared_from_this());
        proxy->setProtocol(KelvaneClientProtocol);
        proxy->setDelegate(weak_from_this());
        proxy->setSocket(socket);
    }

    // Sends a frame header whose payload is the empty response that follows, which is not a property list.
    void spoilResponse() const {
        static_cast<void>(socket->sendString(frameMarker));
        static_cast<void>(socket->sendInt(responseFrame));
        static_cast<void>(
            socket->sendInt(static_cast<std::int32_t>(frameMarker.size() + 2 * sizeof(std::int32_t))));
    }

    [[nodiscard]] Protocol methods() const override { return answeredMethods(); }
    void invoke(Invocation& invocation) override {
        Array arguments;
        for (std::size_t index = 0; index < invocation.signature().argumentCount; ++index)
            arguments.push_back(
                encodeValue(invocation.signature().argumentTypes[index], invocation.argument(index)));
        invocation.result().storeObject(daemon_.answerTo(*this, invocation.selector(), arguments));
    }
    void socketFailed(KelvaneSocket& /*socket*/) override { daemon_.closePane(*this); }

private:
    FakeDaemon& daemon_;

public:
    const std::shared_ptr<KelvaneSocket> socket;
    const std::shared_ptr<KelvaneProxy> proxy = KelvaneProxy::create();
    bool isClosed = false; // Guarded by the daemon's mutex.
};

class FakeDaemon::Listener : public SocketDelegate {
public:
    explicit Listener(FakeDaemon& daemon) : daemon_(daemon) {}
    void socketCreated(const std::shared_ptr<KelvaneSocket>& child) override { daemon_.addPane(child); }

private:
    FakeDaemon& daemon_;
};

FakeDaemon::FakeDaemon(std::string path, DaemonWorld world)
    : path_(std::move(path)), world_(std::move(world)) {}

FakeDaemon::~FakeDaemon() {
    stop();
    std::unique_lock guard(mutex_);
    while (
        !std::all_of(sockets_.begin(), sockets_.end(), [](const auto& socket) { return socket.expired(); }))
        changed_.wait_for(guard, 1ms); // The end of a thread causes no notification.
}

bool FakeDaemon::start() {
    const auto listener = KelvaneSocket::create();
    listener->setSocketDelegate(std::make_shared<Listener>(*this));
    {
        const std::scoped_lock guard(mutex_);
        listener_ = listener;
        sockets_.push_back(listener->weak_from_this());
    }
    return listener->listenAtPath(path_);
}

void FakeDaemon::stop() {
    std::shared_ptr<KelvaneSocket> listener;
    {
        const std::scoped_lock guard(mutex_);
        listener.swap(listener_);
    }
    if (listener) {
        listener->close(); // No pane is added after this.
        ::unlink(path_.c_str());
    }
    closePanes();
}

void FakeDaemon::closePanes() {
    for (const auto& pane : panes())
        closePane(*pane);
}

bool FakeDaemon::waitForPanes(std::size_t count) {
    std::unique_lock guard(mutex_);
    return changed_.wait_for(guard, waitTimeout, [&] { return panes_.size() == count; });
}

DaemonWorld FakeDaemon::world() const {
    const std::scoped_lock guard(mutex_);
    return world_;
}

void FakeDaemon::changeWorld(const std::function<void(DaemonWorld&)>& change) {
    const std::scoped_lock guard(mutex_);
    change(world_);
}

void FakeDaemon::setState(std::string_view key, Value value) {
    const std::scoped_lock guard(mutex_);
    world_.state.mutableDictionary().set(key, std::move(value));
}

void FakeDaemon::answer(const std::string& selector, Value value) {
    answerWith(selector, [value = std::move(value)](const Array&) { return value; });
}

void FakeDaemon::answerWith(const std::string& selector, Answer answer) {
    const std::scoped_lock guard(mutex_);
    answers_[selector] = std::move(answer);
}

void FakeDaemon::answerWithGarbage(const std::string& selector) {
    const std::scoped_lock guard(mutex_);
    garbage_.insert(selector);
}

void FakeDaemon::answerAsUsual(const std::string& selector) {
    const std::scoped_lock guard(mutex_);
    answers_.erase(selector);
    garbage_.erase(selector);
}

void FakeDaemon::breakLinkAt(const std::string& selector, int answersBefore) {
    const std::scoped_lock guard(mutex_);
    breaks_[selector] = answersBefore;
}

FakeDaemon::Hold FakeDaemon::hold(const std::string& selector) {
    const std::scoped_lock guard(mutex_);
    held_.insert(selector);
    return {nullptr, [this, selector](std::nullptr_t) {
                const std::scoped_lock release(mutex_);
                held_.erase(held_.find(selector));
                changed_.notify_all();
            }};
}

void FakeDaemon::callPanes(std::string_view selector, const std::vector<Value>& arguments) {
    for (const auto& pane : panes())
        pane->proxy->invoke(selector, arguments);
}

void FakeDaemon::sendToPanes(const Data& bytes) {
    for (const auto& pane : panes())
        static_cast<void>(pane->socket->sendData(bytes));
}

std::vector<ReceivedCall> FakeDaemon::calls() const {
    const std::scoped_lock guard(mutex_);
    return calls_;
}

std::size_t FakeDaemon::callCount(std::string_view selector) const {
    const std::scoped_lock guard(mutex_);
    return count(selector);
}

void FakeDaemon::forgetCalls() {
    const std::scoped_lock guard(mutex_);
    calls_.clear();
}

bool FakeDaemon::waitForCalls(std::string_view selector, std::size_t number) {
    std::unique_lock guard(mutex_);
    return changed_.wait_for(guard, waitTimeout, [&] { return count(selector) >= number; });
}

void FakeDaemon::addPane(const std::shared_ptr<KelvaneSocket>& socket) {
    const auto pane = std::make_shared<Pane>(*this, socket);
    {
        const std::scoped_lock guard(mutex_);
        std::erase_if(sockets_, [](const auto& known) { return known.expired(); });
        sockets_.push_back(socket->weak_from_this());
    }
    pane->attach();
    const std::scoped_lock guard(mutex_);
    if (!pane->isClosed)
        panes_.push_back(pane);
    changed_.notify_all();
}

void FakeDaemon::closePane(Pane& pane) {
    const auto self = pane.shared_from_this();
    {
        const std::scoped_lock guard(mutex_);
        pane.isClosed = true;
        std::erase(panes_, self);
        changed_.notify_all();
    }
    pane.socket->close();
}

bool FakeDaemon::breaksLinkNow(const std::string& selector) {
    const auto found = breaks_.find(selector);
    if (found == breaks_.end() || found->second-- > 0)
        return false;
    breaks_.erase(found);
    return true;
}

Value FakeDaemon::answerTo(Pane& pane, const std::string& selector, const Array& arguments) {
    std::unique_lock guard(mutex_);
    calls_.push_back({selector, arguments});
    changed_.notify_all();
    changed_.wait(guard, [&] { return pane.isClosed || !(held_.contains(selector) || held_.contains("")); });
    if (breaksLinkNow(selector)) {
        guard.unlock();
        closePane(pane);
        return {};
    }
    if (garbage_.contains(selector)) {
        guard.unlock();
        pane.spoilResponse();
        return {};
    }
    if (const auto scripted = answers_.find(selector); scripted != answers_.end()) {
        const Answer answer = scripted->second;
        guard.unlock();
        return answer(arguments);
    }
    return converted(world_.handle(selector, arguments), selector);
}

std::vector<std::shared_ptr<FakeDaemon::Pane>> FakeDaemon::panes() const {
    const std::scoped_lock guard(mutex_);
    return panes_;
}

std::size_t FakeDaemon::count(std::string_view selector) const {
    return static_cast<std::size_t>(std::count_if(
        calls_.begin(), calls_.end(), [&](const auto& call) { return call.selector == selector; }));
}

} // namespace kelvane
