#include "Support/PathHelpers.h"

#include <gtest/gtest.h>

namespace kelvane {
namespace {

const Volumes volumes("Mac", {{"Disk", "/media/joe/Disk"}});

TEST(PathHelpers, PutPathsBelowTheBootVolumeUnlessTheyNameAVolume) {
    const struct {
        std::string path, volumePath;
        bool isPrefixed;
    } cases[] = {
        {"", "", false},
        {"/", "/Volumes/Mac", false},
        {"/Users/a", "/Volumes/Mac/Users/a", false},
        {"/Volumes", "/Volumes/Mac/Volumes", false},
        {"/volumes/Disk", "/Volumes/Mac/volumes/Disk", false},
        {"/Volumes/", "/Volumes/", true},
        {"/Volumes/Gone/a/", "/Volumes/Gone/a/", true},
        {"/System/Volumes/Data/a", "/System/Volumes/Data/a", true},
        {"/System/Volumes", "/Volumes/Mac/System/Volumes", false},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(stringWithKelvaneVolumePath(each.path, volumes), each.volumePath) << each.path;
        EXPECT_EQ(isKelvaneVolumePath(each.path), each.isPrefixed) << each.path;
    }
}

TEST(PathHelpers, TellWholeVolumesFromWhatIsInside) {
    const struct {
        std::string path;
        bool isVolume, isRoot;
        std::string shortPath, displayName;
    } cases[] = {
        {"/Volumes/Mac", true, true, "/", "Mac"},
        {"//Volumes/Mac/", true, true, "/", "Mac"},
        {"/Volumes/Mac/a", false, false, "/Volumes/Mac/a", "Mac"},
        {"/Volumes/Disk", true, false, "/Volumes/Disk", "Disk"},
        {"/Volumes/Gone/a", false, false, "/Volumes/Gone/a", "Gone"},
        {"/Volumes", false, false, "/Volumes", "Mac"},
        {"Volumes/Disk/a", false, false, "Volumes/Disk/a", "Mac"},
        {"/System/Volumes/Data", true, false, "/System/Volumes/Data", "Mac"},
        {"/System/Volumes/Data/a", false, false, "/System/Volumes/Data/a", "Mac"},
        {"/", false, false, "/", "Mac"},
        {"", false, false, "", "Mac"},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(kelv_isVolumePath(each.path), each.isVolume) << each.path;
        EXPECT_EQ(kelv_isRootVolumePath(each.path, volumes), each.isRoot) << each.path;
        EXPECT_EQ(kelv_shortVolumePath(each.path, volumes), each.shortPath) << each.path;
        EXPECT_EQ(kelv_volumeDisplayName(each.path, volumes), each.displayName) << each.path;
    }
}

TEST(PathHelpers, MatchThePathAgainstThePatternAndNotTheOtherWayRound) {
    EXPECT_FALSE(kelv_isEqualToWildcardString("/Volumes/Mac/a.tmp", "/Volumes/*.TMP"));
    EXPECT_TRUE(kelv_isEqualToWildcardString("/Volumes/Mac/a.tmp", "/Volumes/**.TMP"));
    EXPECT_FALSE(kelv_isEqualToWildcardString("/Volumes/**.TMP", "/Volumes/Mac/a.tmp"));
}

} // namespace
} // namespace kelvane
