#include "Foundation/BinaryPropertyList.h"
#include "Foundation/Unicode.h"
#include "Tests/Foundation/RawPropertyList.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>

namespace kelvane::tests {
namespace {

constexpr auto largest = std::numeric_limits<std::int64_t>::max();

Data written(const Value& value) {
    PropertyListWriting writing = writeBinaryPropertyList(value);
    EXPECT_EQ(writing.error, "");
    return std::move(writing.bytes);
}

Value readBack(const Value& value) {
    PropertyListReading reading = readBinaryPropertyList(written(value));
    EXPECT_EQ(reading.error, "");
    return std::move(reading.value);
}

Value readObject(const std::string& object) {
    PropertyListReading reading = readBinaryPropertyList(RawPropertyList{{object}}.bytes());
    EXPECT_EQ(reading.error, "") << hexOf({object.begin(), object.end()});
    return std::move(reading.value);
}

// Of fewer than 256.
unsigned objectCount(const Value& value) {
    const Data bytes = written(value);
    return bytes[bytes.size() - 17];
}

TEST(BinaryPropertyList, LooksAsPublished) {
    const Value value = Dictionary{{"a", 1}, {"b", Array{true, "é", 1}}};
    EXPECT_EQ(hexOf(written(value)), "62706c6973743030" // bplist00
                                     "d201020304"       // 08: dictionary; keys 1 and 2, values 3 and 4
                                     "5161"             // 0d: "a"
                                     "5162"             // 0f: "b"
                                     "1001"             // 11: 1
                                     "a3050603"         // 13: array of 5, 6 and once more 3
                                     "09"               // 17: true
                                     "6100e9"           // 18: "é"
                                     "080d0f11131718"   // the table at 1b
                                     "0000000000000101" // widths of offsets and references
                                     "0000000000000007" // objects
                                     "0000000000000000" // top object
                                     "000000000000001b");
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
        EXPECT_EQ(hexOf(written(value)).substr(16, expected.size()), expected);
        EXPECT_EQ(readBack(value), value) << expected;
    }
}

TEST(BinaryPropertyList, ReadsIntegersOfEveryWidthWithTheirSign) {
    const std::string ones(8, '\xFF');
    const std::pair<std::string, std::int64_t> cases[] = {
        {"\x10\xFF", 255},   {"\x11\xFF\xFF", 65535},        {"\x12\xFF\xFF\xFF\xFF", 4294967295LL},
        {"\x13" + ones, -1}, {"\x14" + bigEndian(7, 16), 7}, {"\x14" + ones + bigEndian(-9ULL, 8), -9},
    };
    for (const auto& [object, expected] : cases)
        EXPECT_EQ(*readObject(object).integer(), *Value(expected).integer()) << expected;
    EXPECT_EQ(readObject("\x14" + bigEndian(~0ULL, 16)), Value(~0ULL));
}

TEST(BinaryPropertyList, ReadsOffsetsAndReferencesOfEveryWidth) {
    for (unsigned offsetWidth = 1; offsetWidth <= 8; ++offsetWidth) {
        for (unsigned width = 1; width <= 8; ++width) {
            const auto reference = [width](std::uint64_t object) { return bigEndian(object, width); };
            RawPropertyList list{{"Qa", "\x10\x07"}, offsetWidth, width, 3};
            list.objects.push_back("\xD1" + reference(0) + reference(1));
            list.objects.push_back("\xA2" + reference(2) + reference(1));
            EXPECT_EQ(readBinaryPropertyList(list.bytes()).value, Value(Array{Dictionary{{"a", 7}}, 7}))
                << offsetWidth << ", " << width;
        }
    }
}

TEST(BinaryPropertyList, ReadsCountsOfEveryWidth) {
    for (unsigned power = 0; power <= 3; ++power) {
        const std::string count = std::string(1, static_cast<char>(0x10 + power)) + bigEndian(3, 1U << power);
        EXPECT_EQ(readObject("\x4F" + count + "xyz"), Value(Data{'x', 'y', 'z'})) << power;
        EXPECT_EQ(readObject("\x5F" + count + "xyz"), Value("xyz")) << power;
    }
}

TEST(BinaryPropertyList, KeepsEveryKindThroughARoundTrip) {
    std::string long16;
    for (int i = 0; i < 5000; ++i)
        long16 += i % 3 == 0 ? "a" : i % 3 == 1 ? "\xE2\x82\xAC" : "\xF0\x9F\x98\x80";
    Array values = {true,
                    1,
                    1.0,
                    1.0F,
                    -0.0,
                    std::nan(""),
                    "1",
                    std::string("nul\0inside", 10),
                    "\x7F",
                    "\xC2\x80",
                    "\xEF\xBF\xBF",
                    "\xF4\x8F\xBF\xBF",
                    long16,
                    Data(),
                    Data(100000, 0xAB),
                    Date(),
                    Array()};
    values.emplace_back(Date{725846400.25});
    values.emplace_back(Date{std::nan("")});
    values.emplace_back(Dictionary{{"z", 1}, {"", Array{Array{}}}, {"\xC3\xA9", Dictionary{{"a", Data{0}}}}});
    for (const Value& value : values) {
        const Value back = readBack(value);
        EXPECT_EQ(back.kind(), value.kind());
        EXPECT_EQ(back, value);
        EXPECT_EQ(back.description(), value.description()) << "order and sign as well";
        EXPECT_EQ(readBack(Array(20, value)), Value(Array(20, value)));
    }
}

TEST(BinaryPropertyList, WritesEqualObjectsOfOneKindOnce) {
    const Value twins = Dictionary{{"a", Array{"a", 5, std::uint8_t{5}, 1.5, Date{1.5}, Data{1}, true}},
                                   {"b", Array{"a", 5, 5LL, 1.5, Date{1.5}, Data{1}, true}}};
    EXPECT_EQ(objectCount(twins), 3U + 2U + 5U) << "containers, keys, and what is neither";

    // Alike, yet not the same.
    const Value strangers = Array{true, 1, 1.0, 1.0F, "1", Data{'1'}, Date{1}, 0.0, -0.0, "\xC3\xA9"};
    EXPECT_EQ(objectCount(strangers), 1 + strangers.size());
    EXPECT_EQ(readBack(strangers).description(), strangers.description());
}

TEST(BinaryPropertyList, KeepsApartWhatStandsAtTheSamePlaceInAlikeContainers) {
    const Value kinds[] = {
        1, true, 1.0, 1.0F, "1", -1, ~0ULL, Date{1}, Data{1}, Array{1}, Dictionary{{"k0", 1}}};
    Array rows;
    for (unsigned row = 0; row < 40; ++row) {
        Dictionary entries;
        for (unsigned i = 0; i < 20 + row % 3; ++i)
            entries.append("k" + std::to_string(i / (1 + row % 2)) + (i % 2 ? "x" : ""),
                           kinds[row * i / 7 % std::size(kinds)]);
        rows.emplace_back(std::move(entries));
    }
    const Value back = readBack(rows);
    EXPECT_EQ(back, Value(rows));
    for (std::size_t row = 0; row < rows.size(); ++row)
        for (const auto& [key, value] : rows[row].dictionary())
            EXPECT_EQ(back.at(row)[key].kind(), value.kind()) << row << ' ' << key;
}

TEST(BinaryPropertyList, WritesASharedContainerOnceAndSharesItAgainWhenRead) {
    Value value = "leaf";
    for (int i = 0; i < 16; ++i)
        value = i % 2 == 0 ? Value(Array{value, value}) : Value(Dictionary{{"l", value}, {"r", value}});
    const Data bytes = written(value);
    EXPECT_LT(bytes.size(), 400U);

    Value back = readBinaryPropertyList(bytes).value;
    EXPECT_EQ(back, value);
    EXPECT_EQ(&back["l"].array(), &back["r"].array());
    back.mutableDictionary().set("l", 1);
    EXPECT_EQ(back["r"], value["r"]) << "each reference is a value of its own";
}

TEST(BinaryPropertyList, ChoosesWiderReferencesAsObjectsGrow) {
    for (const int count : {254, 255, 256, 65534, 65535, 65536, 70000}) {
        Array items;
        for (int i = 0; i < count; ++i)
            items.emplace_back(i);
        const Value value = Array{Dictionary{{"items", items}, {"more", Array{items.back(), "x"}}}};
        EXPECT_EQ(readBack(value), value) << count;
    }
}

TEST(BinaryPropertyList, RefusesToWriteWhatAReaderCouldNotTake) {
    Value nested = Array{};
    for (int level = 1; level < deepestNesting; ++level)
        nested = level % 2 == 0 ? Value(Array{nested}) : Value(Dictionary{{"k", nested}});
    EXPECT_EQ(readBack(nested), nested);
    Value loop = Array{1};
    Array& insideLoop = loop.mutableArray();
    insideLoop.push_back(loop);
    EXPECT_EQ(writeBinaryPropertyList(loop).error, "a container contains itself");
    insideLoop.clear();

    const auto errorOf = [](const Value& value) { return writeBinaryPropertyList(value).error; };
    EXPECT_EQ(errorOf({}), "a value is absent");
    EXPECT_EQ(errorOf(Array{1, Dictionary{{"k", Value()}}}), "a value is absent");
    EXPECT_EQ(errorOf(Array{nested}), "it is nested too deeply");
    EXPECT_EQ(errorOf(Array{nested, Dictionary{{"k", Array{nested}}}}), "it is nested too deeply");
    // Half the limit, which is met again at the bottom of the other half.
    Value half = Array{1};
    for (int level = 1; level < deepestNesting / 2; ++level)
        half = Array{half, Array{}};
    Value whole = half;
    for (int level = 1; level < deepestNesting / 2; ++level)
        whole = Array{whole};
    EXPECT_EQ(errorOf(Array{half, whole}), "");
    EXPECT_EQ(errorOf(Array{half, Array{whole}, 1}), "it is nested too deeply");

    // Bytes that begin nothing, end too early, are longer than need be, a surrogate, beyond the last
    // character.
    for (const char* text :
         {"\xFF", "\x80", "x\xE2\x82", "\xC0\x80", "\xF0\x82\x82\xAC", "\xED\xA0\x80", "\xF4\x90\x80\x80"}) {
        EXPECT_EQ(errorOf(text), "a string is not UTF-8");
        EXPECT_EQ(errorOf(Array{Dictionary{{text, 1}}}), "a string is not UTF-8");
        EXPECT_FALSE(isUtf8(text));
    }
}

TEST(BinaryPropertyList, WritesManyDistinctObjects) {
    Array items;
    for (int i = 0; i < 50000; ++i) {
        items.emplace_back(i * 1.5);
        items.emplace_back("name " + std::to_string(i % 10000));
    }
    EXPECT_EQ(readBack(items), Value(items));
}

// The other reader and writer of the format that every desktop has.
TEST(BinaryPropertyList, AgreesWithPython) {
    const Value value = Dictionary{
        {"text", "plain"},
        {"wide", "\xC3\xA9\xF0\x9F\x98\x80"},
        {"numbers", Array{0, 255, 256, 65536, 4294967296LL, -1, std::numeric_limits<std::int64_t>::min(),
                          std::numeric_limits<std::uint64_t>::max(), 1.25, true, false}},
        {"data", Data{0, 1, 255}},
        {"date", Date{725846400}},
        {"nested", Dictionary{{"empty", Array{}}, {"none", Dictionary{}}}},
        {"many", Array(400, Value(Array{"x"}))}};
    const TemporaryFolder folder;
    const Data bytes = written(value);
    const std::string ours =
        folder.write("ours", {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    const std::string theirs = folder / "theirs";

    const std::string script =
        "import plistlib, datetime\n"
        "value = {'text': 'plain', 'wide': '\\u00e9\\U0001F600',\n"
        "  'numbers': [0, 255, 256, 65536, 2**32, -1, -2**63, 2**64-1, 1.25, True, False],\n"
        "  'data': b'\\x00\\x01\\xff', 'date': datetime.datetime(2024, 1, 2),\n"
        "  'nested': {'empty': [], 'none': {}}, 'many': [['x']] * 400}\n"
        "plistlib.dump(value, open('" +
        theirs +
        "', 'wb'), fmt=plistlib.FMT_BINARY)\n"
        "read = plistlib.load(open('" +
        ours +
        "', 'rb'))\n"
        "assert read == value and list(read) == list(value), read\n"
        "assert [type(n) for n in read['numbers']] == [type(n) for n in value['numbers']]\n";
    FILE* python = ::popen("/usr/bin/python3 -", "w");
    ASSERT_NE(python, nullptr);
    std::fputs(script.c_str(), python);
    ASSERT_EQ(::pclose(python), 0) << "it did not read what was written here";

    Data read(std::filesystem::file_size(theirs));
    std::ifstream(theirs, std::ios::binary)
        .read(reinterpret_cast<char*>(read.data()), static_cast<std::streamsize>(read.size()));
    const PropertyListReading reading = readBinaryPropertyList(read);
    EXPECT_EQ(reading.error, "");
    EXPECT_EQ(reading.value, value);
    EXPECT_EQ(reading.value["numbers"].at(9).kind(), Value::Kind::Bool);
}

} // namespace
} // namespace kelvane::tests
