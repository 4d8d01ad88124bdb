#include "Platform/Bundle.h"
#include "Support/AlertRecord.h"
#include "Support/ServiceStates.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <map>
#include <set>

namespace kelvane {
namespace {

// Keeps tests from depending on the order of the table's columns: what a bundle is asked for comes back.
Bundle bundleWithText(const tests::TemporaryFolder& folder, const std::string& key, const std::string& text) {
    folder.write("Resources/en.lproj/Localizable.strings",
                 "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>" + key + "</key><string>" + text +
                     "</string></dict></plist>");
    return Bundle(folder.path());
}

TEST(ServiceStates, HaveATextExactlyForTheCodesThatADaemonReports) {
    const Bundle bundle{Value()};
    const std::set<std::int32_t> withoutText{9, 10, 21, 26, 27, 28};
    for (std::int32_t code = -2; code < 40; ++code) {
        const bool isKnown = code >= 3 && code <= 29 && !withoutText.contains(code);
        EXPECT_EQ(!stringForKelvaneServiceState(code, bundle).empty(), isKnown) << code;
    }
    EXPECT_EQ(stringForKelvaneServiceState(6, bundle), "Backup in progress");
    EXPECT_EQ(stringForKelvaneServiceState(25, bundle), "Recover mode");
}

TEST(ServiceStates, CanBeTranslatedApartWhereTheyReadAlike) {
    const tests::TemporaryFolder folder;
    const Bundle bundle = bundleWithText(folder, "Service_State_Alert_Account_Over_Quota", "Konto voll");
    EXPECT_EQ(stringForKelvaneServiceState(29, bundle), "Konto voll");
    EXPECT_EQ(stringForKelvaneServiceState(17, bundle), "Account over quota");
}

std::optional<AlertRecord> alertFrom(std::string_view text) {
    return alertWithKelvaneStringComponents(alertStringComponents(text));
}

TEST(AlertRecord, NeedsSixFieldsATitleAndABody) {
    for (const char* text :
         {"", "a|error|||Title", "a|error|||Title|Body|", "a|error||||Body", "a|error|||Title|"})
        EXPECT_FALSE(alertFrom(text)) << text;
    EXPECT_TRUE(alertFrom("|||| | "));
}

TEST(AlertRecord, TakesItsStyleFromTheExactWord) {
    const std::map<std::string, AlertRecord::Style> styles{{"error", AlertRecord::Style::Critical},
                                                           {"warning", AlertRecord::Style::Warning},
                                                           {"Error", AlertRecord::Style::Informational},
                                                           {"", AlertRecord::Style::Informational}};
    for (const auto& [word, style] : styles)
        EXPECT_EQ(alertFrom("|" + word + "|||Title|Body")->style, style) << word;
}

TEST(AlertRecord, ShowsEscapedSeparatorsAndLeavesWhatFollowsThem) {
    const auto alert = alertFrom("|error|||a&#124b&#124&#124|&#124;&#12 &amp;");
    ASSERT_TRUE(alert);
    EXPECT_EQ(alert->messageText, "a|b||");
    EXPECT_EQ(alert->informativeText, "|;&#12 &amp;");
}

} // namespace
} // namespace kelvane
