#include "PreferencePane/Status/StatusFigures.h"
#include "PreferencePane/Status/StatusModes.h"

#include <gtest/gtest.h>
#include <tuple>

namespace kelvane {

const Bundle english{Value(Dictionary())};

TEST(StatusFigures, PercentNeverDividesByZeroNorOverflows) {
    constexpr auto largest = ~std::uint64_t{0};
    const std::tuple<std::uint64_t, std::uint64_t, std::int32_t> cases[] = {
        {0, 0, 100},       {300, 100, 75},
        {0, 1000, 0},      {largest, 0, 100},
        {0, largest, 100}, {largest, largest, 100},
        {99, 1, 99},       {largest / 4, largest / 4 * 3, 25}}; // a hundred times this overflows
    for (const auto& [backedUp, pending, percent] : cases)
        EXPECT_EQ(percentDone(backedUp, pending), percent) << backedUp << ' ' << pending;
}

TEST(StatusFigures, AmountsAreToldWhenBothSizesOrBothCountsAreKnown) {
    const std::string unknown = "(Information unavailable)";
    for (int known = 0; known < 16; ++known) {
        const auto texts = amountTexts({1536, 0xFFFFFFFF, (known & 1) != 0, (known & 4) != 0},
                                       {1048576, 7, (known & 2) != 0, (known & 8) != 0}, english);
        EXPECT_EQ(texts.contains, (known & 3) == 3 ? "1.50 KB (-1 files)" : unknown);
        EXPECT_EQ(texts.awaiting, (known & 12) == 12 ? "1.00 MB (7 files)" : unknown);
    }
}

TEST(StatusFigures, StatusLineSpeaksOfLimitsAndHidesFailures) {
    const std::tuple<std::uint32_t, std::uint32_t, std::string> cases[] = {
        {6, 5, "Backup in progress"},
        {20, 0, "Temporarily unavailable"},
        {17, 50, "Stopped. (Over 50 GB limit)"},
        {17, 0, "Stopped. (Over 2 GB limit)"},
        {29, 50, "Account over quota"},
        {9, 0, ""},
    };
    for (const auto& [serviceState, quotaGB, line] : cases)
        EXPECT_EQ(statusLine(static_cast<ServiceState>(serviceState), quotaGB, english), line);
}

TEST(StatusFigures, BegunHoursCountAndAnAccountIsCompleteWithAllThree) {
    const std::pair<std::uint32_t, std::uint32_t> cases[] = {{0, 0},  {1, 1},     {60, 1},
                                                             {61, 2}, {1440, 24}, {0xFFFFFFFF, 71582789}};
    for (const auto& [minutes, hours] : cases)
        EXPECT_EQ(hoursLeft(minutes), hours);
    EXPECT_TRUE((AccountData{"a@b", "server", 1}.isComplete()));
    for (const AccountData& lacking : {AccountData{"", "server", 1}, AccountData{"a@b", "", 1},
                                       AccountData{"a@b", "server", -1}, AccountData{"a@b", "server", {}}})
        EXPECT_FALSE(lacking.isComplete());
}

TEST(StatusFigures, AddressesAreFilledLiterallyAndEverywhere) {
    const AccountData account{"m@x.org", "%2$@.srv", 0x80000000U};
    EXPECT_EQ(webAddress("%1$@/%d?%2$@&%3$@&%3$@", account),
              "http://2147483648.srv/%d?2147483648&m@x.org&m@x.org");
    EXPECT_EQ(webAddress("", account), "");
}

} // namespace kelvane
