#include "Foundation/BinaryPropertyList.h"

#include "Foundation/BinaryPropertyListLayout.h"
#include "Foundation/Unicode.h"

#include <bit>
#include <limits>
#include <map>
#include <optional>
#include <vector>

namespace kelvane {
namespace {

using layout::Type;

struct Trailer {
    unsigned offsetWidth = 0;
    unsigned referenceWidth = 0;
    std::uint64_t objectCount = 0;
    std::uint64_t topObject = 0;
    std::uint64_t tableOffset = 0;
};

bool isWidth(unsigned width) { return width >= 1 && width <= 8; }

// None when header or trailer are not those of a binary property list, or the offset table does not exactly fill the
// room between the objects and the trailer.
std::optional<Trailer> trailerOf(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < layout::header.size() + layout::trailerSize ||
        std::memcmp(bytes.data(), layout::header.data(), layout::header.size()) != 0)
        return std::nullopt;
    const std::uint64_t tableEnd = bytes.size() - layout::trailerSize;
    const std::uint8_t* at = bytes.data() + tableEnd;
    const Trailer trailer{at[layout::trailerOffsetWidth], at[layout::trailerReferenceWidth],
                          layout::readNumber(at + layout::trailerObjectCount, 8),
                          layout::readNumber(at + layout::trailerTopObject, 8),
                          layout::readNumber(at + layout::trailerTableOffset, 8)};
    if (!isWidth(trailer.offsetWidth) || !isWidth(trailer.referenceWidth) ||
        trailer.tableOffset < layout::header.size() || trailer.tableOffset > tableEnd)
        return std::nullopt;
    const std::uint64_t tableSize = tableEnd - trailer.tableOffset;
    if (tableSize % trailer.offsetWidth != 0 || tableSize / trailer.offsetWidth != trailer.objectCount)
        return std::nullopt;
    return trailer;
}

// Reads the objects of one property list. Its operations return an absent value once `error_` says why.
class Reader {
public:
    Reader(std::span<const std::uint8_t> bytes, const Trailer& trailer)
        : bytes_(bytes.data()), trailer_(trailer), referenceRoom_(trailer.tableOffset), containerOf_(trailer.objectCount),
          keyOf_(trailer.objectCount) {}

    PropertyListReading read() {
        Value value = object(trailer_.topObject, 1);
        return {std::move(value), error_};
    }

private:
    // An object's content: `count` as its marker gives it, and where the bytes behind the marker begin.
    struct Content {
        std::uint64_t count = 0;
        std::uint64_t at = 0;
    };
    struct Container {
        Value value;
        std::uint64_t expansion;
        int height;
    };
    // A key's text, and the last dictionary that has it.
    using Keys = std::map<std::string, std::uint64_t, std::less<>>;

    static constexpr std::uint32_t notRead = 0;
    static constexpr std::uint32_t beingRead = std::numeric_limits<std::uint32_t>::max();

    Value refuse(const char* reason) {
        error_ = reason;
        return {};
    }
    bool charge(std::uint64_t cost);
    std::optional<std::uint64_t> offsetOf(std::uint64_t index);
    std::optional<Content> counted(std::uint64_t at, unsigned size, std::uint64_t unit);
    std::uint64_t reference(std::uint64_t list, std::uint64_t position) const {
        return layout::readNumber(bytes_ + list + position * trailer_.referenceWidth, trailer_.referenceWidth);
    }

    Value object(std::uint64_t index, int level);
    Value simple(std::uint8_t marker);
    Value integer(std::uint64_t at, unsigned size);
    Value real(std::uint64_t at, unsigned size);
    Value date(std::uint64_t at, std::uint8_t marker);
    Value data(std::uint64_t at, unsigned size);
    Value string(std::uint64_t at, Type type, unsigned size);
    Value container(std::uint64_t index, std::uint64_t at, int level);
    Value array(const Content& content, int level);
    Value dictionary(const Content& content, int level);
    Keys::value_type* key(std::uint64_t index);
    bool takeKeys(const Content& content);

    const std::uint8_t* bytes_;
    Trailer trailer_;
    std::string error_;
    std::uint64_t expansion_ = 0;
    // Containers do not overlap in a sound file, so that all their references together fit into it. Held against that,
    // a small file cannot make a large number of values out of the same bytes.
    std::uint64_t referenceRoom_;
    int deepest_ = 0;

