#include "Common/ValueBuffer.h"
#include "Tests/Harness/LinkPair.h"

#include <climits>

namespace kelvane::tests {
namespace {

template <class Number>
void checkNumber(const char* type, Number number) {
    SCOPED_TRACE(type);
    ValueBuffer buffer;
    buffer.store(number);
    std::uint32_t size = 0;
    const Value encoded = KelvaneProxy::encodeType(type, buffer, &size);
    EXPECT_EQ(encoded, Value(number));
    EXPECT_EQ(encoded.kind(), Value(number).kind());
    EXPECT_EQ(size, sizeof number);
    for (const auto& [object, expected] :
         {std::pair(encoded, number), {Value("7"), Number{}}, {Value(), Number{}}}) {
        KelvaneProxy::decodeObject(object, type, buffer);
        EXPECT_EQ(buffer.load<Number>(), expected) << object.description();
    }
}

TEST(ValueBuffer, TurnsNumbersOfEachTypeIntoObjectsAndBack) {
    checkNumber<signed char>("c", -100);
    checkNumber<unsigned char>("C", 200);
    checkNumber<short>("s", -30000);
    checkNumber<unsigned short>("S", 60000);
    checkNumber<int>("i", -2000000000);
    checkNumber<unsigned>("I", 4000000000);
    checkNumber<long>("l", LONG_MIN);
    checkNumber<unsigned long>("L", ULONG_MAX);
    checkNumber<long long>("q", LLONG_MIN);
    checkNumber<unsigned long long>("Q", ULLONG_MAX);
    checkNumber<float>("f", 0.5F);
    checkNumber<double>("d", 0.1);

    ValueBuffer buffer;
    decodeValue(2, "B", buffer); // a bool is one byte that is 1 or 0
    EXPECT_EQ(buffer.load<unsigned char>(), 1);
    EXPECT_EQ(encodeValue("B", buffer).kind(), Value::Kind::Bool);
    decodeValue(2 + 256, "c", buffer);
    EXPECT_EQ(buffer.load<signed char>(), 2);
}

TEST(ValueBuffer, PassesTextsAndObjectsThrough) {
    ValueBuffer buffer;
    for (const Value& object : {Value("tëxt"), Value(Array{1, "two"}), Value(7), Value()}) {
        decodeValue(object, "@\"NSObject\"", buffer); // only the first character counts
        EXPECT_EQ(encodeValue("@", buffer), object);
        decodeValue(object, "*", buffer);
        EXPECT_EQ(encodeValue("*", buffer), object.isString() ? object : Value());
        EXPECT_STREQ(buffer.text(), object.isString() ? "tëxt" : nullptr);
    }
}

TEST(ValueBuffer, RefusesUnknownTypes) {
    ValueBuffer buffer;
    for (const std::string type : {"v", "^v", ":", "#", "{p=ii}", "[4i]", "r*"}) {
        const std::string text =
            "Unknown argument type specifier: " + type.substr(0, 1) + " (Common/KelvProxy:";
        EXPECT_EQ(assertionOf([&] { static_cast<void>(encodeValue(type, buffer)); }), text + "489)");
        EXPECT_EQ(assertionOf([&] { decodeValue(1, type, buffer); }), text + "563)");
    }
    EXPECT_NE(assertionOf([&] { decodeValue(1, "", buffer); }), "");
}

} // namespace
} // namespace kelvane::tests
