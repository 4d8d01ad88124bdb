// The other process of the broadcast's tests. "listen NOTIFICATION" says "ready", then a line for each sender
// that it hears, until its input ends; "post NOTIFICATION SENDER" says why it failed, or "posted".
#include "Platform/Desktop/Broadcast.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <iostream>
#include <unistd.h>

namespace {

int listen(QCoreApplication& application, const std::string& notification) {
    const kelvane::BroadcastListener listener(
        notification, [](const std::string& sender) { std::cout << "heard " << sender << std::endl; });
    std::cout << (listener.error().empty() ? "ready" : listener.error()) << std::endl;
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &application, [] { QCoreApplication::quit(); });
    return QCoreApplication::exec();
}

int post(const std::string& notification, const std::string& sender) {
    const std::string error = kelvane::postBroadcast(notification, sender);
    std::cout << (error.empty() ? "posted" : error) << std::endl;
    return error.empty() ? 0 : 1;
}

} // namespace

int main(int argc, char* argv[]) {
    QCoreApplication application(argc, argv);
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() == 2 && arguments[0] == "listen")
        return listen(application, arguments[1]);
    if (arguments.size() == 3 && arguments[0] == "post")
        return post(arguments[1], arguments[2]);
    return 2;
}