    std::vector<Container> containers_;
    std::vector<std::uint32_t> containerOf_; // by object: `notRead`, `beingRead`, or the place in `containers_` from 1
    Keys keys_;
    std::vector<Keys::value_type*> keyOf_; // by object
    std::uint64_t dictionaries_ = 0;
};

bool Reader::charge(std::uint64_t cost) {
    expansion_ += cost;
    if (expansion_ <= largestExpansion)
        return true;
    refuse("it expands to more than can be held");
    return false;
}

std::optional<std::uint64_t> Reader::offsetOf(std::uint64_t index) {
    if (index >= trailer_.objectCount) {
        refuse("a reference to an object that is not there");
        return std::nullopt;
    }
    const std::uint64_t offset =
        layout::readNumber(bytes_ + trailer_.tableOffset + index * trailer_.offsetWidth, trailer_.offsetWidth);
    if (offset < layout::header.size() || offset >= trailer_.tableOffset) {
        refuse("an object outside the file");
        return std::nullopt;
    }
    return offset;
}

// The content of an object with a count, of `unit` bytes each, whose first byte at `at` has `size` in its low bits.
std::optional<Reader::Content> Reader::counted(std::uint64_t at, unsigned size, std::uint64_t unit) {
    Content content{size, at + 1};
    if (size == layout::countFollows) {
        const unsigned marker = bytes_[at + 1];
        const unsigned width = 1U << (marker & 0xFU);
        if (marker >> 4U != static_cast<unsigned>(Type::Integer) || width > 8) {
            refuse("a count that is not an integer");
            return std::nullopt;
        }
        content = {layout::readNumber(bytes_ + at + 2, width), at + 2 + width};
    }
    if (content.at > trailer_.tableOffset || content.count > (trailer_.tableOffset - content.at) / unit) {
        refuse("an object that reaches beyond the objects");
        return std::nullopt;
    }
    return content;
}

Value Reader::object(std::uint64_t index, int level) {
    const std::optional<std::uint64_t> at = offsetOf(index);
    if (!at)
        return {};
    const std::uint8_t marker = bytes_[*at];
    const auto type = static_cast<Type>(marker >> 4U);
    if (type == Type::Array || type == Type::Dictionary)
        return container(index, *at, level);
    if (!charge(1))
        return {};
    const unsigned size = marker & 0xFU;
    switch (type) {
    case Type::Simple: return simple(marker);
    case Type::Integer: return integer(*at, size);
    case Type::Real: return real(*at, size);
    case Type::Date: return date(*at, marker);
    case Type::Data: return data(*at, size);
    case Type::AsciiString:
    case Type::Utf16String: return string(*at, type, size);
    case Type::Uid: return refuse("a UID");
    case Type::OrderedSet:
    case Type::Set: return refuse("a set");
    default: return refuse("an object of unknown type");
    }
}

Value Reader::simple(std::uint8_t marker) {
    switch (marker) {
    case layout::falseMarker: return false;
    case layout::trueMarker: return true;
    case layout::nullMarker: return refuse("a null object");
    default: return refuse("an object of unknown type");
    }
}

Value Reader::integer(std::uint64_t at, unsigned size) {
    const unsigned width = 1U << size;
    if (width > 16)
        return refuse("an integer of more than 16 bytes");
    if (at + 1 + width > trailer_.tableOffset)
        return refuse("an object that reaches beyond the objects");
    const std::uint8_t* bytes = bytes_ + at + 1;
    if (width <= 8) // only eight bytes have a sign
        return static_cast<std::int64_t>(layout::readNumber(bytes, width));
    const std::uint64_t high = layout::readNumber(bytes, 8);
    const std::uint64_t low = layout::readNumber(bytes + 8, 8);
    if (high == 0)
        return low;
    if (high == ~0ULL && static_cast<std::int64_t>(low) < 0)
        return static_cast<std::int64_t>(low);
    return refuse("an integer of more than 64 bits");
}

Value Reader::real(std::uint64_t at, unsigned size) {
    const unsigned width = 1U << size;
    if (width != 4 && width != 8)
        return refuse("a real of neither 4 nor 8 bytes");
    if (at + 1 + width > trailer_.tableOffset)
        return refuse("an object that reaches beyond the objects");
    const std::uint64_t bits = layout::readNumber(bytes_ + at + 1, width);
    if (width == 4)
        return std::bit_cast<float>(static_cast<std::uint32_t>(bits));
    return std::bit_cast<double>(bits);
}

Value Reader::date(std::uint64_t at, std::uint8_t marker) {
    if (marker != layout::dateMarker)
        return refuse("a date that is not of 8 bytes");
    if (at + 9 > trailer_.tableOffset)
        return refuse("an object that reaches beyond the objects");
    return Date{std::bit_cast<double>(layout::readNumber(bytes_ + at + 1, 8))};
}

Value Reader::data(std::uint64_t at, unsigned size) {
    const std::optional<Content> content = counted(at, size, 1);
    if (!content || !charge(content->count))
        return {};
    const std::uint8_t* begin = bytes_ + content->at;
    return Data(begin, begin + content->count);
}

Value Reader::string(std::uint64_t at, Type type, unsigned size) {
    const std::uint64_t unit = type == Type::AsciiString ? 1 : 2;
    const std::optional<Content> content = counted(at, size, unit);
    if (!content || !charge(content->count * unit))
        return {};
    const std::uint8_t* begin = bytes_ + content->at;
    if (type == Type::AsciiString) {
        std::string text(reinterpret_cast<const char*>(begin), content->count);
        return isAscii(text) ? Value(std::move(text)) : refuse("text that is not ASCII");
    }
    std::optional<std::string> text = utf8FromUtf16BigEndian({begin, begin + content->count * unit});
    return text ? Value(*std::move(text)) : refuse("text that is not UTF-16");
}

Value Reader::container(std::uint64_t index, std::uint64_t at, int level) {
    std::uint32_t& slot = containerOf_[index];
    if (slot == beingRead)
        return refuse("a container that contains itself");
    if (slot != notRead) {
        const Container& known = containers_[slot - 1];
        if (level + known.height - 1 > deepestNesting)
            return refuse("it is nested too deeply");
        deepest_ = std::max(deepest_, level + known.height - 1);
        return charge(known.expansion) ? known.value : Value();
    }
    if (level > deepestNesting)
        return refuse("it is nested too deeply");

    const unsigned type = bytes_[at] >> 4U;
    const std::uint64_t references = type == static_cast<unsigned>(Type::Dictionary) ? 2 : 1;
    const std::optional<Content> content = counted(at, bytes_[at] & 0xFU, references * trailer_.referenceWidth);
    if (!content || !charge(1))
        return {};
    const std::uint64_t room = content->count * references * trailer_.referenceWidth;
    if (room > referenceRoom_)
        return refuse("containers that overlap");
    referenceRoom_ -= room;

    slot = beingRead;
    const std::uint64_t expansionBefore = expansion_ - 1;
    const int deepestBefore = std::exchange(deepest_, level);
    Value value = references == 2 ? dictionary(*content, level) : array(*content, level);
    if (value.isAbsent())
        return {};
    containers_.push_back({value, expansion_ - expansionBefore, deepest_ - level + 1});
    slot = static_cast<std::uint32_t>(containers_.size());
    deepest_ = std::max(deepest_, deepestBefore);
    return value;
}

Value Reader::array(const Content& content, int level) {
    Array items;
    items.reserve(content.count);
    for (std::uint64_t i = 0; i < content.count; ++i) {
        Value item = object(reference(content.at, i), level + 1);
        if (item.isAbsent())
            return {};
        items.push_back(std::move(item));
    }
    return items;
}

Value Reader::dictionary(const Content& content, int level) {
    if (!takeKeys(content))
        return {};
    Dictionary entries;
    entries.reserve(content.count);
    for (std::uint64_t i = 0; i < content.count; ++i) {
        Value value = object(reference(content.at, content.count + i), level + 1);
        if (value.isAbsent())
            return {};
        entries.append(keyOf_[reference(content.at, i)]->first, std::move(value));
    }
    return entries;
}

bool Reader::takeKeys(const Content& content) {
    ++dictionaries_;
    for (std::uint64_t i = 0; i < content.count; ++i) {
        Keys::value_type* known = key(reference(content.at, i));
        if (!known || !charge(1 + known->first.size()))
            return false;
        if (known->second == dictionaries_) {
            refuse("a key that stands twice");
            return false;
        }
        known->second = dictionaries_;
    }
    return true;
}

Reader::Keys::value_type* Reader::key(std::uint64_t index) {
    if (index < keyOf_.size() && keyOf_[index])
        return keyOf_[index];
    const std::optional<std::uint64_t> at = offsetOf(index);
    if (!at)
        return nullptr;
    const auto type = static_cast<Type>(bytes_[*at] >> 4U);
    if (type != Type::AsciiString && type != Type::Utf16String) {
        refuse("a key that is not a string");
        return nullptr;
    }
    const Value text = string(*at, type, bytes_[*at] & 0xFU);
    if (text.isAbsent())
        return nullptr;
    keyOf_[index] = &*keys_.try_emplace(text.stringValue(), 0).first;
    return keyOf_[index];
}

} // namespace

PropertyListReading readBinaryPropertyList(std::span<const std::uint8_t> bytes) {
    const std::optional<Trailer> trailer = trailerOf(bytes);
    if (!trailer)
        return {{}, "not a binary property list, or one that was cut off"};
    return Reader(bytes, *trailer).read();
}

} // namespace kelvane
