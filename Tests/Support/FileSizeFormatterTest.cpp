#include "Support/FileSizeFormatter.h"
#include "Platform/Bundle.h"
#include "Tests/Harness/EnvironmentVariable.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <limits>

namespace kelvane {
namespace {

FileSizeFormatter formatter(bool isAbbreviated, NumberSeparators separators = {}) {
    FileSizeFormatter made{NumberFormatter("#,##0.00", std::move(separators))};
    made.setAbbreviated(isAbbreviated);
    return made;
}

TEST(FileSizeFormatter, ScalesAboveAThousandByStepsOf1024) {
    const struct {
        Value size;
        std::string full, abbreviated;
    } cases[] = {
        {0, "0 bytes", "0.00 bytes"},
        {1000, "1000 bytes", "1,000.00 bytes"},
        {1001, "1001 bytes", "0.98 KB"},
        {1536, "1536 bytes", "1.50 KB"},
        {1048576, "1048576 bytes", "1.00 MB"},
        {std::int64_t{6} << 30, "6442450944 bytes", "6.00 GB"},
        {std::int64_t{1} << 40, "1099511627776 bytes", "1.00 TB"},
        {std::int64_t{1} << 60, "1152921504606846976 bytes", "1,048,576.00 TB"},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(formatter(false).stringForObjectValue(each.size), each.full);
        EXPECT_EQ(formatter(true).stringFromNumber(each.size), each.abbreviated);
    }
}

TEST(FileSizeFormatter, Reads64BitsOnlyOfASigned64BitNumber) {
    const struct {
        Value size;
        std::optional<std::string> text;
    } cases[] = {
        {std::uint64_t{6} << 30, "6442450944 bytes"},
        {std::int64_t{-1}, "18446744073709551615 bytes"},
        {std::numeric_limits<std::uint64_t>::max() - 1, "4294967294 bytes"},
        {std::int32_t{-1}, "4294967295 bytes"},
        {double{6LL << 30}, "2147483648 bytes"},
        {1536.9F, "1536 bytes"},
        {true, "1 bytes"},
        {"1536", std::nullopt},
        {Value(), std::nullopt},
        {Array{1536}, std::nullopt},
    };
    for (const auto& each : cases)
        EXPECT_EQ(formatter(false).stringForObjectValue(each.size), each.text) << each.size.description();
    EXPECT_EQ(formatter(true).stringForObjectValue(std::uint64_t{6} << 30), "6.00 GB");
    EXPECT_EQ(formatter(true).stringForObjectValue(std::numeric_limits<std::uint32_t>::max()), "4.00 GB");
}

TEST(FileSizeFormatter, WritesTheUnitsOfTheBundleAndItsOwnWhereThatHasNone) {
    const tests::TemporaryFolder folder;
    folder.write("Resources/en.lproj/Localizable.strings",
                 "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>bytes</key><string>Bytes</string>"
                 "<key>MB</key><string>Mo</string></dict></plist>");
    FileSizeFormatter::initializeUsingBundle(Bundle(folder.path()));
    const auto full = FileSizeFormatter::sharedFileSizeFormatter().stringForObjectValue(1048576);
    const auto mega = FileSizeFormatter::sharedFileSizeAbbrevFormatter().stringForObjectValue(1048576);
    const auto kilo = FileSizeFormatter::sharedFileSizeAbbrevFormatter().stringForObjectValue(1536);
    FileSizeFormatter::initializeUsingBundle(Bundle{Value()});
    EXPECT_EQ(full, "1048576 Bytes");
    EXPECT_TRUE(mega && mega->ends_with("00 Mo"));
    EXPECT_TRUE(kilo && kilo->ends_with("50 KB"));
}

TEST(NumberFormatter, GroupsAndRoundsByItsPatternWithTheSeparatorsGiven) {
    const struct {
        std::string pattern;
        NumberSeparators separators;
        double number;
        std::string text;
    } cases[] = {
        {"#,##0.00", {",", "."}, 1234567.891, "1.234.567,89"},
        {"#,##0.00",
         {",", "\xE2\x80\xAF"},
         1000,
         "1\xE2\x80\xAF"
         "000,00"},
        {"#,##0.00", {",", ""}, 1000, "1000,00"},
        {"#,##0", {}, 999.5, "1,000"},
        {"0.0", {}, 1234.25, "1234.2"},
        {"#,##0.00", {}, -123456, "-123,456.00"},
        {"#,##0.00", {}, 0.125, "0.12"},
        {"#,##0.00", {}, 999.999, "1,000.00"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(NumberFormatter(each.pattern, each.separators).stringFromNumber(each.number), each.text);
}

TEST(NumberFormatter, TakesTheEnglishSeparatorsWhereTheLocaleHasNothingToSay) {
    for (const char* name : {"C", "POSIX", "xx_NOWHERE.UTF-8"}) {
        const tests::EnvironmentVariable locale("LC_ALL", name);
        EXPECT_EQ(NumberFormatter("#,##0.00").stringFromNumber(1000), "1,000.00") << name;
    }
}

} // namespace
} // namespace kelvane
