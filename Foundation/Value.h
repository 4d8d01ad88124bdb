#pragma once

#include "Foundation/Shared.h"

#include <bit>
#include <cmath>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace kelvane {

class Dictionary;
class Value;

using Data = std::vector<std::uint8_t>;
using Array = std::vector<Value>;

// A point in time: seconds since 2001-01-01T00:00:00Z, fractions and negative numbers included.
struct Date {
    double secondsSinceReference = 0;

    // NaN equals itself here as it does among numbers.
    friend bool operator==(Date left, Date right) {
        const double a = left.secondsSinceReference;
        const double b = right.secondsSinceReference;
        return a == b || (std::isnan(a) && std::isnan(b));
    }
};

// An integer with the kind it was made from. An unsigned 64-bit number that fits a signed one is held as a
// signed 64-bit number: that is how number objects count it, and what decides how a size is read.
struct Integer {
    std::uint64_t bits = 0; // two's complement, sign-extended to 64 bits when signed
    std::uint8_t width = 8; // 1, 2, 4 or 8 bytes
    bool isSigned = true;

    [[nodiscard]] bool isNegative() const { return isSigned && static_cast<std::int64_t>(bits) < 0; }
    friend bool operator==(const Integer&, const Integer&) = default;
};

template <class T>
concept PlainInteger =
    std::integral<T> && !std::same_as<std::remove_cv_t<T>, bool> &&
    !std::same_as<std::remove_cv_t<T>, char8_t> && !std::same_as<std::remove_cv_t<T>, char16_t> &&
    !std::same_as<std::remove_cv_t<T>, char32_t> && !std::same_as<std::remove_cv_t<T>, wchar_t>;

// One property-list object, or none (`Kind::Absent`).
//
// A value: copies are independent, and cheap, because strings, data, arrays and dictionaries are shared until
// one of the copies is changed. Different threads may read copies of one value at the same time. Every read
// of an absent value, or of one of another kind, yields 0, false or empty; nothing here fails.
class Value {
public:
    enum class Kind { Absent, Bool, Integer, Float, Double, Date, String, Data, Array, Dictionary };

    Value() : Value(Kind::Absent, std::uint64_t{0}) {}
    Value(bool flag) : Value(Kind::Bool, flag ? 1 : 0) {} // NOLINT(google-explicit-constructor)
    template <PlainInteger T>
    Value(T number) : Value(integerFrom(number)) {} // NOLINT(google-explicit-constructor)
    // NOLINTNEXTLINE(google-explicit-constructor)
    Value(Integer number) : Value(Kind::Integer, number.bits) {
        width_ = number.width;
        isSigned_ = number.isSigned;
    }
    // NOLINTNEXTLINE(google-explicit-constructor)
    Value(float number) : Value(Kind::Float, std::bit_cast<std::uint32_t>(number)) {}
    // NOLINTNEXTLINE(google-explicit-constructor)
    Value(double number) : Value(Kind::Double, std::bit_cast<std::uint64_t>(number)) {}
    // NOLINTNEXTLINE(google-explicit-constructor)
    Value(Date date) : Value(Kind::Date, std::bit_cast<std::uint64_t>(date.secondsSinceReference)) {}
    Value(const char* text) : Value(std::string(text)) {}      // NOLINT(google-explicit-constructor)
    Value(std::string_view text) : Value(std::string(text)) {} // NOLINT(google-explicit-constructor)
    Value(std::string text);                                   // NOLINT(google-explicit-constructor)
    Value(Data bytes);                                         // NOLINT(google-explicit-constructor)
    Value(Array items);                                        // NOLINT(google-explicit-constructor)
    Value(Dictionary entries);                                 // NOLINT(google-explicit-constructor)
    Value(const void*) = delete;                               // a stray pointer would become a bool

