#include "Foundation/Format.h"

#include <gtest/gtest.h>
#include <limits>

namespace kelvane::tests {
namespace {

TEST(Format, InsertsItsArguments) {
    const Value dictionary = Dictionary{{"a", "b"}};
    const std::string text = "text";
    const std::pair<std::string, const char*> cases[] = {
        {formatText("plain 100%%"), "plain 100%"},
        {formatText("%@, %@, %@", "a", text, dictionary), "a, text, {a = \"b\";}"},
        {formatText("%@ %@ %@ %@", 1, -2LL, 1.5, true), "1 -2 1.5 1"},
        {formatText("%@", Value()), "(null)"},
        {formatText("%s|%8s|%-8s|%.2s", "a", "b", "c", text), "a|       b|c       |te"},
        {formatText("%s", Value("value")), "value"},
        {formatText("%d %i %u", -1, -2, 3U), "-1 -2 3"},
        {formatText("%d", Value(7.9)), "7"},
        {formatText("%5d|%-5d|%05d|%+d|% d", 42, 42, 42, 42, 42), "   42|42   |00042|+42| 42"},
        {formatText("%x %X %#x %o", 255, 255, 255, 8), "ff FF 0xff 10"},
        {formatText("0x%8.8lx", 0xBEEFUL), "0x0000beef"},
        {formatText("%c%c", 'a', 98), "ab"},
        {formatText("%.2f %g %e", 1.005, 0.5, 1.0), "1.00 0.5 1.000000e+00"},
        {formatText("%f", Value(2)), "2.000000"},
        {formatText("%2$@ before %1$@", "second", "first"), "first before second"},
        {formatText("%1$d %1$x %2$5d|", 10, 11), "10 a    11|"},
        {formatText("\xC3\xA9 %@", "\xC3\xA9"), "\xC3\xA9 \xC3\xA9"}};
    for (const auto& [result, expected] : cases)
        EXPECT_EQ(result, expected);
}

TEST(Format, CutsAnIntegerToTheWidthThatIsNamed) {
    constexpr std::uint64_t big = 0xFEDCBA9887654321;
    const std::pair<std::string, const char*> cases[] = {
        {formatText("%d", big), "-2023406815"},
        {formatText("%u", -1), "4294967295"},
        {formatText("%u", -1LL), "4294967295"},
        {formatText("%lu %llu %qu %zu", -1, -1, -1, -1),
         "18446744073709551615 18446744073709551615 18446744073709551615 18446744073709551615"},
        {formatText("%ld", std::numeric_limits<std::int64_t>::min()), "-9223372036854775808"},
        {formatText("%hd %hu %hhd %hhu", 65535, 65537, 255, 257), "-1 1 -1 1"},
        {formatText("%x %lx", big, big), "87654321 fedcba9887654321"}};
    for (const auto& [result, expected] : cases)
        EXPECT_EQ(result, expected);
}

TEST(Format, SurvivesWhatDoesNotFit) {
    const std::pair<std::string, std::string> cases[] = {
        {formatText("%@ %d %s"), "(null) (null) (null)"},
        {formatText("%d %f %c", "text", "text", "text"), "(null) (null) (null)"},
        {formatText("%f", 1), "(null)"},
        {formatText("%d", 1.5), "(null)"},
        {formatText("%d", Value("7")), "(null)"},
        {formatText("%3$@ %0$@ %9999999999999999999$@", 1), "(null) %0$@ (null)"},
        {formatText("%s", static_cast<const char*>(nullptr)), "(null)"},
        {formatText("%n %p %*d %k %d", 5), "%n %p %*d %k 5"},
        {formatText("%"), "%"},
        {formatText("50% ", 1), "50% "},
        {formatText("%5", 1), "%5"},
        {formatText("%-+ #0", 1), "%-+ #0"},
        {formatText("%1$", 1), "%1$"},
        {formatText("%ll", 1), "%ll"},
        {formatText(std::string_view("a\0%d", 4), 1), std::string("a\0"
                                                                  "1",
                                                                  3)},
        {formatText("%999999999999d", 1), std::string(4095, ' ') + "1"},
        {formatText("%.999999999999d", 1), std::string(4095, '0') + "1"},
        {formatText("%-999999999999s|", "a"), "a" + std::string(4095, ' ') + "|"}};
    for (const auto& [result, expected] : cases)
        EXPECT_EQ(result, expected);
}

} // namespace
} // namespace kelvane::tests
