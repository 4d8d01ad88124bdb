#include "PreferencePane/Backup/BackupTabRules.h"
#include "PreferencePane/Backup/UriList.h"

#include <gtest/gtest.h>

namespace kelvane::tests {
namespace {

TEST(BackupTab, EnablesSegmentsByWhatIsSelected) {
    struct Case {
        bool isRecovering;
        bool isAuthorized;
        const char* segments[3]; // add, remove, info with 0, 1 and 2 rows: on, off, as it was
    };
    const Case cases[] = {
        {false, true, {"=--", "=++", "=+-"}},
        {false, false, {"---", "---", "---"}},
        {true, true, {"---", "--+", "---"}},
        {true, false, {"---", "--=", "---"}},
    };
    const auto letter = [](std::optional<bool> state) { return !state ? '=' : *state ? '+' : '-'; };
    for (const Case& example : cases)
        for (std::size_t rows = 0; rows < 3; ++rows) {
            const auto [add, remove, info] =
                excludeSegmentsFor(rows, example.isRecovering, example.isAuthorized);
            EXPECT_EQ((std::string{letter(add), letter(remove), letter(info)}), example.segments[rows]);
        }
}

TEST(BackupTab, ExcludesNoWholeVolumeByWhateverName) {
    const Volumes volumes("System", {{"USB", "/media/joe/USB"}});
    for (const char* const path :
         {"/media/joe/USB", "/Volumes/USB", "/Volumes/Gone", "/", "/Volumes/System", "/System/Volumes/Data"})
        EXPECT_EQ(excludablePath(path, volumes), std::nullopt) << path;
    EXPECT_EQ(excludablePath("/media/joe/USB/a", volumes), "/Volumes/USB/a");
    EXPECT_EQ(excludablePath("/media/joe/USB2", volumes), "/media/joe/USB2");
}

TEST(UriList, NamesFilesOfThisMachineAlone) {
    const UriList found = pathsOfUriList(
        "# comment\r\nfile:///home/joe/a%20b\r\nFILE://localhost/b%C3%A9/\n\nfile://here/media/../c#1?\r\n"
        "file:/d\nfile://elsewhere/e\r\nfile:///%FF\r\nfile:///a%00b\r\nfile:relative\nfil\nhttps://here/f",
        "here");
    EXPECT_EQ(found.paths, (std::vector<std::string>{"/home/joe/a b", "/b\xC3\xA9", "/c#1?", "/d"}));
    EXPECT_EQ(found.others, (std::vector<std::string>{"file://elsewhere/e", "file:///%FF", "file:///a%00b",
                                                      "file:relative", "fil", "https://here/f"}));
}

} // namespace
} // namespace kelvane::tests
