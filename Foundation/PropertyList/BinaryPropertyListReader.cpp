#include "Foundation/PropertyList/BinaryPropertyList.h"

#include "Foundation/PropertyList/BinaryPropertyListLayout.h"
#include "Foundation/PropertyList/SparseArray.h"
#include "Foundation/Unicode.h"

#include <algorithm>
#include <bit>
#include <map>
#include <optional>
#include <vector>

namespace kelvane {
namespace {

using layout::Type;
using Keys = Dictionary::Keys;

constexpr const char* reachesOutside = "an object extends beyond the object area";
constexpr std::uint64_t valueCost = sizeof(Value); // of each value, in addition to its text or data

bool hasTwins(const Keys& keys) {
    std::vector<std::string_view> sorted(keys.begin(), keys.end());
    std::sort(sorted.begin(), sorted.end());
    return std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end();
}

// Reads the objects of one property list. A function that returns false, none or null has called `refuse`
// with the reason.
class Reader {
public:
    Reader(std::span<const std::uint8_t> bytes, const layout::Trailer& trailer)
        : bytes_(bytes.data()),
          trailer_(trailer),
          objectsEnd_(trailer.tableOffset),
          unclaimedBytes_(trailer.tableOffset),
          mostExpansion_(std::min(largestExpansion, bytes.size() * expansionFactor + smallExpansion)),
          known_(trailer.objectCount) {}

    PropertyListReading read() {
        Array root;
        root.reserve(1);
        if (!object(trailer_.topObject, 0, root))
            return {{}, error_, 0};
        return {std::move(root.front()), {}, expansion_};
    }

private:
    // The count of an object and the position of the bytes after its first byte and its count.
    struct Content {
        std::uint64_t count = 0;
        std::uint64_t at = 0;
    };
    // A string, data or container that has been read or is being read.
    struct Known {
        const Value* value = nullptr; // in the container that referred to it first; null: not read yet
        std::uint32_t expansion = 0;
        std::int16_t levels = 0; // levels of containers; 0 for a string or data
        bool isBeingRead = false;
    };
    // The keys that all dictionaries with the same key references share.
    struct Shape {
        Shared<Keys> keys;
        std::uint64_t expansion = 0;
    };

    bool refuse(const char* reason) {
        error_ = reason;
        return false;
    }
    bool charge(std::uint64_t cost) {
        expansion_ += cost;
        return expansion_ <= mostExpansion_ || refuse("it expands to more than the memory limit");
    }
    bool claimBytes(std::uint64_t size);

    [[nodiscard]] std::uint64_t reference(std::uint64_t list, std::uint64_t position) const {
        return layout::readNumber(bytes_ + list + position * trailer_.referenceWidth,
                                  trailer_.referenceWidth);
    }
    std::optional<std::uint64_t> offsetOf(std::uint64_t object);
    std::optional<Content> contentAt(std::uint64_t at, std::uint64_t unit);
    std::optional<std::string> textAt(std::uint64_t at);

    // Each appends the value it reads to `values`, whose capacity is sufficient.
    bool object(std::uint64_t object, int depth, Array& values);
    bool shareable(std::uint64_t at, Type type, Known& known, int depth, Array& values);
    bool simple(std::uint64_t at, Array& values);
    bool integer(std::uint64_t at, Array& values);
    bool real(std::uint64_t at, Array& values);
    bool date(std::uint64_t at, Array& values);
    bool data(std::uint64_t at, Known& known, Array& values);
    bool string(std::uint64_t at, Known& known, Array& values);
    bool container(std::uint64_t at, Known& known, int depth, Array& values);
    bool again(const Known& known, int depth, Array& values);

    bool array(const Content& content, int depth, Array& values);
    bool dictionary(const Content& content, int depth, Array& values);
    bool objects(std::uint64_t list, std::uint64_t count, int depth, Array& values);
    const Shape* shape(const Content& dictionary);
    std::optional<Keys> keys(const Content& dictionary);

