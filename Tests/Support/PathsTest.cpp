#include "Support/PathHelpers.h"
#include "Support/WildcardMatch.h"

#include <cctype>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>

namespace kelvane::tests {
namespace {

TEST(PathHelpers, TellVolumePathsFromOthersAndWholeVolumesFromWhatIsInside) {
    const Volumes volumes("Boot", {{"Disk", "/media/joe/Disk"}});
    const struct {
        std::string path, volumePath, displayName;
        bool isVolume;
    } cases[] = {{"", "", "Boot", false},
                 {"/", "/Volumes/Boot", "Boot", false},
                 {"/Users/a", "/Volumes/Boot/Users/a", "Boot", false},
                 {"/Volumes", "/Volumes/Boot/Volumes", "Boot", false},
                 {"/volumes/Disk", "/Volumes/Boot/volumes/Disk", "Boot", false},
                 {"/Volumes/", "/Volumes/", "Boot", false},
                 {"/Volumes/Disk", "/Volumes/Disk", "Disk", true},
                 {"/Volumes/Gone/a/", "/Volumes/Gone/a/", "Gone", false},
                 {"Volumes/Disk/a", "/Volumes/Boot/Volumes/Disk/a", "Boot", false},
                 {"/System/Volumes", "/Volumes/Boot/System/Volumes", "Boot", false},
                 {"/System/Volumes/Data", "/System/Volumes/Data", "Boot", true},
                 {"/System/Volumes/Data/a", "/System/Volumes/Data/a", "Boot", false}};
    for (const auto& each : cases) {
        EXPECT_EQ(stringWithKelvaneVolumePath(each.path, volumes), each.volumePath) << each.path;
        EXPECT_EQ(kelv_isVolumePath(each.path), each.isVolume) << each.path;
        EXPECT_EQ(kelv_volumeDisplayName(each.path, volumes), each.displayName) << each.path;
        EXPECT_EQ(kelv_shortVolumePath(each.path, volumes), each.path);
    }
    EXPECT_EQ(kelv_shortVolumePath("//Volumes/Boot/", volumes), "/");
    EXPECT_EQ(kelv_shortVolumePath("/Volumes/Boot/a", volumes), "/Volumes/Boot/a");
    EXPECT_TRUE(kelv_isEqualToWildcardString("/Volumes/Boot/a.tmp", "/Volumes/**.TMP")) << "text, pattern";
}

const char* nextOccurrence(const char* text, char sought) {
    const auto byte = static_cast<unsigned char>(sought);
    if (!std::isalpha(byte))
        return std::strchr(text, sought);
    const char either[] = {static_cast<char>(std::tolower(byte)), static_cast<char>(std::toupper(byte)),
                           '\0'};
    return std::strpbrk(text, either);
}

// The matching step by step, as plainly as it can be put; exponential.
bool plainMatch(const char* pattern, const char* text) {
    const char* const star = std::strchr(pattern, '*');
    if (!star)
        return ::strcasecmp(pattern, text) == 0;
    const auto length = static_cast<std::size_t>(star - pattern);
    if (length > 0 && ::strncasecmp(pattern, text, length) != 0)
        return false;
    text += length;
    const char* const rest = star + std::strspn(star, "*");
    const bool isDeep = rest - star > 1;
    if (*rest == '\0')
        return true;
    const char* from = text;
    while (const char* const found = nextOccurrence(from, *rest)) {
        if (!isDeep && *rest != '/' && std::memchr(from, '/', static_cast<std::size_t>(found - from)))
            return false;
        if (plainMatch(rest, found))
            return true;
        if (!isDeep && *rest == '/')
            return false;
        from = found + 1;
    }
    return false;
}

std::string randomText(std::mt19937& random, std::string_view alphabet, std::size_t longest) {
    std::string text(random() % (longest + 1), ' ');
    for (char& character : text)
        character = alphabet[random() % alphabet.size()];
    return text;
}

TEST(WildcardMatch, AgreesWithThePlainRecursionOnGeneratedCases) {
    // Few characters, so that a fair share matches; '[' and '{' differ by the bit that tells the cases of
    // letters.
    constexpr int cases = 25000;
    std::mt19937 random(20250102);
    for (const auto& [ofPattern, ofText] : {std::pair<std::string_view, std::string_view>{"ab/***", "ab/"},
                                            {"aAbB/1**", "aAb/1"},
                                            {"a[{/**", "aA[{/"},
                                            {"a//*", "a/"}}) {
        int matches = 0;
        for (int i = 0; i < cases; ++i) {
            const std::string pattern = randomText(random, ofPattern, 9);
            const std::string text = randomText(random, ofText, 9);
            const bool expected = plainMatch(pattern.c_str(), text.c_str());
            matches += expected ? 1 : 0;
            ASSERT_EQ(WildcardMatch(pattern, text), expected) << pattern << " on " << text;
        }
        EXPECT_TRUE(matches > cases / 20 && matches < cases * 19 / 20) << ofPattern;
    }
}

TEST(WildcardMatch, KnowsTheCasesThatExclusionsAreWrittenFor) {
    const std::tuple<std::string, std::string, bool> cases[] = {
        {"*.TMP", "a.tmp", true},
        {"*.TMP", "dir/a.tmp", false},
        {"**.tmp", "dir/a.tmp", true},
        {"/Users/*/Library", "/users/bob/library", true},
        {"/Users/*/Library", "/Users/bob/x/Library", false},
        {"/Users/**/Library", "/Users/bob/x/Library", true},
        {"/Users/*", "/Users/bob/x/Library", true},
        {"/Users", "/Users/", false},
        {"a?c", "abc", false},
        {std::string("a\0b*", 4), std::string("A\0zz", 4), true}};
    for (const auto& [pattern, text, matches] : cases)
        EXPECT_EQ(WildcardMatch(pattern, text), matches) << pattern << " on " << text;
}

TEST(WildcardMatch, IsNotHeldUpByAPatternThatIsMadeToHoldItUp) {
    std::string deep;
    for (int i = 0; i < 40; ++i)
        deep += "**a";
    EXPECT_FALSE(WildcardMatch(deep + "b", std::string(5000, 'a')));
    EXPECT_TRUE(WildcardMatch(deep + "b", std::string(5000, 'a') + "b"));
    std::string many;
    for (int i = 0; i < 200000; ++i)
        many += "*a";
    EXPECT_FALSE(WildcardMatch(many, std::string(100, 'a')));
}

} // namespace
} // namespace kelvane::tests
