#include "PreferencePane/Backup/BackupTabRules.h"
#include "PreferencePane/Backup/UriList.h"
#include "PreferencePane/Backup/VisibleFiles.h"
#include "Support/Logging.h"
#include "Tests/Harness/EnvironmentVariable.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace kelvane::tests {
namespace {

using Names = std::vector<std::string>;

bool nothing(const std::string&) {
    return false;
}

class VisibleFilesTest : public testing::Test {
protected:
    // Returns the paths without the volume's name.
    Names list(const std::string& path, const VisibleFiles::IsPathExcluded& isExcluded = nothing) {
        Names names;
        for (const VisibleFile& file : files->visibleFilesAtPath(path, isExcluded))
            names.push_back(file.path.substr(std::string("/Volumes/USB/").size()));
        return names;
    }
    void load(const char* path) { static_cast<void>(files->visibleFilesAtPath(path, nothing)); }

    const TemporaryFolder folder;
    const LocalFileSystem disk{Volumes("System", {{"USB", folder.path()}}), LocalFileSystem::Names::Text};
    std::optional<VisibleFiles> files{std::in_place, disk, folder / ".hidden"};
};

TEST_F(VisibleFilesTest, AreInOrderWhateverTheyAreCalled) {
    const std::string longest(255, 'x');
    for (const std::string& name : Names{"b", "A", "c\nd", "\xC3\xA9", "\xFF.txt", ".dotted", longest})
        folder.write("in/" + name, "");
    EXPECT_EQ(list("/Volumes/USB/in"), (Names{"in/A", "in/b", "in/c\nd", "in/" + longest, "in/\xC3\xA9",
                                              "in/\xEF\xBF\xBD" + std::string("FF.txt")}));
}

TEST_F(VisibleFilesTest, AreNotTheNamesOfTheHiddenListOnceTheRootHasBeenListed) {
    for (const char* const name : {"in/bin", "in/b\xC3\xA9", "in/deep/bin", "in/deep/binary"})
        folder.write(name, "");
    folder.write(".hidden", std::string((std::size_t{1} << 20U) + 1, '\n')); // too long for a list
    load("/");
    std::filesystem::remove(folder / ".hidden");
    load("/"); // no list exists yet
    folder.write(".hidden", "bin");
    load("/");
    EXPECT_EQ(list("/Volumes/USB/in"), (Names{"in/b\xC3\xA9", "in/deep"})) << "it is looked for again";
    const std::string_view utf16("\xFF\xFE"
                                 "b\0i\0n\0\n\0b\0\xE9\0",
                                 14);
    for (const std::string_view contents :
         {std::string_view("lost\nbin\nb\xC3\xA9\n"), utf16, std::string_view("bin\nb\xE9")}) {
        folder.write(".hidden", contents);
        files.emplace(disk, folder / ".hidden");
        EXPECT_EQ(list("/Volumes/USB/in").size(), 3);
        load("/Volumes/System");           // the root by its second name
        folder.write(".hidden", "binary"); // the list is read only once
        load("/");
        EXPECT_EQ(list("/Volumes/USB/in"), Names{"in/deep"});
        EXPECT_EQ(list("/Volumes/USB/in/deep"), Names{"in/deep/binary"});
    }
}

TEST_F(VisibleFilesTest, AreTheUsersLibraryFoldersButNothingElseWithADot) {
    const EnvironmentVariable home("HOME", (folder / "home").c_str());
    for (const char* const name : {"home/.config/a", "home/.local/a", "home/.cache/a", "home/deep/.config/a"})
        folder.write(name, "");
    EXPECT_EQ(list("/Volumes/USB/home"), (Names{"home/.config", "home/.local", "home/deep"}));
    EXPECT_EQ(list("/Volumes/USB/home/deep"), Names());
}

TEST_F(VisibleFilesTest, AreNotWhatIsExcludedNorWhatLeadsNowhere) {
    folder.write("in/file", "");
    folder.write("in/other", "");
    std::filesystem::create_directory_symlink("../in", folder / "in/to-folder");
    std::filesystem::create_symlink("missing", folder / "in/to-nothing");
    std::filesystem::create_symlink("loop", folder / "in/loop");
    Names asked;
    const auto isOther = [&](const std::string& path) {
        asked.push_back(path);
        return path == "/Volumes/USB/in/other/";
    };
    EXPECT_EQ(list("/Volumes/USB/in", isOther), (Names{"in/file", "in/to-folder"}));
    EXPECT_EQ(asked.size(), 3);
    for (const char* const path : {"", "/Volumes/USB/missing", "/Volumes/Gone", "/Volumes/USB/in/file"})
        EXPECT_EQ(list(path), Names()) << path;
}

TEST(BackupTab, EnablesSegmentsByWhatIsSelected) {
    // Add, remove and info with 0, 1 and 2 rows: enabled, disabled or unchanged.
    const std::tuple<bool, bool, std::string> cases[] = {{false, true, "=-- =++ =+- "},
                                                         {false, false, "--- --- --- "},
                                                         {true, true, "--- --+ --- "},
                                                         {true, false, "--- --= --- "}};
    const auto letter = [](std::optional<bool> state) { return !state ? '=' : *state ? '+' : '-'; };
    for (const auto& [isRecovering, isAuthorized, segments] : cases) {
        std::string states;
        for (std::size_t rows = 0; rows < 3; ++rows) {
            const auto [add, remove, info] = excludeSegmentsFor(rows, isRecovering, isAuthorized);
            states += {letter(add), letter(remove), letter(info), ' '};
        }
        EXPECT_EQ(states, segments);
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
    EXPECT_EQ(found.paths, (std::vector<std::string>{"/home/joe/a b", "/b\xC3\xA9", "/c#1?", "/d", "/\xFF"}));
    EXPECT_EQ(found.others, (std::vector<std::string>{"file://elsewhere/e", "file:///a%00b", "file:relative",
                                                      "fil", "https://here/f"}));
}

} // namespace
} // namespace kelvane::tests
