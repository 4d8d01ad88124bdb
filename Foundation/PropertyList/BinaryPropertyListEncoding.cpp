#include "Foundation/PropertyList/BinaryPropertyListEncoding.h"

#include "Foundation/Unicode.h"

#include <bit>

namespace kelvane {
namespace {

using layout::Type;

std::uint8_t markerOf(Type type, unsigned low) {
    return static_cast<std::uint8_t>((static_cast<unsigned>(type) << 4U) | low);
}

std::uint8_t integerMarker(unsigned width) {
    return markerOf(Type::Integer, static_cast<unsigned>(std::countr_zero(width)));
}

template <class Word>
std::uint64_t wordAt(const std::uint8_t* at) {
    Word word = 0;
    std::memcpy(&word, at, sizeof(word));
    return word;
}

// Packs at most eight bytes into one word, in an order that depends on the size, some of them twice. Numbers
// and most texts are so short that a call of the C library would take longer.
std::uint64_t shortWord(const std::uint8_t* at, std::size_t size) {
    if (size == 8)
        return wordAt<std::uint64_t>(at);
    if (size >= 4)
        return wordAt<std::uint32_t>(at) | wordAt<std::uint32_t>(at + size - 4) << 32U;
    return size == 0 ? 0 : at[0] | std::uint64_t{at[size / 2]} << 8U | std::uint64_t{at[size - 1]} << 16U;
}

bool isEqual(const std::uint8_t* left, const std::uint8_t* right, std::size_t size) {
    if (size <= 8)
        return shortWord(left, size) == shortWord(right, size);
    return shortWord(left, 8) == shortWord(right, 8) && std::memcmp(left + 8, right + 8, size - 8) == 0;
}

std::uint64_t mixed(std::uint64_t hash, std::uint64_t word) {
    hash = (hash ^ word) * 0x9E3779B97F4A7C15ULL; // 2^64 divided by the golden ratio
    return hash ^ (hash >> 32U);
}

} // namespace

void Encoding::setHead(Type type, std::uint64_t count) {
    if (count < layout::countFollows) {
        setMarker(markerOf(type, static_cast<unsigned>(count)));
    } else {
        setMarker(markerOf(type, layout::countFollows));
        append(integerMarker(widthOf(count)), 1);
        append(count, widthOf(count));
    }
}

bool Encoding::setString(std::string_view text) {
    if (isAscii(text)) {
        setHead(Type::AsciiString, text.size());
        content_ = {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
        return true;
    }
    if (!setUtf16BigEndian(converted_, text))
        return false;
    setHead(Type::Utf16String, converted_.size() / 2);
    content_ = converted_;
    return true;
}

bool Encoding::set(const Value& value) {
    if (const auto integer = value.integer()) {
        setInteger(*integer);
        return true;
    }
    switch (value.kind()) {
    case Value::Kind::Bool:
        setMarker(value.boolValue() ? layout::trueMarker : layout::falseMarker);
        return true;
    case Value::Kind::Float:
        setNumber(layout::floatMarker, std::bit_cast<std::uint32_t>(value.floatValue()), 4);
        return true;
    case Value::Kind::Double:
        setNumber(layout::doubleMarker, std::bit_cast<std::uint64_t>(value.doubleValue()), 8);
        return true;
    case Value::Kind::Date:
        setNumber(layout::dateMarker, std::bit_cast<std::uint64_t>(value.dateValue().secondsSinceReference),
                  8);
        return true;
    case Value::Kind::String: return setString(value.stringValue());
    case Value::Kind::Data:
        setHead(Type::Data, value.dataValue().size());
        content_ = value.dataValue();
        return true;
    default: return false;
    }
}

std::uint32_t Encoding::hash() const {
    std::uint64_t hash = headHash_;
    std::span<const std::uint8_t> rest = content_;
    for (; rest.size() > 8; rest = rest.subspan(8))
        hash = mixed(hash, shortWord(rest.data(), 8));
    hash = mixed(hash, shortWord(rest.data(), rest.size()));
    // Mixes once more, so that the high bits affect the low ones, which a hash table uses.
    return static_cast<std::uint32_t>(mixed(hash, 0) >> 16U);
}

bool Encoding::isAt(const std::uint8_t* at) const {
    return isEqual(at, head_.data(), headSize_) && isEqual(at + headSize_, content_.data(), content_.size());
}

void Encoding::setMarker(std::uint8_t marker) {
    head_[0] = marker;
    headSize_ = 1;
    headHash_ = marker;
    content_ = {};
}

void Encoding::setNumber(std::uint8_t marker, std::uint64_t number, unsigned width) {
    head_[0] = marker;
    layout::writeNumber(head_.data() + 1, number, width);
    headSize_ = 1 + width;
    headHash_ = mixed(marker, number);
    content_ = {};
}

void Encoding::setInteger(Integer integer) {
    if (!integer.isSigned && integer.bits >> 63U != 0) { // eight bytes would be read as a negative number
        setNumber(integerMarker(16), 0, 8);
        append(integer.bits, 8);
    } else {
        const unsigned width = widthOf(integer.bits);
        setNumber(integerMarker(width), integer.bits, width);
    }
}

void Encoding::append(std::uint64_t number, unsigned width) {
    layout::writeNumber(head_.data() + headSize_, number, width);
    headSize_ += width;
    headHash_ = mixed(headHash_, number);
}

unsigned widthOf(std::uint64_t number) {
    return number <= 0xFF ? 1 : number <= 0xFFFF ? 2 : number <= 0xFFFFFFFF ? 4 : 8;
}

} // namespace kelvane
