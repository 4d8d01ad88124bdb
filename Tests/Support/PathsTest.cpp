#include "Support/PathHelpers.h"
#include "Support/WildcardMatch.h"

#include <gtest/gtest.h>
#include <string>

namespace kelvane::tests {

TEST(PathHelpers, TellVolumePathsFromOthersAndWholeVolumesFromWhatIsInside) {
    const Volumes volumes("Boot", {{"Disk", "/media/joe/Disk"}});
    const std::tuple<std::string, std::string, std::string, bool> cases[] = {
        {"", "", "Boot", false},
        {"/", "/Volumes/Boot", "Boot", false},
        {"/Users/a", "/Volumes/Boot/Users/a", "Boot", false},
        {"/Volumes", "/Volumes/Boot/Volumes", "Boot", false},
        {"/volumes/Disk", "/Volumes/Boot/volumes/Disk", "Boot", false},
        {"/Volumes/", "/Volumes/", "Boot", false},
        {"/Volumes/Disk", "/Volumes/Disk", "Disk", true},
        {"/Volumes/Gone/a/", "/Volumes/Gone/a/", "Gone", false},
        {"Volumes/Disk/a", "/Volumes/Boot/Volumes/Disk/a", "Boot", false},
        {"/a/Volumes/x", "/Volumes/Boot/a/Volumes/x", "Boot", false},
        {"/System/Library/x", "/Volumes/Boot/System/Library/x", "Boot", false},
        {"a/System/Volumes/x", "/Volumes/Boot/a/System/Volumes/x", "Boot", false},
        {"a/Volumes/Disk", "/Volumes/Boot/a/Volumes/Disk", "Boot", false},
        {"/System/Volumes", "/Volumes/Boot/System/Volumes", "Boot", false},
        {"/System/Volumes/Data", "/System/Volumes/Data", "Boot", true},
        {"/System/Volumes/Data/a", "/System/Volumes/Data/a", "Boot", false}};
    for (const auto& [path, volumePath, displayName, isVolume] : cases) {
        EXPECT_EQ(stringWithKelvaneVolumePath(path, volumes), volumePath) << path;
        EXPECT_EQ(kelv_isVolumePath(path), isVolume) << path;
        EXPECT_EQ(kelv_volumeDisplayName(path, volumes), displayName) << path;
        EXPECT_EQ(kelv_shortVolumePath(path, volumes), path);
    }
    EXPECT_EQ(kelv_shortVolumePath("//Volumes/Boot/", volumes), "/");
    EXPECT_EQ(kelv_shortVolumePath("/Volumes/Boot/a", volumes), "/Volumes/Boot/a");
    EXPECT_TRUE(kelv_isEqualToWildcardString("/Volumes/Boot/a.tmp", "/Volumes/**.TMP")) << "text, pattern";
}

// There is no backtracking at a star before a slash. '[' and '{' differ by the case bit of letters.
TEST(WildcardMatch, KnowsTheCasesThatExclusionsAreWrittenFor) {
    const std::tuple<std::string, std::string, bool> cases[] = {
        {"*.TMP", "a.tmp", true},
        {"*.TMP", "dir/a.tmp", false},
        {"**.tmp", "dir/a.tmp", true},
        {"/Users/*/Library", "/users/b/library", true},
        {"/Users/*/Library", "/Users/b/x/Library", false},
        {"/Users/**/Library", "/Users/b/x/Library", true},
        {"/Users/*", "/Users/b/x/Library", true},
        {"/Users", "/Users/", false},
        {"/Users/*/x", "/Users/a/b/x", false},
        {"*/x", "a//x", false},
        {"**/x", "a//x", true},
        {"*ab", "aab", true},
        {"*ab", "ababx", false},
        {"*ab*b", "ab/b", false},
        {"a**b*c", "a/xB/xbyC", true},
        {"[*[", "{a[", false},
        {"*[", "a{", false},
        {"*A", "xa", true},
        {"***", "a/b", true},
        {"", "", true},
        {"", "a", false},
        {"ab", "a", false},
        {"a?c", "abc", false}};
    for (const auto& [pattern, text, matches] : cases)
        EXPECT_EQ(WildcardMatch(pattern, text), matches) << pattern << " on " << text;
    EXPECT_TRUE(WildcardMatch(std::string("a\0b*", 4), std::string("A\0zz", 4)));
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

} // namespace kelvane::tests