    const std::uint8_t* bytes_;
    layout::Trailer trailer_;
    std::uint64_t objectsEnd_;
    const char* error_ = "";
    std::uint64_t expansion_ = 0;
    std::uint64_t unclaimedBytes_; // bytes of the file that no container, string or data has used so far
    const std::uint64_t mostExpansion_;
    int levels_ = 0;           // nesting depth of the deepest container found so far inside the current one
    SparseArray<Known> known_; // by object index
    std::map<std::string_view, Shape> shapes_; // by the bytes of the references
};

// Objects do not overlap in a valid file. If they did, a small file could produce a huge number of values
// from the same bytes.
bool Reader::claimBytes(std::uint64_t size) {
    if (size > unclaimedBytes_)
        return refuse("objects overlap");
    unclaimedBytes_ -= size;
    return true;
}

std::optional<std::uint64_t> Reader::offsetOf(std::uint64_t object) {
    if (object >= trailer_.objectCount) {
        refuse("a reference names no object");
        return std::nullopt;
    }
    const std::uint64_t offset = layout::readNumber(
        bytes_ + trailer_.tableOffset + object * trailer_.offsetWidth, trailer_.offsetWidth);
    if (offset < layout::header.size() || offset >= objectsEnd_) {
        refuse("an object is outside the object area");
        return std::nullopt;
    }
    return offset;
}

// The content of the object at `at`, whose count is in units of `unit` bytes.
std::optional<Reader::Content> Reader::contentAt(std::uint64_t at, std::uint64_t unit) {
    Content content{bytes_[at] & 0xFU, at + 1};
    if (content.count == layout::countFollows) {
        const unsigned marker = bytes_[at + 1];
        const unsigned width = 1U << (marker & 0xFU);
        if (static_cast<Type>(marker >> 4U) != Type::Integer || width > 8) {
            refuse("a count is not a number");
            return std::nullopt;
        }
        content = {layout::readNumber(bytes_ + at + 2, width), at + 2 + width};
    }
    if (content.at > objectsEnd_ || content.count > (objectsEnd_ - content.at) / unit) {
        refuse(reachesOutside);
        return std::nullopt;
    }
    return content;
}

std::optional<std::string> Reader::textAt(std::uint64_t at) {
    const bool isAsciiString = static_cast<Type>(bytes_[at] >> 4U) == Type::AsciiString;
    const std::uint64_t unit = isAsciiString ? 1 : 2;
    const std::optional<Content> content = contentAt(at, unit);
    if (!content || !charge(valueCost + content->count * unit))
        return std::nullopt;
    const std::uint8_t* begin = bytes_ + content->at;
    std::optional<std::string> text;
    if (!isAsciiString)
        text = utf8FromUtf16BigEndian({begin, begin + content->count * unit});
    else if (const std::string_view ascii(reinterpret_cast<const char*>(begin), content->count);
             isAscii(ascii))
        text = ascii;
    if (!text)
        refuse(isAsciiString ? "a string is not ASCII" : "a string is not UTF-16");
    return text;
}

bool Reader::object(std::uint64_t object, int depth, Array& values) {
    const std::optional<std::uint64_t> at = offsetOf(object);
    if (!at)
        return false;
    switch (const auto type = static_cast<Type>(bytes_[*at] >> 4U)) {
    case Type::Simple: return simple(*at, values);
    case Type::Integer: return integer(*at, values);
    case Type::Real: return real(*at, values);
    case Type::Date: return date(*at, values);
    case Type::Data:
    case Type::AsciiString:
    case Type::Utf16String:
    case Type::Array:
    case Type::Dictionary: return shareable(*at, type, known_[object], depth, values);
    case Type::Uid: return refuse("UIDs are not supported");
    case Type::OrderedSet:
    case Type::Set: return refuse("sets are not supported");
    default: return refuse("an object is of unknown type");
    }
}

bool Reader::shareable(std::uint64_t at, Type type, Known& known, int depth, Array& values) {
    if (known.value)
        return again(known, depth, values);
    if (type == Type::Data)
        return data(at, known, values);
    if (type == Type::AsciiString || type == Type::Utf16String)
        return string(at, known, values);
    return container(at, known, depth, values);
}

bool Reader::simple(std::uint64_t at, Array& values) {
    const std::uint8_t marker = bytes_[at];
    if (marker == layout::nullMarker)
        return refuse("null is not supported");
    if (marker != layout::falseMarker && marker != layout::trueMarker)
        return refuse("an object is of unknown type");
    values.emplace_back(marker == layout::trueMarker);
    return charge(valueCost);
}

bool Reader::integer(std::uint64_t at, Array& values) {
    const unsigned width = 1U << (bytes_[at] & 0xFU);
    if (width > 16)
        return refuse("an integer has more than 16 bytes");
    if (at + 1 + width > objectsEnd_)
        return refuse(reachesOutside);
    const std::uint8_t* number = bytes_ + at + 1;
    if (width <= 8) { // shorter integers are unsigned, those of eight bytes are signed
        values.emplace_back(static_cast<std::int64_t>(layout::readNumber(number, width)));
        return charge(valueCost);
    }
    const std::uint64_t high = layout::readNumber(number, 8);
    const std::uint64_t low = layout::readNumber(number + 8, 8);
    if (high == 0)
        values.emplace_back(low);
    else if (high == ~0ULL && static_cast<std::int64_t>(low) < 0)
        values.emplace_back(static_cast<std::int64_t>(low));
    else
        return refuse("an integer has more than 64 bits");
    return charge(valueCost);
}

bool Reader::real(std::uint64_t at, Array& values) {
    const std::uint8_t marker = bytes_[at];
    if (marker != layout::floatMarker && marker != layout::doubleMarker)
        return refuse("a real has neither 4 nor 8 bytes");
    const unsigned width = marker == layout::floatMarker ? 4 : 8;
    if (at + 1 + width > objectsEnd_)
        return refuse(reachesOutside);
    const std::uint64_t bits = layout::readNumber(bytes_ + at + 1, width);
    if (width == 4)
        values.emplace_back(std::bit_cast<float>(static_cast<std::uint32_t>(bits)));
    else
        values.emplace_back(std::bit_cast<double>(bits));
    return charge(valueCost);
}

bool Reader::date(std::uint64_t at, Array& values) {
    if (bytes_[at] != layout::dateMarker)
        return refuse("a date does not have 8 bytes");
    if (at + 9 > objectsEnd_)
        return refuse(reachesOutside);
    values.emplace_back(Date{std::bit_cast<double>(layout::readNumber(bytes_ + at + 1, 8))});
    return charge(valueCost);
}

bool Reader::data(std::uint64_t at, Known& known, Array& values) {
    const std::optional<Content> content = contentAt(at, 1);
    if (!content || !charge(valueCost + content->count) || !claimBytes(content->count))
        return false;
    const std::uint8_t* begin = bytes_ + content->at;
    values.emplace_back(Data(begin, begin + content->count));
    known = {.value = &values.back(), .expansion = static_cast<std::uint32_t>(valueCost + content->count)};
    return true;
}

bool Reader::string(std::uint64_t at, Known& known, Array& values) {
    const std::uint64_t before = expansion_;
    std::optional<std::string> text = textAt(at);
    if (!text || !claimBytes(expansion_ - before - valueCost))
        return false;
    values.emplace_back(*std::move(text));
    known = {.value = &values.back(), .expansion = static_cast<std::uint32_t>(expansion_ - before)};
    return true;
}

bool Reader::container(std::uint64_t at, Known& known, int depth, Array& values) {
    if (known.isBeingRead)
        return refuse("a container contains itself");
    if (depth == deepestNesting)
        return refuse(layout::tooDeep);
    const bool isDictionary = static_cast<Type>(bytes_[at] >> 4U) == Type::Dictionary;
    const std::uint64_t unit = (isDictionary ? 2 : 1) * trailer_.referenceWidth;
    const std::optional<Content> content = contentAt(at, unit);
    if (!content || !charge(valueCost) || !claimBytes(content->count * unit))
        return false;

    known.isBeingRead = true;
    const std::uint64_t before = expansion_ - valueCost;
    const int levelsBefore = std::exchange(levels_, 0);
    if (!(isDictionary ? dictionary(*content, depth + 1, values) : array(*content, depth + 1, values)))
        return false;
    const int levels = levels_ + 1;
    known = {.value = &values.back(),
             .expansion = static_cast<std::uint32_t>(expansion_ - before),
             .levels = static_cast<std::int16_t>(levels)};
    levels_ = std::max(levelsBefore, levels);
    return true;
}

bool Reader::again(const Known& known, int depth, Array& values) {
    if (depth + known.levels > deepestNesting)
        return refuse(layout::tooDeep);
    if (!charge(known.expansion))
        return false;
    levels_ = std::max<int>(levels_, known.levels);
    values.push_back(*known.value);
    return true;
}

bool Reader::array(const Content& content, int depth, Array& values) {
    Array items;
    if (!objects(content.at, content.count, depth, items))
        return false;
    values.emplace_back(std::move(items));
    return true;
}

bool Reader::dictionary(const Content& content, int depth, Array& values) {
    const Shape* keys = shape(content);
    Array entries;
    if (!keys || !charge(keys->expansion) ||
        !objects(content.at + content.count * trailer_.referenceWidth, content.count, depth, entries))
        return false;
    values.emplace_back(Dictionary(keys->keys, std::move(entries)));
    return true;
}

bool Reader::objects(std::uint64_t list, std::uint64_t count, int depth, Array& values) {
    values.reserve(count); // the values must not move afterwards, because `Known` points to them
    for (std::uint64_t i = 0; i < count; ++i)
        if (!object(reference(list, i), depth, values))
            return false;
    return true;
}

const Reader::Shape* Reader::shape(const Content& dictionary) {
    const std::string_view references(reinterpret_cast<const char*>(bytes_) + dictionary.at,
                                      dictionary.count * trailer_.referenceWidth);
    auto found = shapes_.find(references);
    if (found == shapes_.end()) {
        const std::uint64_t before = expansion_;
        std::optional<Keys> read = keys(dictionary);
        if (!read)
            return nullptr;
        const std::uint64_t expansion = expansion_ - before;
        expansion_ = before; // each dictionary with these keys charges them itself
        found = shapes_.emplace(references, Shape{Shared(*std::move(read)), expansion}).first;
    }
    return &found->second;
}

std::optional<Keys> Reader::keys(const Content& dictionary) {
    Keys keys;
    keys.reserve(dictionary.count);
    for (std::uint64_t i = 0; i < dictionary.count; ++i) {
        const std::optional<std::uint64_t> at = offsetOf(reference(dictionary.at, i));
        if (!at)
            return std::nullopt;
        const auto type = static_cast<Type>(bytes_[*at] >> 4U);
        if (type != Type::AsciiString && type != Type::Utf16String) {
            refuse("a key is not a string");
            return std::nullopt;
        }
        std::optional<std::string> text = textAt(*at);
        if (!text)
            return std::nullopt;
        keys.push_back(*std::move(text));
    }
    if (hasTwins(keys)) {
        refuse("a dictionary has a duplicate key");
        return std::nullopt;
    }
    return keys;
}

} // namespace

PropertyListReading readBinaryPropertyList(std::span<const std::uint8_t> bytes) {
    const std::optional<layout::Trailer> trailer = layout::readTrailer(bytes);
    if (!trailer)
        return {{}, "it is truncated or not a binary property list", 0};
    return Reader(bytes, *trailer).read();
}

} // namespace kelvane
