#include "Platform/Bundle.h"
#include "Support/AlertRecord.h"
#include "Support/FileSizeFormatter.h"
#include "Support/ServiceStates.h"
#include "Tests/Harness/EnvironmentVariable.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <limits>

namespace kelvane::tests {
namespace {

using Text = std::optional<std::string>;

TEST(FileSizeFormatter, ScalesAboveAThousandAndReads64BitsOnlyOfASigned64BitNumber) {
    FileSizeFormatter full{NumberFormatter("#,##0", {})};
    FileSizeFormatter abbreviated{NumberFormatter("#,##0.00", {})};
    abbreviated.setAbbreviated(true);
    const std::tuple<Value, Text, Text> cases[] = {
        {0, "0 bytes", "0.00 bytes"},
        {1000, "1000 bytes", "1,000.00 bytes"},
        {1001, "1001 bytes", "0.98 KB"},
        {1048576, "1048576 bytes", "1.00 MB"},
        {std::int64_t{1} << 60, "1152921504606846976 bytes", "1,048,576.00 TB"},
        {std::uint64_t{6} << 30, "6442450944 bytes", "6.00 GB"},
        {std::int64_t{-1}, "18446744073709551615 bytes", "16,777,216.00 TB"},
        {std::numeric_limits<std::uint64_t>::max() - 1, "4294967294 bytes", "4.00 GB"},
        {std::int32_t{-1}, "4294967295 bytes", "4.00 GB"},
        {double{6LL << 30}, "2147483648 bytes", "2.00 GB"},
        {1536.9F, "1536 bytes", "1.50 KB"},
        {std::int32_t{1048576001}, "1048576001 bytes", "1,000.00 MB"}, // scaled in single precision
        {std::int64_t{1048576001}, "1048576001 bytes", "0.98 GB"},
        {true, "1 bytes", "1.00 bytes"},
        {"1536", std::nullopt, std::nullopt},
        {Value(), std::nullopt, std::nullopt}};
    for (const auto& [size, text, abbreviation] : cases) {
        EXPECT_EQ(full.stringForObjectValue(size), text) << size.description();
        EXPECT_EQ(abbreviated.stringFromNumber(size), abbreviation) << size.description();
    }
}

TEST(NumberFormatter, GroupsAndRoundsByItsPatternWithTheUsersSeparators) {
    const NumberSeparators german{",", "."};
    EXPECT_EQ(NumberFormatter("#,##0.00", german).stringFromNumber(1234567.891), "1.234.567,89");
    EXPECT_EQ(NumberFormatter("#,##0.00", {",", ""}).stringFromNumber(-123456.125), "-123456,12");
    EXPECT_EQ(NumberFormatter("#,##0", {}).stringFromNumber(-999999.5), "-1,000,000");
    EXPECT_EQ(NumberFormatter("#,##0", {}).stringFromNumber(-123456), "-123,456");
    const TemporaryFolder folder;
    const std::string build = "localedef -i de_DE -f UTF-8 " + (folder / "de_DE.UTF-8") + " 2>&1";
    ASSERT_EQ(std::system(build.c_str()), 0) << build; // NOLINT(cert-env33-c)
    const EnvironmentVariable locales("LOCPATH", folder.path().c_str());
    for (const auto& [name, text] :
         {std::pair("C", "1,000.00"), {"xx_NOWHERE.UTF-8", "1,000.00"}, {"de_DE.UTF-8", "1.000,00"}}) {
        const EnvironmentVariable locale("LC_ALL", name);
        EXPECT_EQ(NumberFormatter("#,##0.00").stringFromNumber(1000), text) << name;
    }
}

TEST(ServiceStates, HaveATextExactlyForTheCodesThatADaemonReports) {
    const Bundle bundle{Value()};
    std::string texts;
    for (std::int32_t code = -2; code < 40; ++code)
        if (const std::string text = stringForKelvaneServiceState(static_cast<ServiceState>(code), bundle);
            !text.empty())
            texts += std::to_string(code) + ' ' + text + '\n';
    EXPECT_EQ(texts, "3 Initial backup\n4 Restoring\n5 Backup pending\n6 Backup in progress\n"
                     "7 Scanning for changed files\n8 Idle\n11 No service\n12 Disabled\n13 Paused\n14 Retry\n"
                     "15 Bad configuration\n16 Account disabled\n17 Account over quota\n"
                     "18 No internet connection\n19 No server\n20 Backup failed\n22 Backup overdue\n"
                     "23 Operations message\n24 Upgrade available\n25 Recover mode\n29 Account over quota\n");
}

// Texts that are equal in English have separate keys.
TEST(BundlesTexts, TakeThePlaceOfTheEnglishOnes) {
    const TemporaryFolder folder;
    const auto bundleWith = [&](const char* name, const std::string& entries) {
        folder.write(std::string(name) + "/Resources/en.lproj/Localizable.strings",
                     "<plist><dict>" + entries + "</dict></plist>");
        return Bundle(folder / name);
    };
    const Bundle german = bundleWith("german", "<key>Service_State_Alert_Over_Quota</key><string>Q</string>"
                                               "<key>Service_State_Alert_Account_Over_Quota</key>"
                                               "<string>A</string><key>bytes</key><string>Byte</string>"
                                               "<key>GB</key><string>Gig</string>");
    EXPECT_EQ(stringForKelvaneServiceState(ServiceState::OverQuota, german) +
                  stringForKelvaneServiceState(ServiceState::AccountOverQuota, german),
              "QA");
    const auto sizes = [] {
        const FileSizeFormatter& formatter = FileSizeFormatter::sharedFileSizeAbbrevFormatter();
        return *formatter.stringFromNumber(1) + ' ' + *formatter.stringFromNumber(std::int64_t{3} << 30);
    };
    EXPECT_EQ(sizes(), "1.00 bytes 3.00 GB");
    FileSizeFormatter::initializeUsingBundle(german);
    EXPECT_EQ(sizes(), "1.00 Byte 3.00 Gig");
    FileSizeFormatter::initializeUsingBundle(bundleWith("none", ""));
    EXPECT_EQ(sizes(), "1.00 bytes 3.00 GB");
}

std::optional<AlertRecord> alertFrom(std::string_view text) {
    return alertWithKelvaneStringComponents(alertStringComponents(text));
}

TEST(AlertRecord, NeedsSixFieldsWithATitleAndABodyAndTakesItsStyleFromTheExactWord) {
    for (const char* text :
         {"", "a|error|||Title", "a|error|||Title|Body|", "a|error||||Body", "a|error|||Title|"})
        EXPECT_FALSE(alertFrom(text)) << text;
    EXPECT_TRUE(alertFrom("|||| | "));
    EXPECT_EQ(alertFrom("|error|||Title|Body")->style, AlertRecord::Style::Critical);
    EXPECT_EQ(alertFrom("|warning|||Title|Body")->style, AlertRecord::Style::Warning);
    const auto alert = alertFrom("|Error|||a&#124b&#124&#124|&#124;&#12 &amp;");
    ASSERT_TRUE(alert);
    EXPECT_EQ(alert->style, AlertRecord::Style::Informational);
    EXPECT_EQ(alert->messageText, "a|b||");
    EXPECT_EQ(alert->informativeText, "|;&#12 &amp;");
}

} // namespace
} // namespace kelvane::tests
