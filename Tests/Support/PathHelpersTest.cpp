#include "Support/PathHelpers.h"

#include <gtest/gtest.h>

namespace kelvane {
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
    // The text comes first, the pattern behind it.
    EXPECT_TRUE(kelv_isEqualToWildcardString("/Volumes/Boot/a.tmp", "/Volumes/**.TMP"));
    EXPECT_FALSE(kelv_isEqualToWildcardString("/Volumes/**.TMP", "/Volumes/Boot/a.tmp"));
}

} // namespace
} // namespace kelvane
