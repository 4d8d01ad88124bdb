#include "Foundation/Value.h"

#include "Foundation/Description.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <unordered_map>

namespace kelvane {
namespace {

const Value absentValue;

// Up to this many entries the other side's keys are looked for one by one.
constexpr std::size_t linearSearchLimit = 32;

// Containers release one another by plain recursion down to this level; what lies deeper is put off until the
// outermost one is done.
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
    if (const Integer* integer = value.integer())
        return *integer;
    return {value.boolValue() ? 1U : 0U, 1, false};
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

// Trivial to destroy, so that values which die while the thread or the program ends find it in order.
struct Value::Release {
    int level = 0;
    std::vector<Content>* postponed = nullptr;

    static thread_local Release current;
};

thread_local Value::Release Value::Release::current;

Value::Value(Array items) : content_(std::make_shared<Array>(std::move(items))) {}

Value::Value(Dictionary entries) : content_(std::make_shared<Dictionary>(std::move(entries))) {}

void Value::releaseContainer() noexcept {
    Release& release = Release::current;
    if (release.level == deepestRelease) {
        release.postponed->push_back(std::move(content_));
        return;
    }
    if (release.level > 0) {
        ++release.level;
        content_ = std::monostate();
        --release.level;
        return;
    }
    std::vector<Content> postponed;
    release = {1, &postponed};
    content_ = std::monostate();
    while (!postponed.empty()) {
        const Content next = std::move(postponed.back());
        postponed.pop_back();
    }
    release = {};
}

bool Value::boolValue() const {
    if (const bool* flag = std::get_if<bool>(&content_))
        return *flag;
    if (const Integer* number = integer())
        return number->bits != 0;
    return doubleValue() != 0;
}

std::int64_t Value::int64Value() const {
    if (kind() == Kind::Float || kind() == Kind::Double)
        return truncated<std::int64_t>(doubleValue());
    return static_cast<std::int64_t>(uint64Value());
}

std::uint64_t Value::uint64Value() const {
    switch (kind()) {
    case Kind::Bool: return std::get<bool>(content_) ? 1 : 0;
    case Kind::Integer: return integer()->bits;
    case Kind::Float:
    case Kind::Double: {
        const double number = doubleValue();
        return number < 0 ? static_cast<std::uint64_t>(truncated<std::int64_t>(number))
                          : truncated<std::uint64_t>(number);
    }
    default: return 0;
    }
}

double Value::doubleValue() const {
    switch (kind()) {
    case Kind::Bool: return std::get<bool>(content_) ? 1 : 0;
    case Kind::Integer: {
        const Integer number = *integer();
        return number.isSigned ? static_cast<double>(static_cast<std::int64_t>(number.bits))
                               : static_cast<double>(number.bits);
    }
    case Kind::Float: return static_cast<double>(std::get<float>(content_));
    case Kind::Double: return std::get<double>(content_);
    default: return 0;
    }
}

const std::string& Value::stringValue() const {
    static const std::string empty;
    const auto* text = std::get_if<std::string>(&content_);
    return text ? *text : empty;
}

const Data& Value::dataValue() const {
    static const Data empty;
    const auto* bytes = std::get_if<Data>(&content_);
    return bytes ? *bytes : empty;
}

Date Value::dateValue() const {
    const auto* date = std::get_if<Date>(&content_);
    return date ? *date : Date{};
}

const Array& Value::array() const {
    static const Array empty;
    const auto* items = std::get_if<SharedArray>(&content_);
    return items ? **items : empty;
}

const Dictionary& Value::dictionary() const {
    static const Dictionary empty;
    const auto* entries = std::get_if<SharedDictionary>(&content_);
    return entries ? **entries : empty;
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

Array& Value::mutableArray() {
    if (!isArray())
        content_ = std::make_shared<Array>();
    auto& items = std::get<SharedArray>(content_);
    if (items.use_count() > 1)
        items = std::make_shared<Array>(*items);
    return *items;
}

Dictionary& Value::mutableDictionary() {
    if (!isDictionary())
        content_ = std::make_shared<Dictionary>();
    auto& entries = std::get<SharedDictionary>(content_);
    if (entries.use_count() > 1)
        entries = std::make_shared<Dictionary>(*entries);
    return *entries;
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

Dictionary::Dictionary(std::initializer_list<Entry> entries) {
    for (const Entry& entry : entries)
        set(entry.first, entry.second);
}

const Value* Dictionary::find(std::string_view key) const {
    for (const Entry& entry : entries_)
        if (entry.first == key)
            return &entry.second;
    return nullptr;
}

const Value& Dictionary::operator[](std::string_view key) const {
    const Value* value = find(key);
    return value ? *value : absentValue;
}

void Dictionary::set(std::string_view key, Value value) {
    for (Entry& entry : entries_) {
        if (entry.first == key) {
            entry.second = std::move(value);
            return;
        }
    }
    entries_.emplace_back(std::string(key), std::move(value));
}

bool Dictionary::erase(std::string_view key) {
    return std::erase_if(entries_, [key](const Entry& entry) { return entry.first == key; }) != 0;
}

bool operator==(const Dictionary& left, const Dictionary& right) {
    if (left.size() != right.size())
        return false;
    std::unordered_map<std::string_view, const Value*> index;
    for (std::size_t i = 0; i < left.size(); ++i) {
        const auto& [key, value] = left.entries_[i];
        const Value* other = nullptr;
        if (right.entries_[i].first == key) {
            other = &right.entries_[i].second;
        } else if (right.size() <= linearSearchLimit) {
            other = right.find(key);
        } else {
            if (index.empty())
                for (const auto& [otherKey, otherValue] : right.entries_)
                    index.emplace(otherKey, &otherValue);
            const auto found = index.find(key);
            other = found == index.end() ? nullptr : found->second;
        }
        if (!other || !(*other == value))
            return false;
    }
    return true;
}

} // namespace kelvane
