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

// A point in time, in seconds since 2001-01-01T00:00:00Z, with fractions; negative before that.
struct Date {
    // The reference, 2001-01-01T00:00:00Z, in seconds since 1970.
    static constexpr std::int64_t referenceTime = 978'307'200;

    double secondsSinceReference = 0;

    // NaN equals itself, as it does for numbers.
    friend bool operator==(Date left, Date right) {
        const double a = left.secondsSinceReference;
        const double b = right.secondsSinceReference;
        return a == b || (std::isnan(a) && std::isnan(b));
    }
};

// An integer with the signedness and width of the type from which it was made. An unsigned 64-bit number that
// fits in a signed one is stored as a signed 64-bit number, since property lists do not distinguish the two.
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

// A property-list object, or none (`Kind::Absent`).
//
// Copies are independent of each other and cheap: strings, data, arrays and dictionaries are shared until one
// of the copies is changed. Different threads may read copies of one value at the same time. Reading an
// absent value, or one of another kind, returns 0, false or an empty value; no function fails.
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
    Value(const void*) = delete;                               // a pointer would convert to bool

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
    // Uses a constant amount of stack, even for a million levels of nesting.
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

    // Numbers. A bool reads as 1 or 0. A real number is truncated toward zero and limited to the range of 64
    // bits; NaN reads as 0. Integers are then truncated to the requested width.
    [[nodiscard]] bool boolValue() const;
    [[nodiscard]] std::int32_t int32Value() const { return static_cast<std::int32_t>(int64Value()); }
    [[nodiscard]] std::uint32_t uint32Value() const { return static_cast<std::uint32_t>(uint64Value()); }
    [[nodiscard]] std::int64_t int64Value() const;
    [[nodiscard]] std::uint64_t uint64Value() const;
    [[nodiscard]] float floatValue() const { return static_cast<float>(doubleValue()); }
    [[nodiscard]] double doubleValue() const;
    // Returns the integer as it is stored; nothing for any other kind.
    [[nodiscard]] std::optional<Integer> integer() const {
        return kind_ == Kind::Integer ? std::optional(Integer{content_.bits, width_, isSigned_})
                                      : std::nullopt;
    }

    [[nodiscard]] const std::string& stringValue() const;
    [[nodiscard]] const Data& dataValue() const;
    [[nodiscard]] Date dateValue() const;
    [[nodiscard]] const Array& array() const;
    [[nodiscard]] const Dictionary& dictionary() const;

    // Return the entry of a dictionary or the item of an array; an absent value if there is none.
    [[nodiscard]] const Value& operator[](std::string_view key) const;
    [[nodiscard]] const Value& at(std::size_t index) const;
    // Returns the number of entries or items; 0 for any other kind.
    [[nodiscard]] std::size_t size() const;

    // Returns whether another value may share this array or dictionary.
    [[nodiscard]] bool isShared() const;
    // Returns true if both share one string, data, array or dictionary, or are the same number of one kind.
    // This is a cheap test for equality: values for which it returns false may be equal as well.
    [[nodiscard]] bool isSameAs(const Value& other) const {
        return kind_ == other.kind_ && isSigned_ == other.isSigned_ && content_.bits == other.content_.bits;
    }

    // Return the container for modification. If it is shared with other values it is copied first. A value of
    // another kind becomes an empty container.
    [[nodiscard]] Array& mutableArray();
    [[nodiscard]] Dictionary& mutableDictionary();

    // Returns the text that `%@` inserts: a string unchanged, a number in decimal, a container on one line
    // with quoted strings, an absent value as "(null)". Levels below the 64th, and the rest of a container
    // after a million characters, are written as "...".
    [[nodiscard]] std::string description() const;

    // Numbers are compared by value regardless of their kind (true equals 1, 1 equals 1.0), dictionaries
    // regardless of their order. NaN equals itself, so that a dictionary always equals its copy.
    friend bool operator==(const Value& left, const Value& right);

private:
    Value(Kind kind, std::uint64_t bits) : content_{bits}, kind_(kind) {}
    Value(Kind kind, OwnerCount* block) : kind_(kind) { content_.block = block; }

    // True for strings, data, arrays and dictionaries, which are stored in a `SharedBlock`.
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

    // A value takes 16 bytes, because lists of files contain millions of them.
    union {
        std::uint64_t bits = 0; // of a bool, a number or a date
        OwnerCount* block;
    } content_;
    Kind kind_ = Kind::Absent;
    std::uint8_t width_ = 0; // of an integer
    bool isSigned_ = false;
};

// Maps string keys to values and keeps the order of insertion; equality ignores the order. It is a list,
// since the dictionaries of the protocol have about twenty keys, for which a linear search is faster than a
// hash table. `find` is linear. Comparing two dictionaries takes less than quadratic time whatever their size
// and order. Dictionaries with the same keys can share the list of keys.
class Dictionary {
public:
    using Entry = std::pair<std::string, Value>;
    using Keys = std::vector<std::string>;
    class Iterator;

    Dictionary() = default;
    // A key that occurs repeatedly keeps its first position and has the last value.
    Dictionary(std::initializer_list<Entry> entries);
    // `values` has one value for each key. The keys must be different.
    Dictionary(Shared<Keys> keys, std::vector<Value> values)
        : keys_(std::move(keys)), values_(std::move(values)) {}

    [[nodiscard]] const Value* find(std::string_view key) const;
    [[nodiscard]] bool contains(std::string_view key) const { return find(key) != nullptr; }
    [[nodiscard]] const Value& operator[](std::string_view key) const;
    // Replaces the value of an existing key, or appends a new one.
    void set(std::string_view key, Value value);
    // Appends without a search for the key, which must not exist.
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
    // Returns the index of `key`, or `size()` if it does not exist.
    [[nodiscard]] std::size_t positionOf(std::string_view key) const;

    Shared<Keys> keys_;
    std::vector<Value> values_;
};

// Returns each entry as a pair of references to the key and the value.
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
