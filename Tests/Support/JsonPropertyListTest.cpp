#include "Support/Json/JsonPropertyList.h"

#include "Foundation/PropertyList/BinaryPropertyList.h"

#include <bit>
#include <gtest/gtest.h>
#include <limits>
#include <nlohmann/json.hpp>

namespace kelvane {
namespace {

std::string jsonText(const Value& value) {
    return jsonFromPropertyList(value).dump();
}

TEST(JsonPropertyList, HasAFormForEveryKind) {
    const std::pair<Value, std::string> forms[] = {
        {std::numeric_limits<std::int64_t>::min(), "-9223372036854775808"},
        {std::numeric_limits<std::uint64_t>::max(), "18446744073709551615"},
        {std::string("a\0\n\"\xf0\x9f\x98\x80", 8), "\"a\\u0000\\n\\\"\xf0\x9f\x98\x80\""},
        {Data{0xfb, 0xff}, R"({"$data":"+/8="})"},
        {0.1F, R"({"$float":0.1})"},
        {std::bit_cast<double>(0xfff8000000000001U), R"({"$real":"nan:0xfff8000000000001"})"},
        {std::numeric_limits<double>::quiet_NaN(), R"({"$real":"nan"})"},
        {Date{757479845.1}, R"({"$date":"2025-01-02T03:04:05.10000002384185791Z"})"},
        {Date{-63113904001.0}, R"({"$date":-63113904001.0})"},
        {Dictionary{{"$date", "x"}}, R"({"$dictionary":{"$date":"x"}})"}};
    for (const auto& [value, json] : forms) {
        EXPECT_EQ(jsonText(value), json);
        EXPECT_EQ(propertyListFromJson(json).value, value) << json;
    }
}

// Values compare by number only; the text also shows the type and the order.
TEST(JsonPropertyList, NothingIsLostOnTheWayThroughABinaryPropertyList) {
    const char* const texts[] = {
        "true",
        "[1,1.0,-0.0,5e-324,[],\"x\"]",
        R"([{"$float":3.4028235e+38},{"$float":"inf"},{"$real":"-inf"}])",
        R"([{"$date":-1e-20},{"$date":{"$real":"inf"}},{"$date":"0001-01-01T00:00:00Z"},{"$data":""}])",
        R"({"z":1,"a":{},"$float":1,"$other":{"$other":1}})",
        R"({"$dictionary":{"$dictionary":{"$dictionary":{"$data":"x"}}}})",
        R"({"a":1,"$dictionary":{"$dictionary":{"$data":"x"}}})"};
    for (const std::string json : texts) {
        const PropertyListWriting written = writeBinaryPropertyList(propertyListFromJson(json).value);
        EXPECT_EQ(jsonText(readBinaryPropertyList(written.bytes).value), json) << written.error;
    }
}

TEST(JsonPropertyList, NestsAsDeepAsABinaryPropertyListAndNoDeeper) {
    Value value = Array();
    for (int level = 2; level <= deepestNesting + 1; ++level) {
        value = level % 2 == 0 ? Value(Array{value}) : Value(Dictionary{{"$date", value}});
        EXPECT_EQ(writeBinaryPropertyList(value).succeeded(), level <= deepestNesting);
        EXPECT_EQ(propertyListFromJson(jsonText(value)).succeeded(), level <= deepestNesting);
    }
    for (const std::string opening : {"[", R"({"$dictionary":)"}) {
        std::string text;
        for (int i = 0; i < 1000000; ++i)
            text += opening;
        EXPECT_FALSE(propertyListFromJson(text).succeeded());
    }
}

TEST(JsonPropertyList, ARefusalSaysWhereAndWhy) {
    const std::pair<std::string, std::string> refusals[] = {
        {"", "it is empty"},
        {"[1,\n 2,]", "line 2, column 4: syntax error"},
        {"{\"a\":\nnull}", "line 2, column 4: null is not supported"},
        {R"({"a":1,"b":2,"a":3})", "line 1, column 16: the key \"a\" occurs twice"},
        {"\"\xff\"", "line 1, column 2: "},
        {std::string("1\0", 2), "line 1, column 2: the text contains a NUL byte"},
        {"18446744073709551616", "line 1, column 20: the integer 18446744073709551616"},
        {R"({"$date":"2025-02-30T00:00:00Z"})", "line 1, column 32: \"$date\" does not take"},
        {R"({"$data":"AB=="})", "line 1, column 16: "},
        {R"({"$dictionary":{},"a":1})", "line 1, column 21: \"$dictionary\" must be the only key"}};
    for (const auto& [json, reason] : refusals) {
        const JsonReading reading = propertyListFromJson(json);
        EXPECT_TRUE(reading.value.isAbsent()) << json;
        EXPECT_TRUE(reading.error.starts_with(reason)) << json << ": " << reading.error;
        EXPECT_EQ(reading.error.find('\n'), std::string::npos) << json;
    }
    for (const std::string json :
         {R"({"$real":"x"})", R"({"$real":"nan:0x1"})", R"({"$real":"nan:0x7ff8000000000001x"})",
          R"({"$real":[1]})", R"({"$float":3.5e38})", R"({"$float":[1]})", R"({"$data":"A"})",
          R"({"$data":"A*=="})", R"({"$data":1})", R"({"$date":"2025-01-02T03:04:05.Z"})"})
        EXPECT_TRUE(propertyListFromJson(json).error.starts_with("line 1, column " +
                                                                 std::to_string(json.size()) + ": \"$"))
            << json;
}

} // namespace
} // namespace kelvane