    Value(const Value& other)
        : content_(other.content_), kind_(other.kind_), width_(other.width_), isSigned_(other.isSigned_) {
        if (isBlock())
            content_.block->add();
    }
    Value(Value&& other) noexcept
        : content_(other.content_),
          kind_(std::exchange(other.kind_, Kind::Absent)),
          width_(other.width_),
          isSigned_(other.isSigned_) {}
    Value& operator=(Value other) noexcept {
        std::swap(content_, other.content_);
        std::swap(kind_, other.kind_);
        std::swap(width_, other.width_);
        std::swap(isSigned_, other.isSigned_);
        return *this;
    }
    // Takes no more stack for a container nested a million deep than for a flat one.
    ~Value() {
        if (isBlock() && content_.block->removeLast())
            destroy(kind_, content_.block);
    }

    [[nodiscard]] Kind kind() const { return kind_; }
    [[nodiscard]] bool isAbsent() const { return kind() == Kind::Absent; }
    [[nodiscard]] bool isNumber() const { return kind() >= Kind::Bool && kind() <= Kind::Double; }
    [[nodiscard]] bool isString() const { return kind() == Kind::String; }
    [[nodiscard]] bool isArray() const { return kind() == Kind::Array; }
    [[nodiscard]] bool isDictionary() const { return kind() == Kind::Dictionary; }

    // Numbers. A bool counts as 1 or 0. A real is truncated toward zero and kept within 64 bits, NaN reads as
    // 0; an integer, and what a real became, is cut to the width asked for.
    [[nodiscard]] bool boolValue() const;
    [[nodiscard]] std::int32_t int32Value() const { return static_cast<std::int32_t>(int64Value()); }
    [[nodiscard]] std::uint32_t uint32Value() const { return static_cast<std::uint32_t>(uint64Value()); }
    [[nodiscard]] std::int64_t int64Value() const;
    [[nodiscard]] std::uint64_t uint64Value() const;
    [[nodiscard]] float floatValue() const { return static_cast<float>(doubleValue()); }
    [[nodiscard]] double doubleValue() const;
    // The integer as it is held; none for every other kind.
    [[nodiscard]] std::optional<Integer> integer() const {
        return kind_ == Kind::Integer ? std::optional(Integer{content_.bits, width_, isSigned_})
                                      : std::nullopt;
    }

    [[nodiscard]] const std::string& stringValue() const;
    [[nodiscard]] const Data& dataValue() const;
    [[nodiscard]] Date dateValue() const;
    [[nodiscard]] const Array& array() const;
    [[nodiscard]] const Dictionary& dictionary() const;

    // The entry of a dictionary or the item of an array; absent when there is none.
    [[nodiscard]] const Value& operator[](std::string_view key) const;
    [[nodiscard]] const Value& at(std::size_t index) const;
    // Entries or items; 0 for every other kind.
    [[nodiscard]] std::size_t size() const;

    // Whether another value may hold the same array or dictionary.
    [[nodiscard]] bool isShared() const;
    // Whether both hold the very same string, data, array or dictionary, or the same number of one kind.
    // Cheap, and says nothing when false.
    [[nodiscard]] bool isSameAs(const Value& other) const {
        return kind_ == other.kind_ && isSigned_ == other.isSigned_ && content_.bits == other.content_.bits;
    }

    // For changing in place; an array or dictionary shared with copies is copied first. A value of another
    // kind becomes an empty container.
    [[nodiscard]] Array& mutableArray();
    [[nodiscard]] Dictionary& mutableDictionary();

    // The text that `%@` inserts: strings as they are, numbers in decimal, containers on one line with their
    // strings quoted, nothing as "(null)". Nesting below 64 levels is written as "...", and so is
    // the rest of a container after a million characters.
    [[nodiscard]] std::string description() const;

    // Numbers are equal by value, whatever their kind (true equals 1, 1 equals 1.0); dictionaries whatever
    // their order. NaN equals itself, so that a dictionary always equals its copy.
    friend bool operator==(const Value& left, const Value& right);

private:
    Value(Kind kind, std::uint64_t bits) : content_{bits}, kind_(kind) {}
    Value(Kind kind, OwnerCount* block) : kind_(kind) { content_.block = block; }

