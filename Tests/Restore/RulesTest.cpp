#include "PreferencePane/Restore/RestoreTabRules.h"

#include <gtest/gtest.h>
#include <set>

namespace kelvane::tests {
namespace {

TEST(RestoreRules, KeepNamesAsTheyAre) {
    const std::string paths[] = {"/Volumes/B/a\u2215b/ \u202Efdp.doc ",
                                 "/Volumes/A",
                                 "/Volumes/B",
                                 "/System/Volumes/Data/x",
                                 "/Volumes",
                                 "/home/Volumes/x"};
    EXPECT_EQ(restoreTarget(paths[0], std::nullopt), paths[0]);
    EXPECT_EQ(restoreTarget(paths[0], "/home/x"), "/home/x/ \u202Efdp.doc ");
    EXPECT_EQ(restoreTarget("/Volumes/B", "/"), "/B");
    EXPECT_EQ(volumesOf(paths), (std::set<std::string>{"/Volumes/A", "/Volumes/B"}));
}

TEST(RestoreRules, CountFromTheLargestCount) {
    struct {
        std::uint32_t count;
        bool isNewTotal;
        std::uint32_t done;
        int percent;
    } const counts[] = {
        {3, true, 0, 0},   {3, false, 0, 0},   {2, false, 1, 33},           {5, true, 0, 0},
        {1, false, 4, 80}, {0, false, 5, 100}, {4'000'000'000, true, 0, 0}, {1, false, 3'999'999'999, 99}};
    RestoreCounts restore;
    for (const auto& [count, isNewTotal, done, percent] : counts) {
        EXPECT_EQ(restore.setPendingCount(count), isNewTotal) << count;
        EXPECT_EQ(restore.done(), done) << count;
        EXPECT_EQ(restore.percent(), percent) << count;
    }
    restore.begin();
    EXPECT_TRUE(restore.setPendingCount(2));
}

} // namespace
} // namespace kelvane::tests
