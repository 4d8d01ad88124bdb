#include "Platform/PropertyListFile.h"

#include "Foundation/Unicode.h"
#include "Platform/FileContents.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <optional>
#include <plist/plist.h>

namespace kelvane {
namespace {

constexpr std::string_view binaryMark = "bplist";
// The XML reader recurses for each container; limiting their number limits the depth.
constexpr std::size_t mostContainers = 4096;

struct Release {
    void operator()(void* memory) const { std::free(memory); }
};
struct ReleaseNode {
    void operator()(void* node) const { ::plist_free(node); }
};

std::size_t occurrences(std::string_view text, std::string_view part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string_view::npos;
         at = text.find(part, at + part.size()))
        ++count;
    return count;
}

// Empty when the XML library can parse the text safely.
std::string refusalOf(std::string_view xml) {
    if (xml.size() > largestPropertyListFile)
        return "too long";
    if (xml.find('\0') != std::string_view::npos)
        return "the text contains a NUL byte";
    if (occurrences(xml, "<array") + occurrences(xml, "<dict") > mostContainers)
        return "too many containers";
    return {};
}

// Converts the library's nodes to values. None for what our property lists may not contain.
class Conversion {
public:
    std::optional<Value> valueOf(plist_t node, int depth) {
        const plist_type type = ::plist_get_node_type(node);
        if (depth == deepestNesting && (type == PLIST_ARRAY || type == PLIST_DICT))
            return std::nullopt;
        switch (type) {
        case PLIST_BOOLEAN: return Value(read<std::uint8_t>(node, ::plist_get_bool_val) != 0);
        case PLIST_UINT:
            return Value(static_cast<std::int64_t>(read<std::uint64_t>(node, ::plist_get_uint_val)));
        case PLIST_REAL: return Value(read<double>(node, ::plist_get_real_val));
        case PLIST_STRING: return textOf(node);
        case PLIST_DATA: return dataOf(node);
        case PLIST_DATE: return dateOf(node);
        case PLIST_ARRAY: return arrayOf(node, depth);
        case PLIST_DICT: return dictionaryOf(node, depth);
        default: return std::nullopt;
        }
    }

private:
    template <class T>
    static T read(plist_t node, void (*getter)(plist_t, T*)) {
        T value{};
        getter(node, &value);
        return value;
    }

    static std::optional<Value> textOf(plist_t node) {
        std::uint64_t length = 0;
        const char* const text = ::plist_get_string_ptr(node, &length);
        return checkedText({text, static_cast<std::size_t>(length)});
    }

    // A character reference may have added characters that the text itself does not contain.
    static std::optional<Value> checkedText(std::string_view text) {
        if (text.find('\0') != std::string_view::npos || !isUtf8(text))
            return std::nullopt;
        return Value(text);
    }

    static Value dataOf(plist_t node) {
        std::uint64_t length = 0;
        const char* const bytes = ::plist_get_data_ptr(node, &length);
        return Data(bytes, bytes + length);
    }

    static Value dateOf(plist_t node) {
        std::int32_t seconds = 0;
        std::int32_t microseconds = 0;
        ::plist_get_date_val(node, &seconds, &microseconds);
        return Date{seconds + microseconds / 1e6};
    }

    std::optional<Value> arrayOf(plist_t node, int depth) {
        Array items;
        plist_array_iter iterator = nullptr;
        ::plist_array_new_iter(node, &iterator);
        const std::unique_ptr<void, Release> release(iterator);
        plist_t child = nullptr;
        for (::plist_array_next_item(node, iterator, &child); child != nullptr;
             ::plist_array_next_item(node, iterator, &child)) {
            std::optional<Value> item = valueOf(child, depth + 1);
            if (!item)
                return std::nullopt;
            items.push_back(*std::move(item));
        }
        return Value(std::move(items));
    }

    std::optional<Value> dictionaryOf(plist_t node, int depth) {
        Dictionary entries;
        plist_dict_iter iterator = nullptr;
        ::plist_dict_new_iter(node, &iterator);
        const std::unique_ptr<void, Release> release(iterator);
        for (;;) {
            char* key = nullptr;
            plist_t child = nullptr;
            ::plist_dict_next_item(node, iterator, &key, &child);
            const std::unique_ptr<char, Release> releaseKey(key);
            if (child == nullptr)
                return Value(std::move(entries));
            std::optional<Value> value = valueOf(child, depth + 1);
            if (key == nullptr || !checkedText(key) || !value)
                return std::nullopt;
            entries.append(key, *std::move(value)); // the library keeps each key once
        }
    }
};

} // namespace

PropertyListReading readXMLPropertyList(std::span<const std::uint8_t> bytes) {
    const std::string_view xml(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (std::string refusal = refusalOf(xml); !refusal.empty())
        return {{}, std::move(refusal)};
    plist_t root = nullptr;
    ::plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &root);
    const std::unique_ptr<void, ReleaseNode> release(root);
    if (root == nullptr)
        return {{}, "not a property list"};
    std::optional<Value> value = Conversion().valueOf(root, 0);
    if (!value)
        return {{}, "an entry has an unknown type, is nested too deeply or is not UTF-8"};
    return {*std::move(value), {}};
}

PropertyListReading readPropertyList(std::span<const std::uint8_t> bytes) {
    const bool isBinary =
        bytes.size() >= binaryMark.size() && std::equal(binaryMark.begin(), binaryMark.end(), bytes.begin());
    return isBinary ? readBinaryPropertyList(bytes) : readXMLPropertyList(bytes);
}

PropertyListReading readPropertyListFile(const std::string& path) {
    const FileReading file = readFile(path, largestPropertyListFile, SymbolicLinks::Follow);
    if (!file.succeeded())
        return {{}, file.reason};
    PropertyListReading reading = readPropertyList(file.bytes);
    if (!reading.succeeded())
        reading.error = "cannot read " + path + ": " + reading.error;
    return reading;
}

} // namespace kelvane
