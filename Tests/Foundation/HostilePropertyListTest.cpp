#include "Foundation/BinaryPropertyList.h"
#include "Tests/Foundation/RawPropertyList.h"

#include <gtest/gtest.h>
#include <random>

namespace kelvane::tests {
namespace {

using namespace std::string_literals;

constexpr std::uint64_t huge = 1ULL << 63U;
const std::string hugeCount = "\x13" + bigEndian(huge, 8);

std::string errorOf(const RawPropertyList& list) {
    const PropertyListReading reading = readBinaryPropertyList(list.bytes());
    EXPECT_EQ(reading.succeeded(), !reading.value.isAbsent());
    return reading.error;
}

// Each object as the only one of a list.
void expectRefused(const std::string& error, const std::vector<std::string>& objects) {
    for (const std::string& object : objects)
        EXPECT_EQ(errorOf({{object}}), error) << hexOf({object.begin(), object.end()});
}

// Something of everything.
Value richValue() {
    return Array{Dictionary{{"name", "file"}, {"wide", "\xC3\xA9\xF0\x9F\x98\x80"}, {"size", 123456789012LL}},
                 Dictionary{{"name", "file"}, {"wide", 1.5}, {"size", -1}},
                 Array{Data(20, 7), Date{1e9}, 1.5F, true, 1ULL << 63U, std::string(300, 'x')}};
}

TEST(HostilePropertyList, IsRefusedWithoutASoundFrame) {
    const std::string notOne = "it is cut off or not a binary property list";
    const RawPropertyList sound{{"\x09"}};
    EXPECT_EQ(errorOf(sound), "");

    std::vector<RawPropertyList> frames(12, sound);
    frames[0].header = "bplist01";
    frames[1].header = "xplist00";
    frames[2].offsetWidth = 0;
    frames[3].offsetWidth = 9;
    frames[4].referenceWidth = 0;
    frames[5].referenceWidth = 9;
    frames[6].objectCount = 2;
    frames[7].objectCount = huge; // times the width it is 0
    frames[8].tableOffset = 7;
    frames[9].tableOffset = 12; // inside the trailer
    frames[10].tableOffset = ~0ULL;
    frames[11].tableOffset = 8; // one offset and a half
    for (const RawPropertyList& frame : frames)
        EXPECT_EQ(errorOf(frame), notOne) << hexOf(frame.bytes());
    EXPECT_EQ(readBinaryPropertyList({}).error, notOne);
}

TEST(HostilePropertyList, IsRefusedWhenAnObjectIsOutside) {
    const std::string noObject = "a reference names no object";
    const std::string standsOutside = "an object stands outside the objects";
    const std::string reachesOutside = "an object reaches outside the objects";
    expectRefused(noObject, {"\xA1\x05", "\xA1\x01", "\xD1\x05\0"s});
    EXPECT_EQ(errorOf({{"\x09"}, 2, 1, 1}), noObject);
    EXPECT_EQ(errorOf({{"\x09"}, 2, 1, ~0ULL}), noObject);
    EXPECT_EQ(errorOf({{}, 1, 1, 0}), noObject);

    EXPECT_EQ(errorOf({.objects = {"\x09"}, .offsets = {{7}}}), standsOutside);
    EXPECT_EQ(errorOf({.objects = {"\x09"}, .offsets = {{9}}}), standsOutside);
    EXPECT_EQ(errorOf({.objects = {"\x09"}, .offsetWidth = 8, .offsets = {{~0ULL}}}), standsOutside);

    expectRefused(reachesOutside,
                  {"\x10", "\x13.......", "\x14...............", "\x22...", "\x33.......", "\x42x", "\x52x",
                   "\x5F\x10", "\x62\0a\0"s, "\xA1", "\xA2\0"s, "\xD1\0"s, "\x4F\x12\x10"});
    expectRefused(reachesOutside, {"\x4F" + hugeCount, "\x5F" + hugeCount, "\x6F" + hugeCount,
                                   "\xAF" + hugeCount, "\xDF" + hugeCount});
    // Times 16 it is 0.
    EXPECT_EQ(errorOf({{"\xDF\x13" + bigEndian(1ULL << 60U, 8)}, 2, 8}), reachesOutside);
    expectRefused("a count is not a number", {"\x4F\x14" + bigEndian(1, 16), "\x4F\x22" + bigEndian(1, 4)});
}

TEST(HostilePropertyList, IsRefusedWhenAnObjectIsOfNoUse) {
    const std::string ones(8, '\xFF');
    expectRefused("null is not supported", {"\0"s});
    expectRefused("an object is of unknown type", {"\x0F", "\x71x", "\x91x", "\xE0", "\xF0"});
    expectRefused("UIDs are not supported", {"\x80\x01"});
    expectRefused("sets are not supported", {"\xB0", "\xC0", "\xC1\x01"});
    expectRefused("an integer has more than 16 bytes", {"\x15" + std::string(32, '\0'), "\x1F"});
    expectRefused("an integer has more than 64 bits",
                  {"\x14" + bigEndian(1, 8) + bigEndian(0, 8), "\x14" + ones + bigEndian(1, 8)});
    expectRefused("a real has neither 4 nor 8 bytes", {"\x20x", "\x21xx"});
    expectRefused("a date does not have 8 bytes", {"\x32xxxx"});
    expectRefused("a string is not ASCII", {"\x51\x80", "\x58" + std::string(7, 'x') + "\xFF"});
    // A high surrogate at the end, before a letter, before another one; a low one first.
    expectRefused("a string is not UTF-16",
                  {"\x61\xD8\x3D", "\x62\xD8\x3D\0a"s, "\x62\xD8\x3D\xD8\x3D", "\x62\xDE\0\xD8\x3D"s});
}

TEST(HostilePropertyList, IsRefusedWhenKeysAreNotDistinctStrings) {
    EXPECT_EQ(errorOf({{"\x10\x05", "\xD1\0\0"s}, 2, 1, 1}), "a key is not a string");
    expectRefused("a key is not a string", {"\xD1\0\0"s});

    const std::string firstTwice = "\xD2\0\0\x02\x02"s;
    const std::string firstAndSecond = "\xD2\0\x01\x02\x02"s;
    EXPECT_EQ(errorOf({{"Qa", "Qb", "\x09", firstAndSecond}, 2, 1, 3}), "");
    EXPECT_EQ(errorOf({{"Qa", "Qb", "\x09", firstTwice}, 2, 1, 3}), "a dictionary has a key twice");
    EXPECT_EQ(errorOf({{"Qa", "Qa", "\x09", firstAndSecond}, 2, 1, 3}), "a dictionary has a key twice");
    EXPECT_EQ(errorOf({{"Qa", "\x61\0a"s, "\x09", firstAndSecond}, 2, 1, 3}), "a dictionary has a key twice");
}

TEST(HostilePropertyList, IsRefusedWhenItContainsItself) {
    const std::string itself = "a container contains itself";
    EXPECT_EQ(errorOf({{"\xA1\0"s}}), itself);
    EXPECT_EQ(errorOf({{"\xA1\x01", "\xA1\0"s}}), itself);
    EXPECT_EQ(errorOf({{"Qa", "\xD1\0\x02"s, "\xA2\0\x01"s}, 2, 1, 1}), itself);
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
    EXPECT_EQ(errorOf(nested(deepestNesting + 1)), "it is nested too deeply");
    EXPECT_EQ(errorOf(nested(1000000)), "it is nested too deeply");

    // The inner half is known, and accepted, before it is met again at the bottom of the outer half.
    for (const unsigned outer : {deepestNesting / 2U, deepestNesting / 2U + 1}) {
        RawPropertyList list = nested(deepestNesting / 2U);
        const std::uint64_t inner = 0; // which also holds something shallow, last
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
    const std::string tooMuch = "it expands to more than can be held";
    // Each array holds the next one twice: 2^levels leaves.
    const auto doubling = [](unsigned levels, const std::string& leaf) {
        RawPropertyList list;
        for (unsigned i = 1; i <= levels; ++i)
            list.objects.push_back("\xA2" + bigEndian(i, 1) + bigEndian(i, 1));
        list.objects.push_back(leaf);
        return list;
    };
    EXPECT_EQ(errorOf(doubling(20, "\x09")), "");
    EXPECT_EQ(errorOf(doubling(28, "\x09")), tooMuch);
    EXPECT_EQ(errorOf(doubling(200, "\x09")), tooMuch);
    EXPECT_EQ(errorOf(doubling(9, longObject(5, 1000000, std::string(1000000, 'x')))), tooMuch);
    EXPECT_EQ(errorOf(doubling(9, longObject(4, 1000000, std::string(1000000, 'x')))), tooMuch);

    // One long key in a thousand dictionaries.
    RawPropertyList keys{{longObject(5, 1000000, std::string(1000000, 'k')), "\x09"}, 4, 2};
    std::string all;
    for (std::uint64_t i = 0; i < 1000; ++i) {
        all += bigEndian(keys.objects.size(), 2);
        keys.objects.push_back("\xD1" + bigEndian(0, 2) + bigEndian(1, 2));
    }
    keys.top = keys.objects.size();
    keys.objects.push_back(longObject(10, 1000, all));
    EXPECT_EQ(errorOf(keys), tooMuch);
}

TEST(HostilePropertyList, CannotMakeManyValuesOfTheSameBytes) {
    // Ten thousand arrays that are all the same ten thousand references, and as many texts that are the same
    // bytes.
    for (const std::string& object :
         {longObject(10, 10000, std::string(20000, '\0')), longObject(5, 20000, std::string(20000, 'x')),
          longObject(4, 20000, std::string(20000, 'x'))}) {
        RawPropertyList list{{"\x09", object}, 4, 2};
        std::string root;
        std::vector<std::uint64_t> offsets{8};
        for (unsigned i = 0; i < 10000; ++i) {
            root += bigEndian(i + 1, 2);
            offsets.push_back(9);
        }
        list.objects.push_back(longObject(10, 10000, root));
        list.top = offsets.size();
        offsets.push_back(9 + object.size());
        list.objectCount = offsets.size();
        list.offsets = offsets;
        EXPECT_EQ(errorOf(list), "objects overlap");
    }
}

TEST(HostilePropertyList, TakesNoQuadraticTimeForManyKeys) {
    constexpr std::uint64_t count = 100000;
    RawPropertyList list{{"\x09"}, 4, 4};
    std::string keys;
    for (std::uint64_t i = 1; i <= count; ++i) {
        list.objects.push_back("\x5E" + ("same: " + std::to_string(10000000 + i)));
        keys += bigEndian(i, 4);
    }
    list.top = list.objects.size();
    list.objects.push_back(longObject(13, count, keys + std::string(4 * count, '\0')));
    const PropertyListReading reading = readBinaryPropertyList(list.bytes());
    EXPECT_EQ(reading.error, "");
    EXPECT_EQ(reading.value.size(), count);
    EXPECT_EQ(readBinaryPropertyList(writeBinaryPropertyList(reading.value).bytes).value, reading.value);
}

TEST(HostilePropertyList, IsRefusedWhenCutOffAnywhere) {
    const Data whole = writeBinaryPropertyList(richValue()).bytes;
    ASSERT_EQ(readBinaryPropertyList(whole).value, richValue());
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const Data part(whole.begin(),
                        whole.begin() + static_cast<std::ptrdiff_t>(size)); // for the sanitizer
        EXPECT_FALSE(readBinaryPropertyList(part).succeeded()) << size;
    }
}

TEST(HostilePropertyList, IsReadOrRefusedWhateverBytesChange) {
    const Data whole = writeBinaryPropertyList(richValue()).bytes;
    std::mt19937 random(20250102); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same changes every time
    int accepted = 0;
    for (int round = 0; round < 20000; ++round) {
        Data changed = whole;
        for (unsigned i = 0; i <= random() % 4; ++i)
            changed[random() % changed.size()] =
                static_cast<std::uint8_t>(random() % 3 == 0 ? random() % 16 : random());
        const PropertyListReading reading = readBinaryPropertyList(changed);
        if (!reading.succeeded())
            continue;
        ++accepted;
        const PropertyListWriting writing = writeBinaryPropertyList(reading.value);
        ASSERT_EQ(writing.error, "");
        ASSERT_EQ(readBinaryPropertyList(writing.bytes).value, reading.value) << hexOf(changed);
    }
    EXPECT_GT(accepted, 1000) << "the changes are too coarse to tell anything";
    EXPECT_LT(accepted, 19000);
}

} // namespace
} // namespace kelvane::tests
