#include "PreferencePane/Backup/VisibleFiles.h"

#include "Support/Logging.h"
#include "Tests/Harness/EnvironmentVariable.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace kelvane::tests {
namespace {

using Names = std::vector<std::string>;

bool nothing(const std::string&) {
    return false;
}

class VisibleFilesTest : public testing::Test {
protected:
    // Without the volume's name.
    Names list(const std::string& path, const VisibleFiles::IsPathExcluded& isExcluded = nothing) {
        Names names;
        for (const VisibleFile& file : files.visibleFilesAtPath(path, isExcluded))
            names.push_back(file.path.substr(std::string("/Volumes/USB/").size()));
        return names;
    }

    const TemporaryFolder folder;
    const LocalFileSystem disk{Volumes("System", {{"USB", folder.path()}})};
    VisibleFiles files{disk, folder / ".hidden"};
};

TEST_F(VisibleFilesTest, AreInOrderWhateverTheyAreCalled) {
    const std::string longest(255, 'x');
    for (const char* const name : {"b", "A", "c\nd", "\xC3\xA9", "\xFF.txt", ".dotted"})
        folder.write(std::string("in/") + name, "");
    folder.write("in/" + longest, "");
    EXPECT_EQ(list("/Volumes/USB/in"), (Names{"in/A", "in/b", "in/c\nd", "in/" + longest, "in/\xC3\xA9"}));
}

TEST_F(VisibleFilesTest, AreNotTheNamesOfTheHiddenListOnceTheRootHasBeenListed) {
    for (const char* const name : {"in/bin", "in/deep/bin", "in/deep/b\xC3\xA9", "in/deep/binary"})
        folder.write(name, "");
    EXPECT_EQ(list("/Volumes/USB/in"), (Names{"in/bin", "in/deep"}));
    static_cast<void>(files.visibleFilesAtPath("/", nothing)); // there is no list yet
    const std::pair<const char*, std::string_view> encodings[] = {
        {"UTF-8", "lost\nbin\nb\xC3\xA9\n"},
        {"UTF-16",
         {"\xFF\xFE"
          "b\0i\0n\0\n\0b\0\xE9\0\n\0",
          16}},
        {"Latin-1", "bin\nb\xE9"},
    };
    for (const auto& [name, list] : encodings) {
        SCOPED_TRACE(name);
        folder.write(".hidden", list);
        VisibleFiles hiding(disk, folder / ".hidden");
        EXPECT_EQ(hiding.visibleFilesAtPath("/Volumes/USB/in/deep", nothing).size(), 3);
        static_cast<void>(hiding.visibleFilesAtPath("/Volumes/System", nothing));
        folder.write(".hidden", "binary"); // it is read once
        static_cast<void>(hiding.visibleFilesAtPath("/", nothing));
        const std::vector<VisibleFile> shown = hiding.visibleFilesAtPath("/Volumes/USB/in/deep", nothing);
        ASSERT_EQ(shown.size(), 1);
        EXPECT_EQ(shown.front().path, "/Volumes/USB/in/deep/binary");
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

TEST_F(VisibleFilesTest, AreLoggedOnceForAFolderWhereSomeCannotBeShown) {
    KelvaneLogStart(folder.path());
    Names lines;
    const LogSinkToken sink = setLogSink([&](const LogEntry& entry) { lines.push_back(entry.text); });
    folder.write("in/\xFF", "");
    for (int times = 0; times < 2; ++times)
        static_cast<void>(list("/Volumes/USB/in"));
    EXPECT_EQ(lines, Names{"Not all of /Volumes/USB/in is shown: 1 names are no UTF-8, error 0"});
}

} // namespace
} // namespace kelvane::tests
