#include "Foundation/Value.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace kelvane::tests {

constexpr auto largestInteger = std::numeric_limits<std::int64_t>::max();
constexpr auto smallest = std::numeric_limits<std::int64_t>::min();

TEST(Value, ReadsAsEveryNumber) {
    const std::tuple<Value, std::int64_t, double> cases[] = {{{}, 0, 0},
                                                             {"12", 0, 0},
                                                             {Value(Array{1}), 0, 0},
                                                             {Data{1}, 0, 0},
                                                             {true, 1, 1},
                                                             {-7, -7, -7},
                                                             {std::int8_t{-1}, -1, -1},
                                                             {std::uint8_t{200}, 200, 200},
                                                             {~0ULL, -1, 0x1p64},
                                                             {4294967298LL, 4294967298LL, 4294967298.0},
                                                             {-1.9F, -1, static_cast<double>(-1.9F)},
                                                             {0.5, 0, 0.5},
                                                             {-1e300, smallest, -1e300}};
    for (const auto& [value, integer, real] : cases) {
        EXPECT_EQ(value.boolValue(), real != 0) << value.description();
        EXPECT_EQ(value.int64Value(), integer) << value.description();
        EXPECT_EQ(value.uint64Value(), static_cast<std::uint64_t>(integer)) << value.description();
        EXPECT_EQ(value.uint32Value(), static_cast<std::uint32_t>(integer)) << value.description();
        EXPECT_EQ(value.doubleValue(), real) << value.description();
    }
    EXPECT_EQ(Value(0x1p63).int64Value(), largestInteger);
    EXPECT_EQ(Value(0x1p63).uint64Value(), 1ULL << 63U);
    EXPECT_EQ(Value(1e300).uint64Value(), ~0ULL);
    EXPECT_EQ(Value(std::nan("")).int64Value(), 0);
}

TEST(Value, ReadsAsEmptyWhatIsNotThere) {
    for (const Value& nothing : {Value(), Value(5)}) {
        EXPECT_EQ(nothing.stringValue(), "");
        EXPECT_EQ(nothing.dateValue(), Date{});
        EXPECT_EQ(nothing.dataValue().size() + nothing.size(), 0U);
        EXPECT_TRUE(nothing["a"]["b"].at(3).isAbsent());
    }
    EXPECT_TRUE(Value(Array{1}).at(1).isAbsent());
}

TEST(Value, EqualsByValueWhateverTheKindOfNumber) {
    // The values of a group equal each other and no others. 2^63 is also the double nearest to 2^63 - 1. In
    // two braces a single array would be copied into its group.
    const std::vector<std::vector<Value>> groups = {
        {{}},
        {0, false, -0.0},
        {true, 1, 1.0, 1.0F, std::uint8_t{1}},
        {-1, -1.0},
        {~0ULL},
        {largestInteger, static_cast<std::uint64_t>(largestInteger)},
        {0x1p63, 1ULL << 63U},
        {smallest, -0x1p63},
        {(1LL << 53U) + 1},
        {0x1p53, 1LL << 53U},
        {std::numeric_limits<double>::infinity()},
        {std::nan(""), std::nanf("")},
        {"1"},
        {Data{'1'}},
        {Date{1}},
        {Date{std::nan("")}, Date{std::nan("")}},
        {Array{1, true}, Array{1.0, 1}},
        {Value(Array{1})},
        {Dictionary{{"a", 1}, {"b", Array{}}}, Dictionary{{"b", Array{}}, {"a", true}}},
        {Dictionary{{"b", 1}, {"a", Array{}}}}};
    for (const auto& group : groups)
        for (const Value& left : group)
            for (const auto& other : groups)
                for (const Value& right : other)
                    EXPECT_EQ(left == right, &group == &other)
                        << left.description() << ", " << right.description();
}

TEST(Value, CopiesAreIndependentOfOneAnother) {
    Value array = Array{1, Dictionary{{"k", "v"}}};
    const Value copy = array;
    array.mutableArray()[1].mutableDictionary().set("k", "changed");
    EXPECT_EQ(copy, Value(Array{1, Dictionary{{"k", "v"}}}));
    EXPECT_EQ(array, Value(Array{1, Dictionary{{"k", "changed"}}}));

    const Array* before = &array.array();
    array.mutableArray().clear();
    EXPECT_EQ(&array.array(), before) << "nobody shares it, so nothing is copied";
}

TEST(Value, NestedVeryDeepIsGivenUpWithoutOverflow) {
    Value value;
    for (int i = 0; i < 100000; ++i)
        value = i % 2 == 0 ? Value(Array{std::move(value)}) : Value(Dictionary{{"k", std::move(value)}});
    value = {};
    EXPECT_TRUE(value.isAbsent());
}

TEST(Dictionary, KeepsTheOrderOfInsertionAndSharesItsKeysOnlyUntilTheyDiffer) {
    const Shared<Dictionary::Keys> keys(Dictionary::Keys{"b", "a"});
    Dictionary first(keys, {1, 2});
    Dictionary second(keys, {3, 4});
    first.set("c", 5);
    first.set("a", 6);
    first.append("d", 7);
    EXPECT_TRUE(first.erase("c"));
    EXPECT_FALSE(first.erase("c"));
    EXPECT_TRUE(second.erase("b"));
    EXPECT_EQ(Value(first).description(), "{b = 1; a = 6; d = 7;}");
    EXPECT_EQ(Value(second).description(), "{a = 4;}");
    EXPECT_EQ(first.size(), 3U);
    EXPECT_EQ(first.find("c"), nullptr);
    EXPECT_EQ(Value(Dictionary{{"b", 1}, {"a", 2}, {"b", 3}}).description(), "{b = 3; a = 2;}");
}

TEST(Description, OfWhatExpandsToBillionsStaysShort) {
    Value value = Dictionary{{"key", "text"}};
    for (int i = 0; i < 60; ++i)
        value = i % 2 == 0 ? Value(Array{value, value}) : Value(Dictionary{{"a", value}, {"b", value}});
    const std::string text = value.description();
    EXPECT_LT(text.size(), 1100000U);
    EXPECT_NE(text.find("..."), std::string::npos);
}

} // namespace kelvane::tests
