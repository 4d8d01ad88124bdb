#include "Tools/JsonPropertyList.h"

#include "Foundation/BinaryPropertyList.h"

#include <bit>
#include <gtest/gtest.h>
#include <limits>
#include <nlohmann/json.hpp>

namespace kelvane {
namespace {

std::string jsonText(const Value& value) {
    return jsonFromPropertyList(value).dump();
}

Value readBack(const Value& value) {
    const JsonReading reading = propertyListFromJson(jsonText(value));
    EXPECT_EQ(reading.error, "") << jsonText(value);
    return reading.value;
}

Value nested(int levels) {
    Value value = Array();
    for (int level = 1; level < levels; ++level)
        value = level % 2 == 0 ? Value(Array{value}) : Value(Dictionary{{"$date", value}});
    return value;
}

struct Form {
    Value value;
    std::string json;
};

void PrintTo(const Form& form, std::ostream* stream) {
    *stream << form.json;
}

class EveryKind : public testing::TestWithParam<Form> {};

// Equality of values is by number; the text and the kind say the rest.
TEST_P(EveryKind, HasOneFormThatReadsBackAsItself) {
    const auto& [value, json] = GetParam();
    EXPECT_EQ(jsonText(value), json);
    const Value back = readBack(value);
    EXPECT_EQ(back.kind(), value.kind());
    EXPECT_EQ(back, value);
    EXPECT_EQ(jsonText(back), json);
}

INSTANTIATE_TEST_SUITE_P(
    Values, EveryKind,
    testing::Values(Form{true, "true"}, Form{0, "0"},
                    Form{std::numeric_limits<std::int64_t>::min(), "-9223372036854775808"},
                    Form{std::numeric_limits<std::uint64_t>::max(), "18446744073709551615"}, Form{1.0, "1.0"},
                    Form{-0.0, "-0.0"}, Form{1e22, "1e+22"}, Form{0.1, "0.1"}, Form{5e-324, "5e-324"},
                    Form{0.1F, R"({"$float":0.1})"},
                    Form{std::numeric_limits<float>::max(), R"({"$float":3.4028235e+38})"},
                    Form{std::numeric_limits<double>::quiet_NaN(), R"({"$real":"nan"})"},
                    Form{-std::numeric_limits<double>::infinity(), R"({"$real":"-inf"})"},
                    Form{std::bit_cast<double>(0xfff8000000000001U), R"({"$real":"nan:0xfff8000000000001"})"},
                    Form{std::numeric_limits<float>::infinity(), R"({"$float":"inf"})"},
                    Form{std::string("a\0\n\"\xf0\x9f\x98\x80", 8), "\"a\\u0000\\n\\\"\xf0\x9f\x98\x80\""},
                    Form{Data{}, R"({"$data":""})"}, Form{Data{0xfb, 0xff}, R"({"$data":"+/8="})"},
                    Form{Data{0, 1, 2, 3}, R"({"$data":"AAECAw=="})"},
                    Form{Date{757479845}, R"({"$date":"2025-01-02T03:04:05Z"})"},
                    Form{Date{-0.25}, R"({"$date":"2000-12-31T23:59:59.75Z"})"},
                    Form{Date{757479845.1}, R"({"$date":"2025-01-02T03:04:05.10000002384185791Z"})"},
                    Form{Date{-63113904000.0}, R"({"$date":"0001-01-01T00:00:00Z"})"},
                    Form{Date{-63113904001.0}, R"({"$date":-63113904001.0})"},
                    Form{Date{1e300}, R"({"$date":1e+300})"}, Form{Date{-1e-20}, R"({"$date":-1e-20})"},
                    Form{Date{-0.0}, R"({"$date":-0.0})"},
                    Form{Date{std::numeric_limits<double>::infinity()}, R"({"$date":{"$real":"inf"}})"},
                    Form{Array{1, Array{}, "x"}, R"([1,[],"x"])"},
                    Form{Dictionary{{"z", 1}, {"a", Dictionary{}}}, R"({"z":1,"a":{}})"}));

INSTANTIATE_TEST_SUITE_P(
    DictionariesThatLookLikeMarkers, EveryKind,
    testing::Values(Form{Dictionary{{"$date", "x"}}, R"({"$dictionary":{"$date":"x"}})"},
                    Form{Dictionary{{"$date", Date{0}}},
                         R"({"$dictionary":{"$date":{"$date":"2001-01-01T00:00:00Z"}}})"},
                    Form{Dictionary{{"$float", 1}, {"a", 2}}, R"({"$float":1,"a":2})"},
                    Form{Dictionary{{"$other", 1}}, R"({"$other":1})"},
                    Form{Dictionary{{"$dictionary", Dictionary{{"$data", "x"}}}},
                         R"({"$dictionary":{"$dictionary":{"$dictionary":{"$data":"x"}}}})"},
                    Form{Dictionary{{"$dictionary", Dictionary{{"$data", "x"}}}, {"a", 1}},
                         R"({"$dictionary":{"$dictionary":{"$dictionary":{"$data":"x"}},"a":1}})"},
                    Form{Dictionary{{"a", 1}, {"$dictionary", Dictionary{{"$data", "x"}}}},
                         R"({"a":1,"$dictionary":{"$dictionary":{"$data":"x"}}})"}));

TEST(JsonPropertyList, KeepsTheOrderAndEveryEntryOfALargeDictionary) {
    Dictionary entries;
    for (int i = 0; i < 100000; ++i)
        entries.append("key" + std::to_string(i * 7919 % 100000), i);
    const Value back = readBack(entries);
    ASSERT_EQ(back.size(), entries.size());
    EXPECT_TRUE(std::equal(back.dictionary().begin(), back.dictionary().end(), entries.begin()));
}

TEST(JsonPropertyList, NestsAsDeepAsABinaryPropertyListAndNoDeeper) {
    EXPECT_EQ(readBack(nested(deepestNesting)), nested(deepestNesting));
    EXPECT_TRUE(writeBinaryPropertyList(nested(deepestNesting)).succeeded());
    EXPECT_FALSE(writeBinaryPropertyList(nested(deepestNesting + 1)).succeeded());
    EXPECT_FALSE(propertyListFromJson(jsonText(nested(deepestNesting + 1))).succeeded());
    EXPECT_FALSE(propertyListFromJson(std::string(1000000, '[')).succeeded());
    std::string markers;
    for (int i = 0; i < 1000000; ++i)
        markers += R"({"$dictionary":)";
    EXPECT_FALSE(propertyListFromJson(markers).succeeded());
}

struct Refusal {
    std::string json;
    std::string reason; // how it begins
};

void PrintTo(const Refusal& refusal, std::ostream* stream) {
    *stream << refusal.json;
}

class Refused : public testing::TestWithParam<Refusal> {};

TEST_P(Refused, SaysWhereAndWhy) {
    const JsonReading reading = propertyListFromJson(GetParam().json);
    EXPECT_TRUE(reading.value.isAbsent());
    EXPECT_EQ(reading.error.substr(0, GetParam().reason.size()), GetParam().reason);
    EXPECT_EQ(reading.error.find('\n'), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Inputs, Refused,
    testing::Values(
        Refusal{"", "line 1, column 0: "}, Refusal{"[1,\n 2,]", "line 2, column 4: syntax error"},
        Refusal{"{\"a\":\nnull}", "line 2, column 4: null has no place"},
        Refusal{R"({"a":1,"b":2,"a":3})", "line 1, column 16: the key \"a\" stands twice"},
        Refusal{"\"\xff\"", "line 1, column 2: "}, Refusal{"\"\\ud800\"", "line 1, column 8: "},
        Refusal{std::string("1\0x", 3), "line 1, column 2: a zero byte"},
        Refusal{"1 2", "line 1, column 3: "},
        Refusal{"18446744073709551616", "line 1, column 20: the integer 18446744073709551616"},
        Refusal{"1e999", "line 1, column 5: number overflow"},
        Refusal{R"({"$date":"2025-02-30T00:00:00Z"})", "line 1, column 32: \"$date\" does not take"},
        Refusal{R"({"$date":"2025-01-02T03:04:60Z"})", "line 1, column 32: "},
        Refusal{R"({"$date":"2025-01-02T03:04:05.Z"})", "line 1, column 33: "},
        Refusal{R"({"$date":true})", "line 1, column 14: "},
        Refusal{R"({"$data":"AA="})", "line 1, column 15: "},
        Refusal{R"({"$data":"AB=="})", "line 1, column 16: "},
        Refusal{R"({"$data":"A==="})", "line 1, column 16: "},
        Refusal{R"({"$float":1e39})", "line 1, column 15: "},
        Refusal{R"({"$real":"1"})", "line 1, column 13: "},
        Refusal{R"({"$real":"nan:0x3ff0000000000000"})", "line 1, column 34: "},
        Refusal{R"({"$dictionary":[]})", "line 1, column 18: "},
        Refusal{R"({"$dictionary":{},"a":1})", "line 1, column 21: \"$dictionary\" stands alone"}));

} // namespace
} // namespace kelvane
