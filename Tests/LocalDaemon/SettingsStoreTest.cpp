#include "LocalDaemon/SettingsStore.h"

#include "Foundation/BinaryPropertyList.h"
#include "LocalDaemon/Configuration.h"
#include "Support/Logging.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace kelvane {
namespace {

using tests::TemporaryFolder;

Settings someSettings() {
    Settings settings;
    settings.automaticMode = false;
    settings.enabled = false;
    settings.recoverMode = true;
    settings.lowerPriorityMode = true;
    settings.delayShutdown = true;
    settings.includeRequired = true;
    settings.backupControlFlags = 0xFFFFFFFF;
    settings.pausedUntil = 1'900'000'000;
    settings.profile = {{"SkinId", "blü"}, {"empty", ""}};
    settings.fileTypeToggles = {{"movies", 0xFFFFFFFFU}};
    return settings;
}

class Store : public ::testing::Test {
protected:
    [[nodiscard]] SettingsStore store() const { return SettingsStore(path); }

    const TemporaryFolder folder;
    const std::string path = folder / "new folder/state.plist";
    int problems = 0;
    const LogSinkToken log = setLogSink([this](const LogEntry&) { ++problems; });
};

TEST_F(Store, BringsBackWhatItSaved) {
    EXPECT_EQ(store().load(), Settings());
    EXPECT_EQ(store().save(someSettings(), 1), "");
    EXPECT_EQ(store().load(), someSettings());
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    EXPECT_EQ(problems, 0);
}

TEST_F(Store, KeepsTheLatestOfSeveralThatAreSavedAtOnce) {
    SettingsStore one(path);
    EXPECT_EQ(one.save(someSettings(), 2), "");
    EXPECT_EQ(one.save(Settings(), 1), "");
    EXPECT_EQ(one.load(), someSettings());
}

TEST_F(Store, SetsAsideWhatItCannotReadAndGoesOn) {
    ASSERT_EQ(store().save(someSettings(), 1), "");
    const std::string whole = folder.read("new folder/state.plist");
    std::vector<std::string> damaged{"", "bplist00", whole.substr(1), "<plist/>"};
    for (std::size_t length = 1; length < whole.size(); length += 7)
        damaged.push_back(whole.substr(0, length));
    for (const std::string& contents : damaged) {
        folder.write("new folder/state.plist", contents);
        problems = 0;
        EXPECT_EQ(store().load(), Settings());
        EXPECT_EQ(problems, 1);
        EXPECT_EQ(folder.read("new folder/state.plist.damaged"), contents);
        EXPECT_EQ(store().save(someSettings(), 1), "");
        EXPECT_EQ(store().load(), someSettings());
    }
}

TEST_F(Store, UsesWhatMakesSenseOfStrangeEntries) {
    const Dictionary strange{
        {"automaticMode", "no"},     {"enabled", 0},
        {"pausedUntil", Array()},    {"profile", Dictionary{{"number", 1}, {"text", "a"}}},
        {"fileTypeToggles", "none"}, {"of tomorrow", true}};
    const Data bytes = writeBinaryPropertyList(strange).bytes;
    folder.write("new folder/state.plist", std::string(bytes.begin(), bytes.end()));
    Settings expected;
    expected.enabled = false;
    expected.profile = {{"text", "a"}};
    EXPECT_EQ(store().load(), expected);
}

TEST_F(Store, SaysWhyItCannotSave) {
    folder.write("new folder", "a file");
    EXPECT_NE(store().save(someSettings(), 1), "");
    EXPECT_EQ(folder.read("new folder"), "a file");
}

TEST_F(Store, ConfigurationHasHonestDefaults) {
    const Configuration none = readConfiguration(folder / "none.plist");
    EXPECT_EQ(none.serverURL, "localhost");
    EXPECT_EQ(none.userEmail, "");
    EXPECT_EQ(none.quotaMB, 0U);
    EXPECT_GT(static_cast<std::int32_t>(none.computerNumber), 0);
    EXPECT_EQ(none.computerNumber, readConfiguration(folder / "none.plist").computerNumber);
    EXPECT_EQ(problems, 0);
    EXPECT_EQ(readConfiguration(folder.write("bad.plist", "<plist")).serverURL, "localhost");
    EXPECT_EQ(problems, 1);
}

} // namespace
} // namespace kelvane
