#include "Foundation/Format.h"
#include "Foundation/PathComponents.h"
#include "Foundation/Unicode.h"

#include <array>
#include <gtest/gtest.h>

namespace kelvane::tests {
namespace {

using Cases = std::vector<std::pair<std::string, std::string>>;

void expectEqual(const Cases& cases) {
    for (const auto& [result, expected] : cases)
        EXPECT_EQ(result, expected);
}

TEST(Format, InsertsItsArguments) {
    expectEqual(
        {{formatText("plain 100%%"), "plain 100%"},
         {formatText("%@, %@, %@", "a", std::string("b"), Value(Dictionary{{"a", "b"}})),
          "a, b, {a = \"b\";}"},
         {formatText("%@ %@ %@ %@ %@", 1, -2LL, 1.5, true, Value()), "1 -2 1.5 1 (null)"},
         {formatText("%s|%8s|%-8s|%.2s", Value("a"), "b", "c", "text"), "a|       b|c       |te"},
         {formatText("%d %i %u %d", -1, -2, 3U, Value(7.9)), "-1 -2 3 7"},
         {formatText("%5d|%-5d|%05d|%+d|% d", 42, 42, 42, 42, 42), "   42|42   |00042|+42| 42"},
         {formatText("%x %X %#x %o", 255, 255, 255, 8), "ff FF 0xff 10"},
         {formatText("0x%8.8lx", 0xBEEFUL), "0x0000beef"},
         {formatText("%c%c", 'a', 98), "ab"},
         {formatText("%.2f %g %e %f", 1.005, 0.5, 1.0, Value(2)), "1.00 0.5 1.000000e+00 2.000000"},
         {formatText("%1$d %1$x %2$5d|", 10, 11), "10 a    11|"},
         {formatText("\xC3\xA9 %2$@ before %1$@", "second", "\xC3\xA9"), "\xC3\xA9 \xC3\xA9 before second"}});
}

TEST(Format, SurvivesWhatDoesNotFit) {
    expectEqual(
        {{formatTranslated("%@ %d %s"), "(null) (null) (null)"},
         {formatTranslated("%d %f %c %f %d %d", "text", "text", "text", 1, 1.5, Value("7")),
          "(null) (null) (null) (null) (null) (null)"},
         {formatTranslated("%3$@ %0$@ %9999999999999999999$@", 1), "(null) %0$@ (null)"},
         {formatTranslated("%s", static_cast<const char*>(nullptr)), "(null)"},
         {formatTranslated("%n %p %*d %k %d", 5), "%n %p %*d %k 5"},
         {formatTranslated("50% ", 1) + formatTranslated("%5", 1) + formatTranslated("%1$", 1), "50% %5%1$"},
         {formatTranslated("%-+ #0", 1) + formatTranslated("%ll", 1) + formatTranslated("%"), "%-+ #0%ll%"},
         {formatTranslated(std::string_view("a\0%d", 4), 1), std::string("a\0001", 3)},
         {formatTranslated("%999999999999.999999999999d", 1), std::string(4095, '0') + "1"},
         {formatTranslated("%-999999999999s|", "a"), "a" + std::string(4095, ' ') + "|"}});
}

// Valid and invalid formats, checked at compile time.
TEST(Format, IsCheckedAgainstItsArguments) {
    using enum detail::ArgumentKind;
    const std::vector<detail::ArgumentKind> arguments{Integer, Text, Real, Object};
    const std::pair<const char*, bool> cases[] = {
        {"%d %s %5.2f %@", true},  {"%%%c|%@|%g|%u", true},   {"%4$d %3$@ %2$s %1$llx", true},
        {"%d %s %f", false},       {"%d %s %f %@ %@", false}, {"%s %d %f %@", false},
        {"%f %s %d %@", false},    {"%d %s %f 50 %", false},  {"%d %s %f %n", false},
        {"%1$d %2$s %3$f", false}, {"plain", false}};
    for (const auto& [format, fits] : cases)
        EXPECT_EQ(detail::fitsArguments(format, arguments), fits) << format;
}

TEST(PathComponents, AreTheNamesWithoutEmptyOnesAndMakeANormalPath) {
    const std::tuple<std::string, std::string, std::vector<std::string>> cases[] = {
        {"", "", {}},
        {"///", "/", {"/"}},
        {"//Users///a//", "/Users/a", {"/", "Users", "a"}},
        {"a/b/", "a/b", {"a", "b"}},
        {"/a/./../b", "/a/./../b", {"/", "a", ".", "..", "b"}}};
    for (const auto& [path, normal, components] : cases) {
        EXPECT_EQ(pathComponents(path), components) << path;
        EXPECT_EQ(pathWithComponents(components), normal) << path;
        EXPECT_EQ(appendPathComponent(path, {}), normal) << path;
        EXPECT_EQ(appendPathComponent({}, path), normal) << path;
    }
    for (const char* folder : {"/a", "/a/", "//a//"})
        EXPECT_EQ(appendPathComponent(folder, "/b//c/"), "/a/b/c") << folder;
    EXPECT_EQ(appendPathComponent("/", "b"), "/b");
    EXPECT_EQ(pathWithComponents({"a", "/b"}), "a/b");
}

TEST(PathComponents, SplitIntoFolderNameAndExtension) {
    const std::array<std::string, 4> cases[] = {{"/a//b.tar.gz/", "/a", "b.tar.gz", "gz"},
                                                {"/a", "/", "a", ""},
                                                {"//", "/", "/", ""},
                                                {"", "", "", ""},
                                                {"a.d/b", "a.d", "b", ""},
                                                {".hidden.txt", "", ".hidden.txt", "txt"},
                                                {"a.", "", "a.", ""},
                                                {"..a", "", "..a", ""}};
    for (const auto& [path, folder, name, extension] : cases) {
        EXPECT_EQ(deleteLastPathComponent(path), folder) << path;
        EXPECT_EQ(lastPathComponent(path), name) << path;
        EXPECT_EQ(pathExtension(path), extension) << path;
    }
}

TEST(Unicode, WritesNamesOfAnyBytesAsTextAndReadsThemBack) {
    const std::string lost = "\xEF\xBF\xBD";
    const std::pair<std::string, std::string> cases[] = {
        {"/plain/%E9 \xC3\xA4", "/plain/%E9 \xC3\xA4"},
        {"caf\xE9", "caf" + lost + "E9"},
        {"\xFF/\xE2\x82", lost + "FF/" + lost + "E2" + lost + "82"},
        {"\xED\xA0\x80", lost + "ED" + lost + "A0" + lost + "80"},
        {lost, lost},
        {lost + "\xFF" + lost, lost + lost + "FF" + lost},
        {lost + "41" + lost + "e9" + lost + "F",
         lost + "41" + lost + "e9" + lost + "F"}, // does not encode a byte
        {lost + "E9", lost + "EF" + lost + "BF" + lost + "BDE9"},
        {lost + "E\xFF", lost + "E" + lost + "FF"},
    };
    for (const auto& [path, text] : cases) {
        EXPECT_EQ(textFromPath(path), text);
        EXPECT_TRUE(isUtf8(text));
        EXPECT_EQ(pathFromText(text), path);
    }
}

} // namespace
} // namespace kelvane::tests
