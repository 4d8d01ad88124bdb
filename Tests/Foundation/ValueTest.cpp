#include "Foundation/Value.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <thread>

namespace kelvane::tests {
namespace {

constexpr auto largest = std::numeric_limits<std::int64_t>::max();
constexpr auto smallest = std::numeric_limits<std::int64_t>::min();

TEST(Value, ReadsAsEveryNumber) {
    const struct {
        Value value;
        std::int64_t integer;
        double real;
    } cases[] = {
        {{}, 0, 0},
        {"12", 0, 0},
        {Array{1}, 0, 0},
        {true, 1, 1},
        {-7, -7, -7},
        {std::int8_t{-1}, -1, -1},
        {std::uint8_t{200}, 200, 200},
        {std::numeric_limits<std::uint64_t>::max(), -1, 0x1p64},
        {4294967298LL, 4294967298LL, 4294967298.0},
        {-1.9F, -1, static_cast<double>(-1.9F)},
        {0.5, 0, 0.5},
        {-1e300, smallest, -1e300},
    };
    for (const auto& [value, integer, real] : cases) {
        EXPECT_EQ(value.boolValue(), real != 0) << value.description();
        EXPECT_EQ(value.int64Value(), integer) << value.description();
        EXPECT_EQ(value.uint64Value(), static_cast<std::uint64_t>(integer)) << value.description();
        EXPECT_EQ(value.int32Value(), static_cast<std::int32_t>(integer)) << value.description();
        EXPECT_EQ(value.uint32Value(), static_cast<std::uint32_t>(integer)) << value.description();
        EXPECT_EQ(value.doubleValue(), real) << value.description();
    }
    EXPECT_EQ(Value(0x1p63).int64Value(), largest);
    EXPECT_EQ(Value(0x1p63).uint64Value(), 1ULL << 63U);
    EXPECT_EQ(Value(1e300).uint64Value(), ~0ULL);
    EXPECT_EQ(Value(std::nan("")).int64Value(), 0);
}

TEST(Value, KeepsTheWidthAndSignThatAnIntegerWasMadeFrom) {
    const std::pair<Value, Integer> cases[] = {
        {std::int8_t{-1}, {~0ULL, 1, true}},       {'a', {97, 1, true}},
        {std::uint16_t{65535}, {65535, 2, false}}, {-2, {~1ULL, 4, true}},
        {4294967295U, {4294967295U, 4, false}},    {5ULL, {5, 8, true}}, // fits, so it counts as signed
        {1ULL << 63U, {1ULL << 63U, 8, false}}};
    for (const auto& [value, expected] : cases) {
        ASSERT_EQ(value.kind(), Value::Kind::Integer);
        EXPECT_EQ(*value.integer(), expected) << value.description();
    }
    EXPECT_FALSE(Value(true).integer());
}

TEST(Value, ReadsAsEmptyWhatIsNotThere) {
    const Value nothing;
    EXPECT_EQ(nothing.stringValue(), "");
    EXPECT_TRUE(nothing.dataValue().empty());
    EXPECT_EQ(nothing.dateValue(), Date{});
    EXPECT_TRUE(nothing["a"]["b"].at(3).isAbsent());
    EXPECT_EQ(nothing.size(), 0U);
    EXPECT_TRUE(Value(Array{1}).at(1).isAbsent());
    EXPECT_TRUE(Value("text")["text"].isAbsent());
    EXPECT_EQ(Value(5).stringValue(), "");
}

TEST(Value, EqualsByValueWhateverTheKindOfNumber) {
    // Those of one group equal each other and nothing else.
    const std::vector<std::vector<Value>> groups = {
        {{}},
        {0, false, 0.0, -0.0},
        {true, 1, 1.0, 1.0F, std::uint8_t{1}},
        {1.5, 1.5F},
        {-1, -1.0},
        {~0ULL},
        {largest, static_cast<std::uint64_t>(largest)},
        {0x1p63, 1ULL << 63U}, // the double that is nearest to the one above, too
        {smallest, -0x1p63},
        {(1LL << 53U) + 1},
        {0x1p53, 1LL << 53U},
        {std::numeric_limits<double>::infinity()},
        {std::nan(""), std::nanf("")},
        {"1"},
        {""},
        {Data{}},
        {Date{1}},
        {Date{std::nan("")}, Date{std::nan("")}},
        {Value(Array{})},
        {Array{1, true}, Array{1.0, 1}},
        {Value(Array{1})}, // in two braces it would be copied into the group
        {Dictionary{}},
        {Dictionary{{"a", 1}}},
        {Dictionary{{"b", 1}}},
        {Dictionary{{"a", 1}, {"b", Array{}}}, Dictionary{{"b", Array{}}, {"a", true}}},
        {Dictionary{{"b", 1}, {"a", Array{}}}},
    };
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
    array.mutableArray().emplace_back(3);
    EXPECT_EQ(copy, Value(Array{1, Dictionary{{"k", "v"}}}));
    EXPECT_EQ(array, Value(Array{1, Dictionary{{"k", "changed"}}, 3}));

    const Array* before = &array.array();
    array.mutableArray().clear();
    EXPECT_EQ(&array.array(), before) << "nobody shares it, so nothing is copied";
}

TEST(Value, CanBeUsedAgainAfterItWasMovedFrom) {
    for (Value value : {Value("text"), Value(Array{1}), Value(Dictionary{{"a", 1}}), Value(Data{1})}) {
        const Value taken = std::move(value);
        EXPECT_EQ(value.stringValue() + value["a"].stringValue(), ""); // NOLINT(bugprone-use-after-move)
        EXPECT_EQ(value.size() + value.dataValue().size(), 0U);
        value.mutableDictionary().set("b", taken);
        EXPECT_EQ(value, Value(Dictionary{{"b", taken}}));
    }
}

TEST(Value, MayBeSharedBetweenThreads) {
    for (int round = 0; round < 200; ++round) {
        Value value = Dictionary{{"list", Array{1, 2}}};
        std::thread reader([copy = value]() mutable {
            EXPECT_EQ(copy["list"].size(), 2U);
            copy = {};
        });
        value.mutableDictionary().set("list", round);
        value.mutableDictionary().set("more", round);
        reader.join();
        EXPECT_EQ(value["list"].int32Value(), round);
    }
}

TEST(Value, NestedVeryDeepIsGivenUpWithoutOverflow) {
    Value value;
    for (int i = 0; i < 100000; ++i)
        value = i % 2 == 0 ? Value(Array{std::move(value)}) : Value(Dictionary{{"k", std::move(value)}});
    value = {};
    EXPECT_TRUE(value.isAbsent());
}

TEST(Dictionary, KeepsTheOrderOfInsertion) {
    Dictionary entries{{"b", 1}, {"a", 2}, {"b", 3}};
    entries.set("c", 4);
    entries.set("a", 5);
    entries.append("d", 6);
    EXPECT_TRUE(entries.erase("c"));
    EXPECT_FALSE(entries.erase("c"));

    std::string text;
    for (const auto& [key, value] : entries)
        text += key + value.description();
    EXPECT_EQ(text, "b3a5d6");
    EXPECT_EQ(entries.begin()->first, "b");
    EXPECT_EQ(entries.size(), 3U);
    EXPECT_TRUE(entries.contains("d"));
    EXPECT_EQ(entries.find("c"), nullptr);
    EXPECT_TRUE(entries["c"].isAbsent());
}

TEST(Dictionary, SharesItsKeysOnlyUntilTheyDiffer) {
    const Shared<Dictionary::Keys> keys(Dictionary::Keys{"a", "b"});
    Dictionary first(keys, {1, 2});
    Dictionary second(keys, {3, 4});
    first.set("c", 5);
    second.erase("a");
    EXPECT_EQ(first, (Dictionary{{"a", 1}, {"b", 2}, {"c", 5}}));
    EXPECT_EQ(second, (Dictionary{{"b", 4}}));
    EXPECT_EQ(*keys, (Dictionary::Keys{"a", "b"}));
}

TEST(Dictionary, EqualsALargeReorderedOneInReasonableTime) {
    Dictionary forward;
    Dictionary backward;
    for (int i = 0; i < 60000; ++i) {
        forward.append("key " + std::to_string(i), i);
        backward.append("key " + std::to_string(59999 - i), 59999 - i);
    }
    EXPECT_EQ(forward, backward);
    backward.append("one more", 1);
    forward.append("another", 1);
    EXPECT_NE(forward, backward);
}

TEST(Description, IsTheTextForPeople) {
    Value nested = 1;
    for (int i = 0; i < 70; ++i)
        nested = Array{nested};
    const std::pair<Value, std::string> cases[] = {
        {{}, "(null)"},
        {true, "1"},
        {-5, "-5"},
        {~0ULL, "18446744073709551615"},
        {0.1, "0.1"},
        {0.1F, "0.1"},
        {1e21, "1e+21"},
        {"say \"hi\"", "say \"hi\""},
        {Data{0, 255}, "<00ff>"},
        {Array{}, "()"},
        {Array{1, "a", {}}, "(1, \"a\", (null))"},
        {Dictionary{}, "{}"},
        {Dictionary{{"b", Array{2}}, {"a", ""}}, "{b = (2); a = \"\";}"},
        {Date{0}, "2001-01-01T00:00:00Z"},
        {Date{-1}, "2000-12-31T23:59:59Z"},
        {Date{0.5}, "2001-01-01T00:00:00.5Z"},
        {Date{-1e-20}, "2001-01-01T00:00:00Z"},
        {Date{252423993600.0 - 1}, "9999-12-31T23:59:59Z"},
        {Date{252423993600.0}, "252423993600"},
        {Date{-63113904000.0}, "0001-01-01T00:00:00Z"},
        {Date{-63113904001.0}, "-63113904001"},
        {Date{std::nan("")}, "nan"},
        {nested, std::string(64, '(') + "..." + std::string(64, ')')}};
    for (const auto& [value, text] : cases)
        EXPECT_EQ(value.description(), text);
}

TEST(Description, OfWhatExpandsToBillionsStaysShort) {
    Value value = Dictionary{{"key", "text"}};
    for (int i = 0; i < 60; ++i)
        value = i % 2 == 0 ? Value(Array{value, value}) : Value(Dictionary{{"a", value}, {"b", value}});
    const std::string text = value.description();
    EXPECT_LT(text.size(), 1100000U);
    EXPECT_NE(text.find("..."), std::string::npos);
}

} // namespace
} // namespace kelvane::tests
