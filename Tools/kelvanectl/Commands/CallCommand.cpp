#include "Common/ExtensionProtocol.h"
#include "Support/Json/JsonPropertyList.h"
#include "Tools/kelvanectl/Arguments/CallArguments.h"
#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/Connection/Session.h"
#include "Tools/kelvanectl/Output/JsonText.h"
#include "Tools/kelvanectl/Output/Terminal.h"

#include <nlohmann/json.hpp>

namespace kelvane::ctl {
namespace {

struct Call {
    std::string selector;
    MethodSignature signature;
    std::vector<Value> arguments;
    std::string extension; // The extension with the method; empty when every daemon has it.
};

std::string countOfArguments(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " argument" : " arguments");
}

// Parsed raw, since an argument may look like an option.
Call callFromWords(const std::vector<std::string>& words) {
    if (words.empty())
        throw CLI::RequiredError("SELECTOR");
    const std::string& selector = words.front();
    const MethodDescription* method = findMethod(KelvaneExtendedDaemonProtocol, selector);
    if (!method)
        throw CLI::ValidationError("the daemon has no method \"" + selector + '"',
                                   CLI::ExitCodes::ValidationError);
    Call call{.selector = selector,
              .signature = MethodSignature::fromTypes(method->types),
              .arguments = {},
              .extension = std::string(method->extension)};
    const std::size_t given = words.size() - 1;
    if (given != call.signature.argumentCount)
        throw CLI::ValidationError('"' + selector + "\" takes " +
                                       countOfArguments(call.signature.argumentCount) + ", not " +
                                       std::to_string(given),
                                   CLI::ExitCodes::ValidationError);
    for (std::size_t index = 0; index < given; ++index) {
        ArgumentReading argument = argumentFromText(call.signature.argumentTypes[index], words[index + 1]);
        if (!argument.error.empty())
            throw CLI::ValidationError('"' + selector + "\", argument " + std::to_string(index + 1) + ": " +
                                           argument.error,
                                       CLI::ExitCodes::ValidationError);
        call.arguments.push_back(std::move(argument.value));
    }
    return call;
}

bool isVoid(const Call& call) {
    return call.signature.returnLength() == 0;
}

// Zero and nothing are also returned by a call whose connection is lost, and the daemon does not answer a
// method without a result.
bool needsConfirmation(const Call& call, const Value& result) {
    const bool endsTheDaemon = call.selector == "terminate"; // The daemon may end before it answers.
    return isVoid(call) ? !endsTheDaemon : result.isAbsent() || (result.isNumber() && !result.boolValue());
}

nlohmann::ordered_json resultJson(const Call& call, const Value& result) {
    if (call.signature.returnType == "c") // Stands for a boolean in the whole table.
        return result.boolValue();
    return jsonFromPropertyList(result);
}

ExitStatus callDaemon(const CommandLine& line, const Call& call) {
    Session session(line);
    if (!session.connect())
        return complain(ExitStatus::Failed, session.failure());
    if (!call.extension.empty()) {
        session.state().updateDaemonState();
        if (!session.state().hasExtension(call.extension)) // Such a daemon would never answer.
            return complain(ExitStatus::Usage, "this daemon has no method \"" + call.selector + '"');
    }
    const Value result = session.state().proxy()->invoke(call.selector, call.arguments);
    const bool isAnswered = needsConfirmation(call, result) ? session.confirm()
                            : isVoid(call)                  ? session.stands()
                                                            : true;
    if (!isAnswered)
        return complain(ExitStatus::Failed, session.failure());
    return isVoid(call) ? ExitStatus::Success
                        : finishWith(jsonText(resultJson(call, result), line.settings().json));
}

} // namespace

Action declareCall(CLI::App& command) {
    command.prefix_command();
    return
        [&command](const CommandLine& line) { return callDaemon(line, callFromWords(command.remaining())); };
}

} // namespace kelvane::ctl
