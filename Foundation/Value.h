#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace kelvane {

class Dictionary;
class Value;

using Data = std::vector<std::uint8_t>;
using Array = std::vector<Value>;

// A point in time: seconds since 2001-01-01T00:00:00Z, fractions and negative numbers included.
struct Date {
    double secondsSinceReference = 0;

    friend bool operator==(const Date&, const Date&) = default;
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
// A value: copies are independent, and cheap, because arrays and dictionaries are shared until one of the
// copies is changed. Different threads may read copies of one value at the same time. Every read of an absent
// value, or of one of another kind, yields 0, false or empty; nothing here fails.
class Value {
public:
    enum class Kind { Absent, Bool, Integer, Float, Double, String, Data, Date, Array, Dictionary };

    Value() = default;
    Value(bool flag) : content_(flag) {} // NOLINT(google-explicit-constructor)
    template <PlainInteger T>
    Value(T number) : content_(integerFrom(number)) {}            // NOLINT(google-explicit-constructor)
    Value(Integer number) : content_(number) {}                   // NOLINT(google-explicit-constructor)
    Value(float number) : content_(number) {}                     // NOLINT(google-explicit-constructor)
    Value(double number) : content_(number) {}                    // NOLINT(google-explicit-constructor)
    Value(const char* text) : content_(std::string(text)) {}      // NOLINT(google-explicit-constructor)
    Value(std::string_view text) : content_(std::string(text)) {} // NOLINT(google-explicit-constructor)
    Value(std::string text) : content_(std::move(text)) {}        // NOLINT(google-explicit-constructor)
    Value(Data bytes) : content_(std::move(bytes)) {}             // NOLINT(google-explicit-constructor)
    Value(Date date) : content_(date) {}                          // NOLINT(google-explicit-constructor)
    Value(Array items);                                           // NOLINT(google-explicit-constructor)
    Value(Dictionary entries);                                    // NOLINT(google-explicit-constructor)
    Value(const void*) = delete;                                  // a stray pointer would become a bool

    Value(const Value&) = default;
    Value(Value&&) noexcept = default;
    Value& operator=(const Value&) = default;
    Value& operator=(Value&&) noexcept = default;
    // Takes no more stack for a container nested a million deep than for a flat one.
    ~Value() {
        if (kind() >= Kind::Array)
            releaseContainer();
    }

    [[nodiscard]] Kind kind() const { return static_cast<Kind>(content_.index()); }
    [[nodiscard]] bool isAbsent() const { return kind() == Kind::Absent; }
    [[nodiscard]] bool isNumber() const { return kind() >= Kind::Bool && kind() <= Kind::Double; }
    [[nodiscard]] bool isString() const { return kind() == Kind::String; }
    [[nodiscard]] bool isArray() const { return kind() == Kind::Array; }
    [[nodiscard]] bool isDictionary() const { return kind() == Kind::Dictionary; }

    // Numbers. A bool counts as 1 or 0. An integer is cut to the width asked for; a real is truncated toward
    // zero and kept within the range asked for, NaN reads as 0.
    [[nodiscard]] bool boolValue() const;
    [[nodiscard]] std::int32_t int32Value() const { return static_cast<std::int32_t>(int64Value()); }
    [[nodiscard]] std::uint32_t uint32Value() const { return static_cast<std::uint32_t>(uint64Value()); }
    [[nodiscard]] std::int64_t int64Value() const;
    [[nodiscard]] std::uint64_t uint64Value() const;
    [[nodiscard]] float floatValue() const { return static_cast<float>(doubleValue()); }
    [[nodiscard]] double doubleValue() const;
    // The integer as it is held; none for every other kind.
    [[nodiscard]] const Integer* integer() const { return std::get_if<Integer>(&content_); }

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

    // For changing in place; an array or dictionary shared with copies is copied first. A value of another
    // kind becomes an empty container.
    [[nodiscard]] Array& mutableArray();
    [[nodiscard]] Dictionary& mutableDictionary();

    // The text that `%@` inserts: strings as they are, numbers in decimal, containers on one line with their
    // strings quoted, nothing as "(null)". Nesting below 64 levels is written as "...".
    [[nodiscard]] std::string description() const;

    // Numbers are equal by value, whatever their kind (true equals 1, 1 equals 1.0); dictionaries whatever
    // their order. NaN equals itself, so that a dictionary always equals its copy.
    friend bool operator==(const Value& left, const Value& right);

private:
    using SharedArray = std::shared_ptr<Array>;
    using SharedDictionary = std::shared_ptr<Dictionary>;

    struct Release;
    void releaseContainer() noexcept;

    template <PlainInteger T>
    static constexpr Integer integerFrom(T number) {
        if constexpr (std::is_signed_v<T>)
            return {static_cast<std::uint64_t>(static_cast<std::int64_t>(number)), sizeof(T), true};
        else
            return {static_cast<std::uint64_t>(number), sizeof(T),
                    sizeof(T) == 8 && static_cast<std::uint64_t>(number) >> 63U == 0};
    }

    // In the order of `Kind`.
    using Content = std::variant<std::monostate, bool, Integer, float, double, std::string, Data, Date,
                                 SharedArray, SharedDictionary>;
    Content content_;
};

// String keys to values, in the order of insertion; equality ignores the order. A plain list: the
// dictionaries that travel hold some twenty keys, and looking through those beats a hash. `find` is linear;
// equality is not quadratic, however large and however ordered the two sides are.
class Dictionary {
public:
    using Entry = std::pair<std::string, Value>;

    Dictionary() = default;
    // A repeated key keeps its first place and takes the last value.
    Dictionary(std::initializer_list<Entry> entries);

    [[nodiscard]] const Value* find(std::string_view key) const;
    [[nodiscard]] bool contains(std::string_view key) const { return find(key) != nullptr; }
    [[nodiscard]] const Value& operator[](std::string_view key) const;
    // Replaces the value of a present key in its place, else appends.
    void set(std::string_view key, Value value);
    // Appends without looking for the key: for readers that know it to be new.
    void append(std::string key, Value value) { entries_.emplace_back(std::move(key), std::move(value)); }
    bool erase(std::string_view key);
    void reserve(std::size_t count) { entries_.reserve(count); }

    [[nodiscard]] std::size_t size() const { return entries_.size(); }
    [[nodiscard]] bool empty() const { return entries_.empty(); }
    [[nodiscard]] auto begin() const { return entries_.begin(); }
    [[nodiscard]] auto end() const { return entries_.end(); }

    friend bool operator==(const Dictionary& left, const Dictionary& right);

private:
    std::vector<Entry> entries_;
};

} // namespace kelvane
