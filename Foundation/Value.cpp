#include "Foundation/Value.h"

#include "Foundation/Description.h"

#include <cmath>
#include <limits>

namespace kelvane {
namespace {

const Value absentValue;

// Nested containers are released recursively down to this level; deeper ones are released after the outermost
// one, so that the stack does not overflow.
constexpr int deepestRelease = 64;

template <class T>
T truncated(double number) {
    if (std::isnan(number))
        return 0;
    // The upper bound is a power of two, exact as a double, one above the largest T.
    constexpr double above = std::is_signed_v<T> ? 0x1p63 : 0x1p64;
    if (number >= above)
        return std::numeric_limits<T>::max();
    if (number <= static_cast<double>(std::numeric_limits<T>::min()))
        return std::numeric_limits<T>::min();
    return static_cast<T>(number);
}

Integer asInteger(const Value& value) {
    return value.integer().value_or(Integer{value.boolValue() ? 1U : 0U, 1, false});
}

bool isReal(const Value& value) {
    return value.kind() == Value::Kind::Float || value.kind() == Value::Kind::Double;
}

bool equalIntegerAndReal(Integer integer, double real) {
    if (!std::isfinite(real) || std::trunc(real) != real)
        return false;
    if (integer.isNegative())
        return real >= -0x1p63 && real < 0 &&
               static_cast<std::int64_t>(real) == static_cast<std::int64_t>(integer.bits);
    return real >= 0 && real < 0x1p64 && static_cast<std::uint64_t>(real) == integer.bits;
}

bool equalNumbers(const Value& left, const Value& right) {
    if (isReal(left) && isReal(right)) {
        const double a = left.doubleValue();
        const double b = right.doubleValue();
        return a == b || (std::isnan(a) && std::isnan(b));
    }
    if (isReal(left))
        return equalIntegerAndReal(asInteger(right), left.doubleValue());
    if (isReal(right))
        return equalIntegerAndReal(asInteger(left), right.doubleValue());
    const Integer a = asInteger(left);
    const Integer b = asInteger(right);
    return a.bits == b.bits && a.isNegative() == b.isNegative();
}

} // namespace

// Trivially destructible, so that it is still valid for values destroyed when the thread or program ends.
struct Value::Release {
    struct Block {
        Kind kind;
        OwnerCount* block;
    };

    int level = 0;
    std::vector<Block>* postponed = nullptr;

    static thread_local Release current;
};

thread_local Value::Release Value::Release::current;

Value::Value(std::string text) : Value(Kind::String, new SharedBlock<std::string>(std::move(text))) {}

Value::Value(Data bytes) : Value(Kind::Data, new SharedBlock<Data>(std::move(bytes))) {}

Value::Value(Array items) : Value(Kind::Array, new SharedBlock<Array>(std::move(items))) {}

Value::Value(Dictionary entries) : Value(Kind::Dictionary, new SharedBlock<Dictionary>(std::move(entries))) {}

void Value::destroy(Kind kind, OwnerCount* block) noexcept {
    Release& release = Release::current;
    if (kind < Kind::Array) {
        destroyNow(kind, block);
    } else if (release.level == deepestRelease) {
        release.postponed->push_back({kind, block});
    } else if (release.level > 0) {
        ++release.level;
        destroyNow(kind, block);
        --release.level;
    } else {
        std::vector<Release::Block> postponed{{kind, block}};
        release = {1, &postponed};
        while (!postponed.empty()) {
            const Release::Block next = postponed.back();
            postponed.pop_back();
            destroyNow(next.kind, next.block);
        }
        release = {};
    }
}

void Value::destroyNow(Kind kind, OwnerCount* block) noexcept {
    switch (kind) {
    case Kind::String: delete static_cast<SharedBlock<std::string>*>(block); break;
    case Kind::Data: delete static_cast<SharedBlock<Data>*>(block); break;
    case Kind::Array: delete static_cast<SharedBlock<Array>*>(block); break;
    default: delete static_cast<SharedBlock<Dictionary>*>(block); break;
    }
}

bool Value::boolValue() const {
    return isReal(*this) ? doubleValue() != 0 : uint64Value() != 0;
}

std::int64_t Value::int64Value() const {
    return isReal(*this) ? truncated<std::int64_t>(doubleValue()) : static_cast<std::int64_t>(uint64Value());
}

std::uint64_t Value::uint64Value() const {
    if (!isReal(*this))
        return isNumber() ? content_.bits : 0;
    const double number = doubleValue();
    return number < 0 ? static_cast<std::uint64_t>(truncated<std::int64_t>(number))
                      : truncated<std::uint64_t>(number);
}

double Value::doubleValue() const {
    switch (kind_) {
    case Kind::Bool: return static_cast<double>(content_.bits);
    case Kind::Integer:
        return isSigned_ ? static_cast<double>(static_cast<std::int64_t>(content_.bits))
                         : static_cast<double>(content_.bits);
    case Kind::Float:
        return static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(content_.bits)));
    case Kind::Double: return std::bit_cast<double>(content_.bits);
    default: return 0;
    }
}

const std::string& Value::stringValue() const {
    static const std::string empty;
    return kind_ == Kind::String ? content<std::string>() : empty;
}

const Data& Value::dataValue() const {
    static const Data empty;
    return kind_ == Kind::Data ? content<Data>() : empty;
}

Date Value::dateValue() const {
    return kind_ == Kind::Date ? Date{std::bit_cast<double>(content_.bits)} : Date{};
}

const Array& Value::array() const {
    static const Array empty;
    return kind_ == Kind::Array ? content<Array>() : empty;
}

const Dictionary& Value::dictionary() const {
    static const Dictionary empty;
    return kind_ == Kind::Dictionary ? content<Dictionary>() : empty;
}

const Value& Value::operator[](std::string_view key) const {
    return dictionary()[key];
}

const Value& Value::at(std::size_t index) const {
    const Array& items = array();
    return index < items.size() ? items[index] : absentValue;
}

std::size_t Value::size() const {
    return isArray() ? array().size() : dictionary().size();
}

bool Value::isShared() const {
    return kind_ >= Kind::Array && !content_.block->isAlone();
}

template <class T>
T& Value::ownContent(Kind kind) {
    if (kind_ != kind)
        *this = T();
    else if (isShared())
        *this = T(content<T>());
    return content<T>();
}

Array& Value::mutableArray() {
    return ownContent<Array>(Kind::Array);
}

Dictionary& Value::mutableDictionary() {
    return ownContent<Dictionary>(Kind::Dictionary);
}

std::string Value::description() const {
    return describe(*this);
}

bool operator==(const Value& left, const Value& right) {
    if (left.isNumber() && right.isNumber())
        return equalNumbers(left, right);
    if (left.kind() != right.kind())
        return false;
    switch (left.kind()) {
    case Value::Kind::String: return left.stringValue() == right.stringValue();
    case Value::Kind::Data: return left.dataValue() == right.dataValue();
    case Value::Kind::Date: return left.dateValue() == right.dateValue();
    case Value::Kind::Array: return &left.array() == &right.array() || left.array() == right.array();
    case Value::Kind::Dictionary:
        return &left.dictionary() == &right.dictionary() || left.dictionary() == right.dictionary();
    default: return true;
    }
}

} // namespace kelvane