    // Strings, data, arrays and dictionaries stand in a `SharedBlock` of their own.
    [[nodiscard]] bool isBlock() const { return kind_ >= Kind::String; }
    template <class T>
    [[nodiscard]] T& content() const {
        return static_cast<SharedBlock<T>*>(content_.block)->content;
    }
    template <class T>
    [[nodiscard]] T& ownContent(Kind kind);

    struct Release;
    static void destroy(Kind kind, OwnerCount* block) noexcept;
    static void destroyNow(Kind kind, OwnerCount* block) noexcept;

    template <PlainInteger T>
    static constexpr Integer integerFrom(T number) {
        if constexpr (std::is_signed_v<T>)
            return {static_cast<std::uint64_t>(static_cast<std::int64_t>(number)), sizeof(T), true};
        else
            return {static_cast<std::uint64_t>(number), sizeof(T),
                    sizeof(T) == 8 && static_cast<std::uint64_t>(number) >> 63U == 0};
    }

    // 16 bytes in all: lists of files hold millions of values.
    union {
        std::uint64_t bits = 0; // of a bool, a number or a date
        OwnerCount* block;
    } content_;
    Kind kind_ = Kind::Absent;
    std::uint8_t width_ = 0; // of an integer
    bool isSigned_ = false;
};

// String keys to values, in the order of insertion; equality ignores the order. A plain list: the
// dictionaries that travel hold some twenty keys, and looking through those beats a hash. `find` is linear;
// equality is not quadratic, however large and however ordered the two sides are. Dictionaries of the same
// keys can share the list of them.
class Dictionary {
public:
    using Entry = std::pair<std::string, Value>;
    using Keys = std::vector<std::string>;
    class Iterator;

    Dictionary() = default;
    // A repeated key keeps its first place and takes the last value.
    Dictionary(std::initializer_list<Entry> entries);
    // A value for each key; the keys are known to differ.
    Dictionary(Shared<Keys> keys, std::vector<Value> values)
        : keys_(std::move(keys)), values_(std::move(values)) {}

    [[nodiscard]] const Value* find(std::string_view key) const;
    [[nodiscard]] bool contains(std::string_view key) const { return find(key) != nullptr; }
    [[nodiscard]] const Value& operator[](std::string_view key) const;
    // Replaces the value of a present key in its place, else appends.
    void set(std::string_view key, Value value);
    // Appends without looking for the key: for readers that know it to be new.
    void append(std::string key, Value value);
    bool erase(std::string_view key);
    void reserve(std::size_t count);

    [[nodiscard]] std::size_t size() const { return values_.size(); }
    [[nodiscard]] bool empty() const { return values_.empty(); }
    [[nodiscard]] const Keys& keys() const { return *keys_; }
    [[nodiscard]] const std::vector<Value>& values() const { return values_; }
    [[nodiscard]] Iterator begin() const;
    [[nodiscard]] Iterator end() const;

    friend bool operator==(const Dictionary& left, const Dictionary& right);

private:
    // Where `key` stands; `size()` when it does not.
    [[nodiscard]] std::size_t positionOf(std::string_view key) const;

    Shared<Keys> keys_;
    std::vector<Value> values_;
};

// Yields each entry as a pair of references to its key and its value.
class Dictionary::Iterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Entry;
    using difference_type = std::ptrdiff_t;
    using reference = std::pair<const std::string&, const Value&>;
    struct pointer { // NOLINT(readability-identifier-naming)
        reference entry;
        const reference* operator->() const { return &entry; }
    };

    Iterator(const std::string* key, const Value* value) : key_(key), value_(value) {}

    reference operator*() const { return {*key_, *value_}; }
    pointer operator->() const { return {**this}; }
    Iterator& operator++() {
        ++key_;
        ++value_;
        return *this;
    }
    Iterator operator++(int) { return {key_++, value_++}; }
    friend bool operator==(const Iterator&, const Iterator&) = default;

private:
    const std::string* key_;
    const Value* value_;
};

inline Dictionary::Iterator Dictionary::begin() const {
    return {keys().data(), values_.data()};
}
inline Dictionary::Iterator Dictionary::end() const {
    return {keys().data() + size(), values_.data() + size()};
}

} // namespace kelvane
