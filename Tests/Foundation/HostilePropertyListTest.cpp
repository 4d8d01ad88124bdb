#include "Foundation/PropertyList/BinaryPropertyList.h"
#include "Tests/Foundation/RawPropertyList.h"

#include <fstream>
#include <gtest/gtest.h>

namespace kelvane::tests {
namespace {

using namespace std::string_literals;

constexpr std::uint64_t huge = 1ULL << 63U;

std::string errorOf(const RawPropertyList& list) {
    const PropertyListReading reading = readBinaryPropertyList(list.bytes());
    EXPECT_EQ(reading.succeeded(), !reading.value.isAbsent());
    return reading.error;
}

void expectRefusedLists(const std::string& error, const std::vector<RawPropertyList>& lists) {
    for (const RawPropertyList& list : lists)
        EXPECT_EQ(errorOf(list), error) << hexOf(list.bytes());
}

// Each object is the only one in its list.
void expectRefused(const std::string& error, const std::vector<std::string>& objects) {
    for (const std::string& object : objects)
        expectRefusedLists(error, {{{object}}});
}

TEST(HostilePropertyList, IsRefusedWithoutASoundFrame) {
    const std::string notOne = "it is truncated or not a binary property list";
    const Data sound = RawPropertyList().bytes();
    EXPECT_EQ(readBinaryPropertyList(sound).value, Value(true));
    // Header, both widths, the count (which overflows to 0 when multiplied by the width) and the offset of
    // the table.
    constexpr std::size_t widths = 17, count = 19, table = 35;
    const std::pair<std::size_t, int> changes[] = {
        {7, '1'},       {0, 'x'},      {widths, 0},    {widths, 9},    {widths + 1, 0}, {widths + 1, 9},
        {count + 7, 2}, {count, 0x80}, {table + 7, 7}, {table + 7, 8}, {table + 7, 12}, {table, 0xFF}};
    for (const auto& [place, byte] : changes) {
        Data changed = sound;
        changed[place] = static_cast<std::uint8_t>(byte);
        EXPECT_EQ(readBinaryPropertyList(changed).error, notOne) << place;
    }
    expectRefusedLists(notOne, {{.objectCount = 2, .offsets = {8, 8}}, // more objects than offsets
                                {.objects = std::vector<std::string>(256, "\x09"), .offsetWidth = 1}});
}

TEST(HostilePropertyList, IsRefusedWhenAnObjectIsOutside) {
    expectRefusedLists(
        "a reference names no object",
        {{{"\xA1\x05"}}, {{"\xA1\x01"}}, {{"\xD1\x05\0"s}}, {.top = 1}, {.top = ~0ULL}, {{}, 1}});
    expectRefusedLists("an object is outside the object area",
                       {{.offsets = {7}}, {.offsets = {9}}, {.offsetWidth = 8, .offsets = {~0ULL}}});
    const std::string reachesOutside = "an object extends beyond the object area";
    const std::string count = "\x13" + bigEndian(huge, 8);
    expectRefused(reachesOutside,
                  {"\x10", "\x13.......", "\x14...............", "\x22...", "\x33.......", "\x42x", "\x52x",
                   "\x5F\x10", "\x62\0a\0"s, "\xA1", "\xA2\0"s, "\xD1\0"s, "\x4F\x12\x10", "\x4F" + count,
                   "\x5F" + count, "\x6F" + count, "\xAF" + count, "\xDF" + count});
    // Overflows to 0 when multiplied by 16.
    expectRefusedLists(reachesOutside, {{{"\xDF\x13" + bigEndian(1ULL << 60U, 8)}, 2, 8}});
    expectRefused("a count is not a number", {"\x4F\x14" + bigEndian(1, 16), "\x4F\x22" + bigEndian(1, 4)});
}

TEST(HostilePropertyList, IsRefusedWhenKeysAreNotDistinctStringsOrAContainerHoldsItself) {
    expectRefusedLists("a key is not a string", {{{"\xD1\0\0"s}}, {{"\x10\x05", "\xD1\0\0"s}, 2, 1, 1}});
    const std::string firstAndSecond = "\xD2\0\x01\x02\x02"s;
    EXPECT_EQ(errorOf({{"Qa", "Qb", "\x09", firstAndSecond}, 2, 1, 3}), "");
    expectRefusedLists("a dictionary has a duplicate key",
                       {{{"Qa", "Qb", "\x09", "\xD2\0\0\x02\x02"s}, 2, 1, 3},
                        {{"Qa", "Qa", "\x09", firstAndSecond}, 2, 1, 3},
                        {{"Qa", "\x61\0a"s, "\x09", firstAndSecond}, 2, 1, 3}});
    expectRefusedLists(
        "a container contains itself",
        {{{"\xA1\0"s}}, {{"\xA1\x01", "\xA1\0"s}}, {{"Qa", "\xD1\0\x02"s, "\xA2\0\x01"s}, 2, 1, 1}});
}

TEST(HostilePropertyList, MayBeNestedToTheLimitByWhateverWay) {
    // Object n is an array of object n + 1; the innermost is empty.
    const auto nested = [](unsigned levels) {
        RawPropertyList list{{}, 4, 4};
        for (unsigned i = 1; i < levels; ++i)
            list.objects.push_back("\xA1" + bigEndian(i, 4));
        list.objects.push_back("\xA0");
        return list;
    };
    EXPECT_EQ(errorOf(nested(deepestNesting)), "");
    expectRefusedLists("it is nested too deeply", {nested(deepestNesting + 1), nested(1000000)});

    // The inner half has been read and accepted before it occurs again at the bottom of the outer half.
    for (const unsigned outer : {deepestNesting / 2U, deepestNesting / 2U + 1}) {
        RawPropertyList list = nested(deepestNesting / 2U);
        const std::uint64_t inner = 0; // whose last element is shallow
        list.objects[inner] = "\xA2" + bigEndian(1, 4) + bigEndian(list.objects.size(), 4);
        list.objects.push_back("\xA0");
        const std::uint64_t first = list.objects.size();
        for (unsigned i = 1; i < outer; ++i)
            list.objects.push_back("\xA1" + bigEndian(i == 1 ? inner : first + i - 2, 4));
        list.top = list.objects.size();
        list.objects.push_back("\xA2" + bigEndian(inner, 4) + bigEndian(list.top - 1, 4));
        EXPECT_EQ(errorOf(list), outer == deepestNesting / 2U ? "" : "it is nested too deeply");
    }
}

TEST(HostilePropertyList, MayExpandOnlySoFar) {
    const std::string million(1000000, 'x');
    // Each array holds the next one twice: 2^levels leaves.
    const auto doubling = [](unsigned levels, const std::string& leaf) {
        RawPropertyList list{{}};
        for (unsigned i = 1; i <= levels; ++i)
            list.objects.push_back("\xA2" + bigEndian(i, 1) + bigEndian(i, 1));
        list.objects.push_back(leaf);
        return list;
    };
    // A thousand dictionaries with one key each, the object with that number, after a long text.
    const auto rows = [&](std::uint64_t key) {
        RawPropertyList list{{longObject(5, million.size(), million), "\x51k", "\x09"}, 4, 2};
        std::string all = bigEndian(0, 2);
        for (std::uint64_t i = 0; i < 1000; ++i) {
            all += bigEndian(list.objects.size(), 2);
            list.objects.push_back("\xD1" + bigEndian(key, 2) + bigEndian(2, 2));
        }
        list.top = list.objects.size();
        list.objects.push_back(longObject(10, 1001, all));
        return list;
    };

    EXPECT_EQ(errorOf(doubling(18, "\x09")), "");
    EXPECT_EQ(errorOf(rows(1)), "") << "a dictionary counts only its own size towards the limit";
    for (const RawPropertyList& list :
         {doubling(20, "\x09"), doubling(200, "\x09"), doubling(9, longObject(5, million.size(), million)),
          doubling(9, longObject(4, million.size(), million)), rows(0)})
        EXPECT_EQ(errorOf(list), "it expands to more than the memory limit");
}

TEST(HostilePropertyList, CannotMakeManyValuesOfTheSameBytes) {
    const std::string content(20, '\0'); // as references they all refer to the first object
    for (const unsigned type : {4U, 5U, 10U}) {
        const std::string object = longObject(type, content.size(), content);
        expectRefusedLists("objects overlap", {{.objects = {"\x09", object, "\xA3\x01\x02\x03"},
                                                .top = 4,
                                                .objectCount = 5,
                                                .offsets = {8, 9, 9, 9, 9 + object.size()}}});
    }
}

// The peak memory of this process in kilobytes.
long peakMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmHWM:"))
            return std::stol(line.substr(6));
    return -1;
}

TEST(HostilePropertyList, TakesNoMemoryForObjectsThatNobodyRefersTo) {
    constexpr std::uint64_t count = 4U << 20U;
    std::string file = "bplist00" + std::string(count, '\x09');
    for (std::uint64_t object = 0; object < count; ++object)
        file += bigEndian(8 + object, 4);
    file +=
        bigEndian(4, 7) + bigEndian(1, 1) + bigEndian(count, 8) + bigEndian(0, 8) + bigEndian(8 + count, 8);
    const Data bytes(file.begin(), file.end());
    std::ofstream("/proc/self/clear_refs") << 5; // resets the peak
    const long before = peakMemory();
    EXPECT_EQ(readBinaryPropertyList(bytes).value, Value(true));
    EXPECT_LT(peakMemory() - before, 1024) << "a kilobyte for 4096 objects";
}

TEST(HostilePropertyList, TakesNoQuadraticTimeForManyKeys) {
    constexpr int count = 200000;
    Dictionary forward;
    Dictionary backward;
    for (int i = 0; i < count; ++i) {
        forward.append("same: " + std::to_string(count + i), i);
        backward.append("same: " + std::to_string(2 * count - 1 - i), count - 1 - i);
    }
    EXPECT_EQ(readBinaryPropertyList(writeBinaryPropertyList(forward).bytes).value, Value(backward));
    backward.append("one more", 1);
    forward.append("another", 1);
    EXPECT_NE(forward, backward);
}

} // namespace
} // namespace kelvane::tests
