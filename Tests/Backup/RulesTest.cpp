#include "PreferencePane/Backup/BackupTabRules.h"
#include "PreferencePane/Backup/UriList.h"

#include <gtest/gtest.h>

namespace kelvane::tests {
namespace {

const Volumes volumes("System", {{"USB", "/media/joe/USB"}});

TEST(BackupTab, EnablesWhatItsConditionsAllow) {
    struct Case {
        PaneConditions conditions; // connected, authorized, recovering, enabled
        const char* items;         // E: excludes, M: marks, T: enables the table, R: reloads
        std::optional<bool> saysRecovering;
    };
    const Case cases[] = {
        {{true, true, false, true}, "EMTR", false},    {{true, true, false, false}, "ETR", false},
        {{false, true, false, true}, "ET", false},     {{true, true, true, true}, "R", true},
        {{false, true, true, true}, "R", true},        {{true, false, false, true}, "", std::nullopt},
        {{true, false, true, true}, "", std::nullopt},
    };
    for (const auto& [conditions, expected, saysRecovering] : cases) {
        const TabItems items = tabItemsFor(conditions);
        const std::string found = std::string(items.excludes ? "E" : "") + (items.marks ? "M" : "") +
                                  (items.enablesTable ? "T" : "") + (items.reloadsFirstColumn ? "R" : "");
        EXPECT_EQ(found, expected) << (&conditions - &cases[0].conditions);
        EXPECT_EQ(items.saysRecovering, saysRecovering);
    }
}

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

FileNodeRef node(std::uint32_t simpleFlags, std::int32_t color) {
    const FileNodeRef made = KelvaneFileNode::create();
    made->setSimpleFlags(simpleFlags);
    made->setBackupColor(color);
    return made;
}

TEST(BackupTab, OffersToAddUnlessAllIsInOrWaits) {
    const FileNodeRef checked = node(Backup_Simple_Checked, Backup_Color_Yellow);
    const FileNodeRef unchecked = node(Backup_Simple_Enabled, Backup_Color_None);
    const FileNodeRef waiting = node(Backup_Simple_Enabled, Backup_Color_Yellow);
    const std::pair<FileNodeList, std::int32_t> cases[] = {
        {{checked, checked}, togglestate::remove},
        {{checked, unchecked}, togglestate::add},
        {{checked, nullptr}, togglestate::add}, // the daemon does not know it
        {{unchecked, waiting, nullptr}, togglestate::remove},
    };
    for (const auto& [nodes, state] : cases)
        EXPECT_EQ(toggleStateFor(nodes), state) << (&nodes - &cases[0].first);
}

TEST(BackupTab, NamesVolumesByTheirMountPoints) {
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"/", "System", "/Volumes/System"},
        {"/Volumes/USB", "USB", "/Volumes/USB"},
        {"/System/Volumes/Data", "System", "/System/Volumes/Data"},
    };
    for (const auto& [name, title, path] : cases) {
        const VolumeRow row = volumeRowFor(name, volumes);
        EXPECT_EQ(row.title, title);
        EXPECT_EQ(row.path, path);
    }
}

TEST(BackupTab, ExcludesNoWholeVolumeByWhateverName) {
    const std::pair<const char*, std::optional<std::string>> cases[] = {
        {"/media/joe/USB", std::nullopt},       {"/Volumes/USB", std::nullopt},
        {"/Volumes/Gone", std::nullopt},        {"/", std::nullopt},
        {"/Volumes/System", std::nullopt},      {"/System/Volumes/Data", std::nullopt},
        {"/media/joe/USB/a", "/Volumes/USB/a"}, {"/media/joe/USB2", "/media/joe/USB2"},
        {"/home/joe/a", "/home/joe/a"},
    };
    for (const auto& [path, excluded] : cases)
        EXPECT_EQ(excludablePath(path, volumes), excluded) << path;
}

TEST(BackupTab, FindsTheFirstPolicyPatternThatMatches) {
    const std::vector<std::string> patterns{"/Volumes/System/proc", "/Volumes/System/proc/",
                                            "/Volumes/System/**/.cache/**", "/Volumes/*/tmp/*"};
    const std::pair<const char*, int> cases[] = {
        {"/Volumes/System/proc/", 1},
        {"/Volumes/System/PROC/", 1},
        {"/Volumes/System/home/joe/.cache/", 2},
        {"/Volumes/USB/tmp/", 3},
        {"/Volumes/System/process/", -1},
    };
    for (const auto& [path, place] : cases) {
        const std::string* const found = matchingPattern(path, patterns);
        EXPECT_EQ(found ? found - patterns.data() : -1, place) << path;
    }
}

TEST(UriList, NamesFilesOfThisMachineAlone) {
    const UriList found = pathsOfUriList("# comment\r\n"
                                         "file:///home/joe/a%20b\r\n"
                                         "FILE://localhost/b%C3%A9/\n"
                                         "\n"
                                         "file://here/media/../c#1?\r\n"
                                         "file:/d\n"
                                         "file://elsewhere/e\r\n"
                                         "file:///%FF\r\n"
                                         "file:///a%00b\r\n"
                                         "file:relative\n"
                                         "fil\n"
                                         "https://here/f",
                                         "here");
    EXPECT_EQ(found.paths, (std::vector<std::string>{"/home/joe/a b", "/b\xC3\xA9", "/c#1?", "/d"}));
    EXPECT_EQ(found.others, (std::vector<std::string>{"file://elsewhere/e", "file:///%FF", "file:///a%00b",
                                                      "file:relative", "fil", "https://here/f"}));
}

} // namespace
} // namespace kelvane::tests
