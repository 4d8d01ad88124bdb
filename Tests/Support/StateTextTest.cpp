#include "Platform/Bundle.h"
#include "Support/AlertRecord.h"
#include "Support/ServiceStates.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <set>

namespace kelvane {
namespace {

TEST(ServiceStates, HaveATextExactlyForTheCodesThatADaemonReports) {
    const Bundle bundle{Value()};
    const std::set<std::int32_t> withoutText{9, 10, 21, 26, 27, 28};
    for (std::int32_t code = -2; code < 40; ++code) {
        const bool isKnown = code >= 3 && code <= 29 && !withoutText.contains(code);
        EXPECT_EQ(!stringForKelvaneServiceState(code, bundle).empty(), isKnown) << code;
    }
    EXPECT_EQ(stringForKelvaneServiceState(6, bundle), "Backup in progress");
}

TEST(ServiceStates, CanBeTranslatedApartWhereTheyReadAlike) {
    const tests::TemporaryFolder folder;
    folder.write("Resources/en.lproj/Localizable.strings",
                 "<plist><dict><key>Service_State_Alert_Account_Over_Quota</key><string>Konto "
                 "voll</string></dict></plist>");
    EXPECT_EQ(stringForKelvaneServiceState(29, Bundle(folder.path())), "Konto voll");
    EXPECT_EQ(stringForKelvaneServiceState(17, Bundle(folder.path())), "Account over quota");
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
} // namespace kelvane
