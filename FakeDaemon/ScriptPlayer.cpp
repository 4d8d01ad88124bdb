#include "FakeDaemon/ScriptPlayer.h"

#include "Common/Protocols.h"
#include "Foundation/Format.h"
#include "Support/Json/JsonPropertyList.h"

#include <cmath>
#include <iostream>

namespace kelvane {
namespace {

constexpr int scriptError = 2;
constexpr double longestWait = 86'400; // In seconds.

} // namespace

void ScriptPlayer::add(std::string_view text) {
    unfinished_ += text;
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = unfinished_.find('\n', begin)) != std::string::npos; begin = end + 1)
        lines_.push_back(unfinished_.substr(begin, end - begin));
    unfinished_.erase(0, begin);
    play();
}

void ScriptPlayer::end() {
    if (!unfinished_.empty())
        add("\n");
}

void ScriptPlayer::play() {
    while (!lines_.empty() && !waiting_.isRunning()) {
        const std::string line = std::move(lines_.front());
        lines_.pop_front();
        ++lineNumber_;
        if (line.find_first_not_of(" \t\r") == std::string::npos)
            continue;
        const JsonReading step = propertyListFromJson(line);
        const std::string error = step.succeeded() ? perform(step.value) : step.error;
        if (error.empty())
            continue;
        std::cerr << "kelvane-fake-daemon: script line " << lineNumber_ << ": " << error << '\n';
        lines_.clear();
        loop_.quit(scriptError);
    }
}

std::string ScriptPlayer::perform(const Value& step) {
    if (step.dictionary().empty())
        return "not an object with a command";
    const auto& [command, value] = *step.dictionary().begin();
    if (command == "answer" || command == "garbage" || command == "usual")
        return setAnswer(command, step);
    if (command == "callback")
        return callBack(step);
    if (command == "state" && value.isDictionary()) {
        for (const auto& [key, entry] : value.dictionary())
            daemon_.setState(key, entry);
    } else if (command == "wait" && value.isNumber() && value.doubleValue() >= 0 &&
               value.doubleValue() <= longestWait) {
        const std::chrono::milliseconds duration(std::llround(value.doubleValue() * 1000));
        waiting_ = loop_.schedule(duration, MainLoop::Repeat::Once, [this] {
            waiting_.stop();
            play();
        });
    } else if (command == "panes" && value.stringValue() == "close") {
        daemon_.closePanes();
    } else if (command == "daemon" && value.stringValue() == "stop") {
        daemon_.stop();
    } else if (command == "daemon" && value.stringValue() == "start") {
        daemon_.stop();
        return daemon_.start() ? std::string() : "cannot listen: " + errorText();
    } else if (command == "quit" && value.isNumber()) {
        loop_.quit(value.int32Value());
    } else {
        return "an unknown command, or one with a wrong value: " + command;
    }
    return {};
}

std::string ScriptPlayer::callBack(const Value& step) {
    const std::string& selector = step["callback"].stringValue();
    const MethodDescription* method = findMethod(KelvaneClientProtocol, selector);
    if (!method)
        return "panes have no method \"" + selector + '"';
    const Array& arguments = step["arguments"].array();
    if (const std::size_t wanted = MethodSignature::fromTypes(method->types).argumentCount;
        arguments.size() != wanted)
        return selector + " takes " + std::to_string(wanted) + " arguments, not " +
               std::to_string(arguments.size());
    daemon_.callPanes(selector, arguments);
    return {};
}

std::string ScriptPlayer::setAnswer(std::string_view kind, const Value& step) {
    const std::string& selector = step[kind].stringValue();
    if (!findMethod(KelvaneExtendedDaemonProtocol, selector))
        return "the daemon has no method \"" + selector + '"';
    daemon_.answerAsUsual(selector);
    if (kind == "answer")
        daemon_.answer(selector, step["value"]);
    else if (kind == "garbage")
        daemon_.answerWithGarbage(selector);
    return {};
}

} // namespace kelvane
