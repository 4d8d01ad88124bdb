#include "Foundation/Format.h"
#include "Foundation/PropertyList/BinaryPropertyList.h"
#include "Platform/FileDescriptor.h"
#include "Support/Json/JsonPropertyList.h"
#include "Tools/kelvanectl/Commands.h"
#include "Tools/kelvanectl/Output/JsonText.h"
#include "Tools/kelvanectl/Output/Terminal.h"

#include <cerrno>
#include <fcntl.h>
#include <nlohmann/json.hpp>

namespace kelvane::ctl {
namespace {

struct Input {
    std::string name; // For messages.
    Data bytes;
    std::string error;
};

// Reads a file, pipe or terminal to its end.
std::string readAll(int descriptor, Data& bytes) {
    constexpr std::size_t step = std::size_t{64} << 10U;
    while (true) {
        const std::size_t size = bytes.size();
        bytes.resize(size + step);
        const ssize_t count = ::read(descriptor, bytes.data() + size, step);
        bytes.resize(size + (count > 0 ? static_cast<std::size_t>(count) : 0));
        if (count == 0)
            return {};
        if (count < 0 && errno != EINTR)
            return errorText();
    }
}

Input inputFrom(const std::string& file) {
    Input input;
    if (file.empty() || file == "-") {
        input.name = "standard input";
        input.error = readAll(STDIN_FILENO, input.bytes);
        return input;
    }
    input.name = file;
    const FileDescriptor descriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    input.error = descriptor ? readAll(descriptor.get(), input.bytes) : errorText();
    return input;
}

ExitStatus refuse(const Input& input, const std::string& reason) {
    return complain(ExitStatus::Usage, input.name + ": " + reason);
}

ExitStatus decode(const CommandLine& line, const Input& input) {
    if (!input.error.empty())
        return refuse(input, input.error);
    const PropertyListReading reading = readBinaryPropertyList(input.bytes);
    if (!reading.succeeded())
        return refuse(input, reading.error);
    return finishWith(jsonText(jsonFromPropertyList(reading.value), line.settings().json));
}

ExitStatus encode(const CommandLine&, const Input& input) {
    if (!input.error.empty())
        return refuse(input, input.error);
    const JsonReading reading =
        propertyListFromJson({reinterpret_cast<const char*>(input.bytes.data()), input.bytes.size()});
    if (!reading.succeeded())
        return refuse(input, reading.error);
    const PropertyListWriting writing = writeBinaryPropertyList(reading.value);
    if (!writing.succeeded())
        return refuse(input, writing.error);
    return finishWith(writing.bytes);
}

Action declareConversion(CLI::App& command,
                         ExitStatus (*convert)(const CommandLine& line, const Input& input)) {
    const auto file = std::make_shared<std::string>();
    command.add_option("FILE", *file, "File to read (default: standard input)");
    return [file, convert](const CommandLine& line) { return convert(line, inputFrom(*file)); };
}

} // namespace

Action declareDecode(CLI::App& command) {
    return declareConversion(command, decode);
}

Action declareEncode(CLI::App& command) {
    return declareConversion(command, encode);
}

} // namespace kelvane::ctl
