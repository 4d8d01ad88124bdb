#pragma once

#include "Foundation/Value.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace kelvane {

// Storage for one argument or result in its native form. Numbers take eight bytes in host byte order; a
// narrower one takes the first of them, and the rest is zero. For "@" and "*" the buffer keeps the object
// itself, and the text of a "*" is valid as long as that object. Reading a number where an object is stored,
// or the reverse, gives 0 or nothing.
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

// Converts a value whose type code starts `type` to a property-list object, and says how many bytes of the
// buffer it took. Absent for a null text or object. Throws AssertionFailure for an unknown code.
[[nodiscard]] Value encodeValue(std::string_view type, const ValueBuffer& buffer,
                                std::uint32_t* resultSize = nullptr);

// The reverse of `encodeValue`. An object that does not fit the code is stored as 0 or nothing.
void decodeValue(const Value& object, std::string_view type, ValueBuffer& buffer);

} // namespace kelvane
