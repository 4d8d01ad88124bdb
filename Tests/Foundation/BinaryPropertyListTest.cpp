#include "Foundation/PropertyList/BinaryPropertyList.h"
#include "Foundation/Unicode.h"
#include "Tests/Foundation/RawPropertyList.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <numeric>

namespace kelvane::tests {
namespace {

constexpr auto largest = std::numeric_limits<std::int64_t>::max();

Data written(const Value& value) {
    PropertyListWriting writing = writeBinaryPropertyList(value);
    EXPECT_EQ(writing.error, "");
    return std::move(writing.bytes);
}

Value read(const Data& bytes) {
    PropertyListReading reading = readBinaryPropertyList(bytes);
    EXPECT_EQ(reading.error, "") << hexOf(bytes);
    return std::move(reading.value);
}

Value readBack(const Value& value) {
    return read(written(value));
}

Value readObject(const std::string& object) {
    return read(RawPropertyList{{object}}.bytes());
}

template <class... Items>
Array arrayOf(const Items&... items) {
    return {Value(items)...};
}

// Returns the number of objects in the written list.
std::uint64_t objectCount(const Value& value) {
    const Data bytes = written(value);
    return std::accumulate(bytes.end() - 24, bytes.end() - 16, std::uint64_t{0},
                           [](std::uint64_t count, std::uint8_t byte) { return count * 256 + byte; });
}

TEST(BinaryPropertyList, WritesEachObjectInTheFewestBytes) {
    const std::pair<Value, const char*> cases[] = {
        {Array{false, true}, "a20102 08 09"},
        {Array{0, std::uint8_t{255}, 256}, "a3010203 1000 10ff 110100"},
        {Array{65535, 65536, 4294967295LL}, "a3010203 11ffff 1200010000 12ffffffff"},
        {Array{4294967296LL, -1}, "a20102 130000000100000000 13ffffffffffffffff"},
        {Array{std::int8_t{-128}, largest}, "a20102 13ffffffffffffff80 137fffffffffffffff"},
        {Array{1ULL << 63U}, "a101 1400000000000000008000000000000000"},
        {Array{1.5F, 1.5, Date{-0.5}}, "a3010203 223fc00000 233ff8000000000000 33bfe0000000000000"},
        {Array{Data{1, 2}, Data(15, 1)}, "a20102 420102 4f100f010101010101010101010101010101"},
        {Array{"", "fourteen bytes"}, "a20102 50 5e666f75727465656e206279746573"},
        {Array{"fifteen bytes.."}, "a101 5f100f6669667465656e2062797465732e2e"},
        {Array{"\U0001F600", Array{}, Dictionary{}}, "a3010203 62d83dde00 a0 d0"},
    };
    for (const auto& [value, objects] : cases) {
        std::string expected = objects;
        std::erase(expected, ' ');
        const Data bytes = written(value);
        EXPECT_EQ(hexOf(bytes).substr(16, expected.size()), expected);
        EXPECT_EQ(bytes.size(), 8 + expected.size() / 2 + objectCount(value) + 32) << expected;
        EXPECT_EQ(readBack(value), value) << expected;
    }
}

TEST(BinaryPropertyList, ReadsIntegersAndCountsOfEveryWidth) {
    const std::string ones(8, '\xFF');
    const std::pair<std::string, std::int64_t> cases[] = {
        {"\x10\xFF", 255},   {"\x11\xFF\xFF", 65535},        {"\x12\xFF\xFF\xFF\xFF", 4294967295LL},
        {"\x13" + ones, -1}, {"\x14" + bigEndian(7, 16), 7}, {"\x14" + ones + bigEndian(-9ULL, 8), -9},
    };
    for (const auto& [object, expected] : cases)
        EXPECT_EQ(readObject(object).integer(), Value(expected).integer()) << expected;
    EXPECT_EQ(readObject("\x14" + bigEndian(~0ULL, 16)), Value(~0ULL));
    for (unsigned power = 0; power <= 3; ++power) {
        const std::string count = std::string(1, static_cast<char>(0x10 + power)) + bigEndian(3, 1U << power);
        EXPECT_EQ(readObject("\x4F" + count + "xyz"), Value(Data{'x', 'y', 'z'})) << power;
        EXPECT_EQ(readObject("\x5F" + count + "xyz"), Value("xyz")) << power;
    }
}

TEST(BinaryPropertyList, ReadsOffsetsAndReferencesOfEveryWidth) {
    for (unsigned offsetWidth = 1; offsetWidth <= 8; ++offsetWidth) {
        for (unsigned width = 1; width <= 8; ++width) {
            const auto reference = [width](std::uint64_t object) { return bigEndian(object, width); };
            RawPropertyList list{{"Qa", "\x10\x07"}, offsetWidth, width, 3};
            list.objects.push_back("\xD1" + reference(0) + reference(1));
            list.objects.push_back("\xA2" + reference(2) + reference(1));
            EXPECT_EQ(read(list.bytes()), Value(Array{Dictionary{{"a", 7}}, 7})) << offsetWidth << width;
        }
    }
}

TEST(BinaryPropertyList, WritesEqualObjectsOnceAndKeepsApartWhatIsAlike) {
    const Value twins = Dictionary{{"a", Array{"a", 5, std::uint8_t{5}, 1.5, Date{1.5}, Data{1}, true}},
                                   {"b", Array{"a", 5, 5LL, 1.5, Date{1.5}, Data{1}, true}}};
    EXPECT_EQ(objectCount(twins), 3U + 2U + 5U) << "containers, keys, and what is neither";

    std::string wide;
    for (int i = 0; i < 5000; ++i)
        wide += i % 3 == 0 ? "a" : i % 3 == 1 ? "\xE2\x82\xAC" : "\xF0\x9F\x98\x80";
    const Array values = arrayOf(true, 1, 1.0, 1.0F, "1", Data{'1'}, Date{1}, 0.0, -0.0, std::nan(""),
                                 Date{std::nan("")}, Data(100000, 0xAB), std::string("nul\0inside", 10),
                                 "\x7F", "\xC2\x80", "\xEF\xBF\xBF", "\xF4\x8F\xBF\xBF", wide);
    EXPECT_EQ(objectCount(values), 1 + values.size());
    const Value back = readBack(values);
    EXPECT_EQ(back.description(), Value(values).description()) << "order and sign";
    for (std::size_t i = 0; i < values.size(); ++i)
        EXPECT_EQ(back.at(i).kind(), values[i].kind()) << i;
}

TEST(BinaryPropertyList, WritesASharedContainerOnceAndSharesItAgainWhenRead) {
    Value value = "leaf";
    for (int i = 0; i < 16; ++i)
        value = i % 2 == 0 ? Value(Array{value, value}) : Value(Dictionary{{"l", value}, {"r", value}});
    EXPECT_LT(written(value).size(), 400U);
    Value back = readBack(value);
    EXPECT_EQ(&back["l"].array(), &back["r"].array());
    back.mutableDictionary().set("l", 1);
    EXPECT_EQ(back["r"], value["r"]) << "each reference is a value of its own";
}

TEST(BinaryPropertyList, ChoosesWiderReferencesAsObjectsGrow) {
    for (const int count : {254, 255, 256, 65534, 65535, 65536, 70000}) {
        Array items;
        for (int i = 0; i < count; ++i)
            items.push_back(i % 2 == 0 ? Value(i) : Value("n" + std::to_string(i)));
        const Value value = Array{Dictionary{{"items", items}, {"more", Array{items[0], items.back(), "x"}}}};
        EXPECT_EQ(readBack(value), value) << count;
        EXPECT_EQ(objectCount(value), items.size() + 7) << "each once, also those from before the table grew";
    }
}

TEST(BinaryPropertyList, RefusesToWriteWhatAReaderCouldNotTake) {
    const auto errorOf = [](const Value& value) { return writeBinaryPropertyList(value).error; };
    EXPECT_EQ(errorOf({}), "a value is absent");
    EXPECT_EQ(errorOf(Array{1, Dictionary{{"k", Value()}}}), "a value is absent");
    Value loop = Array{1};
    Array& insideLoop = loop.mutableArray();
    insideLoop.push_back(loop);
    EXPECT_EQ(errorOf(loop), "a container contains itself");
    insideLoop.clear();
    // Bytes that start no sequence, end too early, use an overlong form, encode a surrogate or exceed the
    // last character.
    for (const char* text :
         {"\xFF", "\x80", "x\xE2\x82", "\xC0\x80", "\xF0\x82\x82\xAC", "\xED\xA0\x80", "\xF4\x90\x80\x80"}) {
        EXPECT_EQ(errorOf(text), "a string is not UTF-8");
        EXPECT_EQ(errorOf(Array{Dictionary{{text, 1}}}), "a string is not UTF-8");
        EXPECT_FALSE(isUtf8(text));
    }
}

TEST(BinaryPropertyList, RefusesToWriteDeeperThanItReads) {
    const auto errorOf = [](const Value& value) { return writeBinaryPropertyList(value).error; };
    const auto around = [](Value inner, int levels) {
        for (int level = 0; level < levels; ++level)
            inner = level % 2 == 0 ? Value(Array{1, inner, Array{}}) : Value(Dictionary{{"k", inner}});
        return inner;
    };
    const Value deepest = around(Array{}, deepestNesting - 1);
    EXPECT_EQ(readBack(deepest), deepest);
    EXPECT_EQ(errorOf(Array{deepest}), "it is nested too deeply");
    // A list of half the depth limit, already read, that occurs again at the bottom of the other half.
    const Value half = around(Array{}, deepestNesting / 2 - 1);
    EXPECT_EQ(errorOf(Array{half, around(half, deepestNesting / 2 - 1)}), "");
    EXPECT_EQ(errorOf(Array{half, around(half, deepestNesting / 2), 1}), "it is nested too deeply");
}

// An independent reader and writer of the format.
TEST(BinaryPropertyList, AgreesWithPython) {
    const Value value =
        Dictionary{{"wide", "\xC3\xA9\xF0\x9F\x98\x80"},
                   {"numbers", Array{0, 255, 256, 65536, 4294967296LL, -1, 1ULL << 63U, 1.25, true, false}},
                   {"data", Data{0, 1, 255}},
                   {"a date", Date{725846400}},
                   {"nested", Dictionary{{"empty", Array{}}, {"none", Dictionary{}}}}};
    const TemporaryFolder folder;
    const Data bytes = written(value);
    folder.write("ours", {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    folder.write("script", "import plistlib\n"
                           "value = plistlib.load(open('ours', 'rb'))\n"
                           "open('text', 'w').write(ascii(value))\n"
                           "plistlib.dump(value, open('theirs', 'wb'), fmt=plistlib.FMT_BINARY)\n");
    ASSERT_EQ(std::system(("cd " + folder.path() + " && /usr/bin/python3 script").c_str()), 0);
    EXPECT_EQ(folder.read("text"),
              R"({'wide': '\xe9\U0001f600', 'numbers': [0, 255, 256, 65536, 4294967296, -1, )"
              R"(9223372036854775808, 1.25, True, False], 'data': b'\x00\x01\xff', )"
              R"('a date': datetime.datetime(2024, 1, 2, 0, 0), 'nested': {'empty': [], 'none': {}}})");
    const std::string theirs = folder.read("theirs");
    const Value back = read(Data(theirs.begin(), theirs.end()));
    EXPECT_EQ(back, value);
    EXPECT_EQ(back["numbers"].at(8).kind(), Value::Kind::Bool);
}

} // namespace
} // namespace kelvane::tests
