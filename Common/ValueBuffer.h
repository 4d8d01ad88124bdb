#pragma once

#include "Foundation/Value.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace kelvane {

// Room for one argument or result in its native form. Numbers lie in eight bytes in host byte order, a
// narrower one in the first of them and the rest zero; for "@" and "*" the buffer keeps the object itself,
// and the text of a "*" lives as long as that. Reading a number where an object was stored, or the reverse,
// yields 0 or nothing.
class ValueBuffer {
public:
    template <class Number>
    void store(Number number) {
        static_assert(std::is_arithmetic_v<Number> && sizeof(Number) <= 8);
        bytes_ = {};
        object_ = {};
        std::memcpy(bytes_.data(), &number, sizeof number);
    }
    void storeObject(Value object) {
        bytes_ = {};
        object_ = std::move(object);
    }

    template <class Number>
    [[nodiscard]] Number load() const {
        static_assert(std::is_arithmetic_v<Number> && sizeof(Number) <= 8 && !std::is_same_v<Number, bool>);
        Number number;
        std::memcpy(&number, bytes_.data(), sizeof number);
        return number;
    }
    [[nodiscard]] const Value& object() const { return object_; }
    // Null when there is no object.
    [[nodiscard]] const char* text() const {
        return object_.isAbsent() ? nullptr : object_.stringValue().c_str();
    }

private:
    alignas(8) std::array<std::byte, 8> bytes_{};
    Value object_;
};

// The property-list object for a value of the type whose code begins `type`, and how many bytes of the buffer
// it took. Absent for a null text or object. Throws AssertionFailure for a code that is not known.
[[nodiscard]] Value encodeValue(std::string_view type, const ValueBuffer& buffer,
                                std::uint32_t* resultSize = nullptr);

// The reverse. An object of another kind than the code says is stored as 0 or nothing.
void decodeValue(const Value& object, std::string_view type, ValueBuffer& buffer);

} // namespace kelvane
