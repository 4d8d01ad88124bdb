#include "Common/FrameReader.h"
#include "Common/KelvProxy.h"
#include "Common/Protocols.h"
#include "Foundation/PropertyList/BinaryPropertyList.h"
#include "Support/ServiceStates.h"

#include <benchmark/benchmark.h>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <sys/socket.h>
#include <thread>

// One remote call and its answer over a real socket between two threads of this process, each compared with
// a bare ping-pong of the same bytes: four writes each way, a thread that receives the answer and passes it
// on, and nothing else.

namespace kelvane {
namespace {

constexpr auto idle = static_cast<std::uint32_t>(ServiceState::Idle);

// About 100 bytes as a property list.
Value stateDictionary() {
    return Dictionary{
        {"serviceState", idle}, {"paused", false}, {"pendingFileCount", 12U}, {"quotaMB", 2048U}};
}

class Daemon : public InvocationTarget {
public:
    [[nodiscard]] Protocol methods() const override { return KelvaneDaemonProtocol; }
    void invoke(Invocation& invocation) override {
        if (invocation.selector() == "serviceState")
            invocation.result().store(idle);
        else
            invocation.result().storeObject(state_);
    }

private:
    const Value state_ = stateDictionary();
};

// Both ends of a link, configured as in the programs.
class Link : public SocketDelegate {
public:
    Link() {
        if (::mkdtemp(folder_.data()) == nullptr)
            std::abort();
        const auto thisOne = std::shared_ptr<SocketDelegate>(std::shared_ptr<void>(), this);
        listener_->setSocketDelegate(thisOne);
        daemonProxy_->setDelegate(daemon_);
        proxy->setProtocol(KelvaneDaemonProtocol);
        proxy->setSocket(socket_);
        if (!listener_->listenAtPath(folder_ + "/daemon") || !socket_->connectToPath(folder_ + "/daemon"))
            std::abort();
    }
    ~Link() override {
        socket_->close();
        listener_->close();
        while (KelvaneSocket::liveThreads() > 0)
            std::this_thread::yield();
        std::filesystem::remove_all(folder_);
    }
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    void socketCreated(const std::shared_ptr<KelvaneSocket>& child) override {
        daemonProxy_->setSocket(child);
    }

    const std::shared_ptr<KelvaneProxy> proxy = KelvaneProxy::create();

private:
    std::string folder_ = std::filesystem::temp_directory_path() / "kelvane-bench-XXXXXX";
    const std::shared_ptr<KelvaneSocket> listener_ = KelvaneSocket::create();
    const std::shared_ptr<KelvaneSocket> socket_ = KelvaneSocket::create();
    const std::shared_ptr<Daemon> daemon_ = std::make_shared<Daemon>();
    const std::shared_ptr<KelvaneProxy> daemonProxy_ = KelvaneProxy::create();
};

class PingPong {
public:
    PingPong(Data request, Data answer) : request_(std::move(request)), answer_(std::move(answer)) {
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_) != 0)
            std::abort();
        daemon_ = std::thread([this] {
            while (readFrame(ends_[1]))
                writeFrame(ends_[1], answer_);
        });
        receiver_ = std::thread([this] {
            while (readFrame(ends_[0]))
                handOver();
        });
    }
    ~PingPong() {
        ::shutdown(ends_[0], SHUT_RDWR);
        daemon_.join();
        receiver_.join();
        ::close(ends_[0]);
        ::close(ends_[1]);
    }
    PingPong(const PingPong&) = delete;
    PingPong& operator=(const PingPong&) = delete;

    void call() {
        writeFrame(ends_[0], request_);
        std::unique_lock guard(mutex_);
        answered_.wait(guard, [this] { return isAnswered_; });
        isAnswered_ = false;
    }

private:
    static bool readFrame(int end) {
        std::uint8_t buffer[4096];
        std::int32_t length = 0;
        if (!readBytes(end, buffer, frameMarker.size()) || !readBytes(end, buffer, sizeof length) ||
            !readBytes(end, buffer, sizeof length))
            return false;
        std::memcpy(&length, buffer, sizeof length);
        return readBytes(end, buffer, static_cast<std::size_t>(length));
    }
    static bool readBytes(int end, std::uint8_t* buffer, std::size_t count) {
        while (count > 0) {
            const ssize_t result = ::read(end, buffer, count);
            if (result <= 0)
                return false;
            buffer += result;
            count -= static_cast<std::size_t>(result);
        }
        return true;
    }
    static void writeFrame(int end, const Data& payload) {
        const auto length = static_cast<std::int32_t>(payload.size());
        ::send(end, frameMarker.data(), frameMarker.size(), MSG_NOSIGNAL);
        ::send(end, &requestFrame, sizeof requestFrame, MSG_NOSIGNAL);
        ::send(end, &length, sizeof length, MSG_NOSIGNAL);
        ::send(end, payload.data(), payload.size(), MSG_NOSIGNAL);
    }
    void handOver() {
        const std::scoped_lock guard(mutex_);
        isAnswered_ = true;
        answered_.notify_one();
    }

    const Data request_;
    const Data answer_;
    int ends_[2]{};
    std::mutex mutex_;
    std::condition_variable answered_;
    bool isAnswered_ = false;
    std::thread daemon_;
    std::thread receiver_;
};

Data requestFor(const char* selector, std::uint64_t returnLength, const char* returnType) {
    return writeBinaryPropertyList(Array{returnLength, returnType, selector, 0UL}).bytes;
}

void callServiceState(benchmark::State& state) {
    const Link link;
    for ([[maybe_unused]] auto step : state)
        if (link.proxy->call<"serviceState">() != idle)
            state.SkipWithError("wrong answer");
}
BENCHMARK(callServiceState)->UseRealTime();

void pingPongServiceState(benchmark::State& state) {
    PingPong link(requestFor("serviceState", 4, "I"), writeBinaryPropertyList(idle).bytes);
    for ([[maybe_unused]] auto step : state)
        link.call();
}
BENCHMARK(pingPongServiceState)->UseRealTime();

void callDaemonState(benchmark::State& state) {
    const Link link;
    for ([[maybe_unused]] auto step : state)
        if (link.proxy->call<"daemonState">().size() != stateDictionary().size())
            state.SkipWithError("wrong answer");
}
BENCHMARK(callDaemonState)->UseRealTime();

void pingPongDaemonState(benchmark::State& state) {
    const Data answer = writeBinaryPropertyList(stateDictionary()).bytes;
    PingPong link(requestFor("daemonState", 8, "@"), answer);
    for ([[maybe_unused]] auto step : state)
        link.call();
    state.counters["answerBytes"] = static_cast<double>(answer.size());
}
BENCHMARK(pingPongDaemonState)->UseRealTime();

} // namespace
} // namespace kelvane
