#include "Common/ValueBuffer.h"

#include "Common/MethodSignature.h"
#include "Foundation/Assertion.h"
#include "Foundation/Format.h"

namespace kelvane {
namespace {

[[noreturn]] void failWithUnknownType(std::string_view type, int line) {
    const char code = type.empty() ? '\0' : type.front();
    throw AssertionFailure(formatText("Unknown argument type specifier: %c", code), "Common/KelvProxy", line);
}

} // namespace

Value encodeValue(std::string_view type, const ValueBuffer& buffer, std::uint32_t* resultSize) {
    if (resultSize)
        *resultSize = nativeSize(type);
    switch (type.empty() ? '\0' : type.front()) {
    case 'c': return buffer.load<signed char>();
    case 'C': return buffer.load<unsigned char>();
    case 'B': return buffer.load<unsigned char>() != 0;
    case 's': return buffer.load<short>();
    case 'S': return buffer.load<unsigned short>();
    case 'i': return buffer.load<int>();
    case 'I': return buffer.load<unsigned int>();
    case 'l': return buffer.load<long>();
    case 'L': return buffer.load<unsigned long>();
    case 'q': return buffer.load<long long>();
    case 'Q': return buffer.load<unsigned long long>();
    case 'f': return buffer.load<float>();
    case 'd': return buffer.load<double>();
    case '*': return buffer.object().isString() ? buffer.object() : Value();
    case '@': return buffer.object();
    default: failWithUnknownType(type, 489);
    }
}

void decodeValue(const Value& object, std::string_view type, ValueBuffer& buffer) {
    switch (type.empty() ? '\0' : type.front()) {
    case 'c': return buffer.store(static_cast<signed char>(object.int64Value()));
    case 'C': return buffer.store(static_cast<unsigned char>(object.uint64Value()));
    case 'B': return buffer.store(static_cast<unsigned char>(object.boolValue() ? 1 : 0));
    case 's': return buffer.store(static_cast<short>(object.int64Value()));
    case 'S': return buffer.store(static_cast<unsigned short>(object.uint64Value()));
    case 'i': return buffer.store(object.int32Value());
    case 'I': return buffer.store(object.uint32Value());
    case 'l': return buffer.store(static_cast<long>(object.int64Value()));
    case 'L': return buffer.store(static_cast<unsigned long>(object.uint64Value()));
    case 'q': return buffer.store(static_cast<long long>(object.int64Value()));
    case 'Q': return buffer.store(static_cast<unsigned long long>(object.uint64Value()));
    case 'f': return buffer.store(object.floatValue());
    case 'd': return buffer.store(object.doubleValue());
    case '*': return buffer.storeObject(object.isString() ? object : Value());
    case '@': return buffer.storeObject(object);
    default: failWithUnknownType(type, 563);
    }
}

} // namespace kelvane
