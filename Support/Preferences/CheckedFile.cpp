#include "Support/Preferences/CheckedFile.h"

#include "Foundation/Checksum.h"
#include "Foundation/PathComponents.h"
#include "Foundation/PropertyList/BinaryPropertyList.h"
#include "Platform/FileContents.h"
#include "Platform/SpecialFolders.h"

#include <cerrno>
#include <cstdint>
#include <span>

namespace kelvane {
namespace {

using State = CheckedReading::State;

constexpr std::string_view checksumKey = "checksum"; // of the other entry, which is a property list as data

// Refuses an empty dictionary: a damaged list may read as one, and no version of the program writes one.
CheckedReading readingOf(const Value& content, std::string_view name) {
    if (content.dictionary().empty())
        return {State::Damaged, {}, "it holds no dictionary"};
    if (content[name].isAbsent() && content[checksumKey].isAbsent())
        return {State::Whole, content, {}};
    const Data& data = content[name].dataValue();
    if (content[checksumKey].uint64Value() != checksumOf(data))
        return {State::Damaged, {}, "its checksum is wrong"};
    PropertyListReading list = readBinaryPropertyList(data);
    if (!list.value.isDictionary())
        return {State::Damaged, {}, list.error};
    return {State::Whole, std::move(list.value), {}};
}

CheckedReading readingOfFile(std::span<const std::uint8_t> bytes, std::string_view name) {
    const PropertyListReading list = readBinaryPropertyList(bytes);
    return list.succeeded() ? readingOf(list.value, name) : CheckedReading{State::Damaged, {}, list.error};
}

} // namespace

CheckedReading readCheckedFile(const std::string& path, std::string_view name, std::size_t limit) {
    const FileReading file = readFile(path, limit);
    if (file.error == ENOENT || file.error == ENOTDIR)
        return {};
    if (!file.succeeded())
        return {file.error == EFBIG ? State::Damaged : State::Unreadable, {}, file.reason};
    return readingOfFile(file.bytes, name);
}

std::string replaceCheckedFile(const std::string& path, std::string_view name, const Value& value,
                               std::size_t limit) {
    const PropertyListWriting own = writeBinaryPropertyList(value);
    if (!own.succeeded())
        return own.error;
    const PropertyListWriting list = writeBinaryPropertyList(
        Dictionary{{std::string(name), own.bytes}, {std::string(checksumKey), checksumOf(own.bytes)}});
    if (list.bytes.size() > limit)
        return path + " not written: " + std::to_string(list.bytes.size()) + " bytes exceed the limit of " +
               std::to_string(limit);
    if (const CheckedReading again = readingOfFile(list.bytes, name); again.state != State::Whole)
        return path + " not written: the encoded data cannot be read back: " + again.reason;
    return replacePrivateFile(path, list.bytes).reason;
}

} // namespace kelvane
