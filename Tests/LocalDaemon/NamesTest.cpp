#include "LocalDaemon/Restic/ResticNames.h"
#include "Support/MessageLine.h"
#include "Tests/LocalDaemon/BackedUpFolder.h"

#include <algorithm>
#include <sstream>

namespace kelvane {

namespace fs = std::filesystem;

// Each of these has the same form as another in restic's JSON, or takes several lines in its plain listing.
const std::vector<std::string> names{"\xFF",
                                     "\xFE",
                                     "a\xEF\xBF\xBD",
                                     "a\xFF",
                                     "\xFFline\n\n",
                                     "\n",
                                     "trailing\r\xFF",
                                     "\xE2\x82",
                                     "\xED\xA0\x80",
                                     "d\xFF/same\nname",
                                     "d\xFE/same\nname",
                                     "\\ufffd",
                                     "plain \xC3\xA4"};

TEST(Names, StandInMessagesOnOneLineAndNoTwoAlike) {
    EXPECT_EQ(messageLine("\xFF\n\x7F\\x0a\\x\\"), "\xEF\xBF\xBD"
                                                   "FF\\x0a\\x7f\\x5cx0a\\x\\");
    std::set<std::string> lines;
    for (const std::string& name : names)
        lines.insert(messageLine(name));
    EXPECT_EQ(lines.size(), names.size());
}

TEST(Names, AreListedByteForByte) {
    tests::BackedUpFolder folder;
    std::string deep = folder.home();
    for (int level = 0; level < 16; ++level)
        deep += '/' + std::string(200, static_cast<char>('a' + level));
    ASSERT_GT(deep.size(), 2304U);
    fs::create_directories(deep);
    for (const std::string& name : names)
        folder.write("home/" + name, name);
    ASSERT_EQ(::mkfifo((folder.home() + "/pipe\xFF").c_str(), 0600), 0);
    folder.backUp();
    const BackupIndex& index = *folder.index();
    for (const std::string& name : names) {
        const BackupIndex::Item* const item = index.find(folder.home() + '/' + name);
        ASSERT_NE(item, nullptr) << name;
        EXPECT_EQ(item->size, name.size()) << name;
    }
    EXPECT_NE(index.find(deep), nullptr);
    EXPECT_EQ(index.totals().count, names.size());
}

// Ambiguous names must not be guessed.
TEST(Names, OfTwoListingsThatDifferAreNone) {
    const std::pair<std::string, bool> cases[] = {
        {"header\n/a\xFF\n/b", true},        {"header\n/a\xFF", false},     {"header\n/a\xFF\n/b\n/c", false},
        {"header\n/a\xFF\xFF\n/b", false},   {"header\n/b\n/a\xFF", false}, {"header\n/aq\n/b", false},
        {"header\n/a\xEF\xBF\xBD\n/b", true}};
    for (const auto& [plain, isWhole] : cases) {
        std::vector<SnapshotItem> items{{"/a\xEF\xBF\xBD"}, {"/b"}};
        PlainListing listing(items, 1);
        std::istringstream lines(plain);
        for (std::string line; std::getline(lines, line);)
            listing.take(line);
        EXPECT_EQ(listing.isWhole(), isWhole) << plain;
    }
}

TEST(Names, OfUnreadFilesAreFoundOnTheDisk) {
    const tests::TemporaryFolder folder;
    for (const char* name : {"d\xFF/x\xFE", "d\xFE/x\xFF", "d\xFE/y", "d\xFE/x\xEF\xBF\xBD"})
        folder.write(name, "1");
    const std::string lost = "\xEF\xBF\xBD";
    auto found = pathsOnDisk(folder / ("d" + lost + "/x" + lost));
    std::ranges::sort(found);
    EXPECT_EQ(found, (std::vector<std::string>{folder / "d\xFE/x\xEF\xBF\xBD", folder / "d\xFE/x\xFF",
                                               folder / "d\xFF/x\xFE"}));
    EXPECT_EQ(pathsOnDisk(folder / ("d" + lost + "/y")), std::vector<std::string>{folder / "d\xFE/y"});
    EXPECT_EQ(pathsOnDisk(folder / ("gone" + lost)), std::vector<std::string>());
}

} // namespace kelvane
