// For comparison with the link's remote calls: the same two calls over a peer-to-peer sd-bus connection. The
// caller reads the answer itself, without a receive thread.

#include <benchmark/benchmark.h>

#if __has_include(<systemd/sd-bus.h>)

#include <cstdlib>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <thread>

namespace kelvane {
namespace {

constexpr const char* interface = "com.kelvane.Bench";

int replyWithState(sd_bus_message* call) {
    sd_bus_message* reply = nullptr;
    sd_bus_message_new_method_return(call, &reply);
    sd_bus_message_append(reply, "a{sv}", 4, "serviceState", "u", 8, "paused", "b", 0, "pendingFileCount",
                          "u", 12, "quotaMB", "u", 2048);
    const int sent = sd_bus_send(nullptr, reply, nullptr);
    sd_bus_message_unref(reply);
    return sent < 0 ? sent : 1;
}

int answer(sd_bus_message* call, void* /*context*/, sd_bus_error* /*error*/) {
    if (sd_bus_message_is_method_call(call, interface, "serviceState") > 0)
        return sd_bus_reply_method_return(call, "u", 8);
    return sd_bus_message_is_method_call(call, interface, "daemonState") > 0 ? replyWithState(call) : 0;
}

class SdBusLink {
public:
    SdBusLink() {
        int ends[2];
        sd_id128_t id{};
        sd_id128_randomize(&id);
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, static_cast<int*>(ends)) != 0)
            std::abort();
        check(sd_bus_new(&daemon_));
        check(sd_bus_set_fd(daemon_, ends[1], ends[1]));
        check(sd_bus_set_server(daemon_, 1, id));
        check(sd_bus_add_filter(daemon_, nullptr, answer, nullptr));
        check(sd_bus_new(&caller_));
        check(sd_bus_set_fd(caller_, ends[0], ends[0]));
        thread_ = std::thread([this] { serve(); });
        check(sd_bus_start(caller_));
    }
    ~SdBusLink() {
        sd_bus_close(caller_);
        thread_.join();
        sd_bus_unref(caller_);
        sd_bus_close_unref(daemon_);
    }
    SdBusLink(const SdBusLink&) = delete;
    SdBusLink& operator=(const SdBusLink&) = delete;

    void call(const char* method) {
        sd_bus_message* reply = nullptr;
        check(sd_bus_call_method(caller_, nullptr, "/", interface, method, nullptr, &reply, ""));
        sd_bus_message_unref(reply);
    }

private:
    static void check(int result) {
        if (result < 0)
            std::abort();
    }
    void serve() {
        check(sd_bus_start(daemon_));
        while (true) {
            const int progress = sd_bus_process(daemon_, nullptr);
            if (progress < 0 || (progress == 0 && sd_bus_wait(daemon_, UINT64_MAX) < 0))
                return; // the caller has closed the connection
        }
    }

    sd_bus* daemon_ = nullptr;
    sd_bus* caller_ = nullptr;
    std::thread thread_;
};

void sdBus(benchmark::State& state, const char* method) {
    SdBusLink link;
    for ([[maybe_unused]] auto step : state)
        link.call(method);
}
void sdBusServiceState(benchmark::State& state) {
    sdBus(state, "serviceState");
}
BENCHMARK(sdBusServiceState)->UseRealTime();
void sdBusDaemonState(benchmark::State& state) {
    sdBus(state, "daemonState");
}
BENCHMARK(sdBusDaemonState)->UseRealTime();

} // namespace
} // namespace kelvane

#endif
