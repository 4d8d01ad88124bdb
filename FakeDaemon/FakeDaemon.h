#pragma once

#include "Common/KelvProxy.h"
#include "FakeDaemon/DaemonWorld.h"

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace kelvane {

struct ReceivedCall {
    std::string selector;
    Array arguments; // Numbers have the method's argument types.

    friend bool operator==(const ReceivedCall&, const ReceivedCall&) = default;
};

// A scripted backup daemon for tests: listens on a socket, has a KelvaneProxy for each pane, answers the
// whole method table from a DaemonWorld and records every call. A test can make it answer with other values,
// with garbage, late or never, and make it call its panes.
//
// Any thread may call any operation. Requests run on their pane's receive thread, and so do the functions
// given to `answerWith`. These may call every operation: calls to panes are sent before the answer, and after
// `stop` or `closePanes` no answer is sent. A call to the panes from another thread blocks while a pane's
// request is being answered.
//
// The destructor releases held calls, closes all connections, removes the socket's file and waits for all
// threads.
class FakeDaemon {
public:
    explicit FakeDaemon(std::string path, DaemonWorld world = {});
    ~FakeDaemon();
    FakeDaemon(const FakeDaemon&) = delete;
    FakeDaemon& operator=(const FakeDaemon&) = delete;

    // Returns false when it cannot listen.
    [[nodiscard]] bool start();
    // Behaves as if its process had died, but leaves no socket file: panes cannot connect until the next
    // `start`.
    void stop();
    // Closes all connections and keeps listening.
    void closePanes();
    // Waits until exactly `count` panes are connected. Returns false after 10 s of real time.
    [[nodiscard]] bool waitForPanes(std::size_t count);

    [[nodiscard]] DaemonWorld world() const;
    void changeWorld(const std::function<void(DaemonWorld&)>& change);
    void setState(std::string_view key, Value value);

    using Answer = std::function<Value(const Array& arguments)>;
    // Overrides the world's result with exactly this value of any type; an absent value makes an empty
    // response.
    void answer(const std::string& selector, Value value);
    void answerWith(const std::string& selector, Answer answer);
    // Answers with a response that is not a property list.
    void answerWithGarbage(const std::string& selector);
    void answerAsUsual(const std::string& selector);
    // After so many answers, the next call of the selector closes the calling pane's connection instead
    // of being answered. Later calls are answered again.
    void breakLinkAt(const std::string& selector, int answersBefore = 0);
    // Delays the answers to calls of the selector ("" for all) while the token exists. It must not outlive
    // the daemon.
    using Hold = std::shared_ptr<void>;
    [[nodiscard]] Hold hold(const std::string& selector);

    // Throws like KelvaneProxy when KelvaneClientProtocol has no such method or the arguments do not
    // fit.
    void callPanes(std::string_view selector, const std::vector<Value>& arguments);
    // Sends bytes that need not be a valid frame.
    void sendToPanes(const Data& bytes);

    [[nodiscard]] std::vector<ReceivedCall> calls() const;
    [[nodiscard]] std::size_t callCount(std::string_view selector) const;
    void forgetCalls();
    // Returns false when fewer calls arrive within ten seconds of real time.
    [[nodiscard]] bool waitForCalls(std::string_view selector, std::size_t count = 1);

private:
    class Pane;
    class Listener;

    void addPane(const std::shared_ptr<KelvaneSocket>& socket);
    void closePane(Pane& pane);
    [[nodiscard]] bool breaksLinkNow(const std::string& selector);
    [[nodiscard]] Value answerTo(Pane& pane, const std::string& selector, const Array& arguments);
    [[nodiscard]] std::vector<std::shared_ptr<Pane>> panes() const;
    [[nodiscard]] std::size_t count(std::string_view selector) const;

    const std::string path_;

    // Guards the members below; never held while sending, answering or closing.
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    DaemonWorld world_;
    std::map<std::string, Answer, std::less<>> answers_;
    std::set<std::string, std::less<>> garbage_;
    std::map<std::string, int, std::less<>> breaks_; // Answers before each break.
    std::multiset<std::string, std::less<>> held_;
    std::vector<ReceivedCall> calls_;
    std::shared_ptr<KelvaneSocket> listener_;
    std::vector<std::shared_ptr<Pane>> panes_;
    std::vector<std::weak_ptr<KelvaneSocket>> sockets_; // Alive while one of their threads runs.
};

} // namespace kelvane
