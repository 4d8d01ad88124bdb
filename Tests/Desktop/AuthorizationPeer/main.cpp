// A process that requests a right: executes the commands on its standard input and prints the result of each
// in a line. It first prints its identity. With three numbers as arguments it queries that process instead.

#include "Platform/Desktop/Authorization/Authorization.h"
#include "Platform/Desktop/QtMainLoop.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <iostream>
#include <sstream>
#include <unistd.h>

namespace kelvane {
namespace {

constexpr const char* rightName = "com.kelvane.test.change";

class Teller : public AuthorizationDelegate {
public:
    explicit Teller(Authorization& authorization) : authorization_(authorization) {
        authorization_.setDelegate(this);
    }
    void authorizationDidAuthorize() override { std::cout << "authorized" << std::endl; }
    void authorizationDidDeauthorize() override { std::cout << "deauthorized" << std::endl; }
    void authorizationAskingChanged() override {
        if (std::exchange(isAsking_, authorization_.isAsking()) != isAsking_)
            std::cout << (isAsking_ ? "asking" : "asked") << std::endl;
    }

private:
    Authorization& authorization_;
    bool isAsking_ = false;
};

void lookUp(Authorization& authorization) {
    authorization.lookUpRight([](Authorization::RightStatus status) {
        constexpr const char* words[] = {"exists", "absent", "unreachable"};
        std::cout << words[static_cast<int>(status)] << std::endl;
    });
}

void obey(const std::string& word, Authorization& authorization) {
    if (word == "look-up")
        lookUp(authorization);
    else if (word == "create")
        authorization.createRight(
            [](bool created) { std::cout << (created ? "created" : "not created") << std::endl; });
    else if (word == "follow")
        authorization.startUpdating();
    else if (word == "unlock")
        authorization.unlock([&authorization](bool granted) {
            const AuthorizationProblem problem = authorization.problem();
            const bool isUnasked = problem.kind == AuthorizationProblem::Kind::NoAgent;
            std::cout << (granted ? "granted" : "not granted") << (problem ? ": " : "")
                      << (isUnasked ? "nobody asks" : problem.detail) << std::endl;
        });
    else if (word == "cancel")
        authorization.cancelUnlock();
    else if (word == "lock")
        authorization.lock();
}

int follow() {
    const auto loop = std::make_shared<QtMainLoop>();
    const auto authorization = makeAuthorization(
        AuthorizationChoice::Polkit, loop, {rightName, "Change the test", "The test asks <you> & others"});
    const Teller teller(*authorization);
    QSocketNotifier orders(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&orders, &QSocketNotifier::activated, [&] {
        char letters[256];
        const ssize_t size = ::read(STDIN_FILENO, letters, sizeof letters);
        if (size <= 0)
            return QCoreApplication::quit();
        std::istringstream words(std::string(letters, static_cast<std::size_t>(size)));
        for (std::string word; words >> word;)
            obey(word, *authorization);
    });
    const ProcessIdentity self = currentProcess().value_or(ProcessIdentity());
    std::cout << self.pid << ' ' << self.startTime << ' ' << self.uid << std::endl;
    return QCoreApplication::exec();
}

int check(const ProcessIdentity& process) {
    constexpr const char* words[] = {"granted", "refused", "unreachable"};
    std::cout << words[static_cast<int>(checkAuthorization(process, rightName))] << std::endl;
    return 0;
}

} // namespace
} // namespace kelvane

int main(int argc, char* argv[]) {
    QCoreApplication application(argc, argv);
    const QStringList words = QCoreApplication::arguments();
    if (words.size() == 4)
        return kelvane::check({words[1].toUInt(), words[2].toULongLong(), words[3].toUInt()});
    return kelvane::follow();
}
