#include "LocalDaemon/State/Settings/SettingsStore.h"

#include "Foundation/PropertyList/BinaryPropertyList.h"
#include "LocalDaemon/State/Settings/ComputerNumber.h"
#include "LocalDaemon/State/Settings/Configuration.h"
#include "Support/Logging.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace kelvane {
namespace {

class Store : public ::testing::Test {
protected:
    Store() {
        settings.automaticMode = false;
        settings.backupControlFlags = 0xFFFFFFFF;
        settings.pausedUntil = 1'900'000'000;
        settings.profile = {{"SkinId", "blü"}, {"empty", ""}};
        settings.fileTypeToggles = {{"movies", 0xFFFFFFFFU}};
        settings.paths.exclusions = {"/a\nb", "/home/ü"};
        settings.mountPoints = {{"/home/\xFF", "/home"}};
        settings.paths.marks = {{"/", PathRules::Mark::Added}, {"/x", PathRules::Mark::Removed}};
    }
    std::string write(const std::string& name, const Value& value) const {
        const Data bytes = writeBinaryPropertyList(value).bytes;
        return folder.write(name, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    }

    const tests::TemporaryFolder folder;
    const std::string path = folder / "new folder/state.plist";
    SettingsStore store{path};
    Settings settings;
    int problems = 0;
    const LogSinkToken log = setLogSink([this](const LogEntry&) { ++problems; });
};

TEST_F(Store, BringsBackTheLatestOfWhatItSaved) {
    EXPECT_EQ(store.load().settings, Settings());
    EXPECT_EQ(store.save(settings, 2), "");
    EXPECT_EQ(store.save(Settings(), 1), ""); // one of several changes
    EXPECT_EQ(SettingsStore(path).load().settings, settings);
    EXPECT_EQ(problems, 0);
    Settings large = settings; // each of these bytes takes six bytes in the file
    for (int rule = 0; rule < 250; ++rule)
        large.paths.exclusions.insert('/' + std::string(4000, '\xFF') + std::to_string(rule));
    ASSERT_FALSE(isTooLarge(large.paths));
    EXPECT_EQ(store.save(large, 3), "");
    EXPECT_TRUE(store.load().settings == large);
    Settings repeating;
    for (int selected = 0; selected < 8000; ++selected)
        repeating.mountPoints['/' + std::to_string(selected)] = '/' + std::string(3000, 'x');
    EXPECT_NE(store.save(repeating, 4), "");
    EXPECT_TRUE(store.load().settings == large) << "what cannot be read back is not written";
}

TEST_F(Store, SetsAsideWhatIsDamagedAndReadsTheCopy) {
    EXPECT_EQ(store.save(settings, 2), "");
    const std::string whole = folder.read("new folder/state.plist");
    Settings recovering;
    recovering.recoverMode = true;
    for (std::size_t length = 0; length < whole.size(); length += 29) {
        std::string flipped = whole;
        flipped[length] = static_cast<char>(flipped[length] ^ 0x10);
        for (const std::string& damaged : {whole.substr(0, length), flipped}) {
            folder.write("new folder/state.plist", damaged);
            problems = 0;
            SettingsStore::Loading loading = store.load();
            EXPECT_EQ(loading.settings, settings) << length;
            EXPECT_TRUE(loading.alert);
            EXPECT_EQ(problems, 1);
            EXPECT_EQ(folder.read("new folder/state.plist.damaged"), damaged);

            for (const char* file : {"new folder/state.plist", "new folder/state.plist.copy"})
                folder.write(file, damaged);
            loading = store.load();
            EXPECT_EQ(loading.settings, recovering)
                << length << ": exclusions are lost, and nothing is backed up";
            EXPECT_EQ(loading.alert->severity, "error");
            EXPECT_EQ(store.load().settings, recovering) << "still after the next start";
            EXPECT_EQ(store.save(settings, 2), "");
        }
    }
}

TEST_F(Store, ReadsTheFormOfEarlierVersionsAndTheCopyOfAFileThatCannotBeRead) {
    EXPECT_EQ(store.save(settings, 2), "");
    const Array strange{"relative", 7, "/a", ""};
    write("new folder/state.plist", Dictionary{{"enabled", 0}, {"profile", 7}, {"exclusions", strange}});
    Settings expected;
    expected.enabled = false;
    expected.paths.exclusions = {"/a"};
    EXPECT_EQ(store.load().settings, expected) << "as versions without a checksum wrote it";

    std::filesystem::rename(path, path + "elsewhere"); // like a disk that cannot be read at the moment
    std::filesystem::create_symlink(path, path);
    EXPECT_EQ(store.load().settings, settings) << "the copy";
    std::filesystem::remove(path + ".copy");
    EXPECT_NE(store.load().refusal, "");
    EXPECT_TRUE(std::filesystem::is_symlink(path));
}

TEST_F(Store, ConfigurationHasHonestDefaultsAndOnlyPatternsThatCanMatch) {
    const Volumes volumes("Boot", {{"Disk", "/media/joe/Disk"}});
    const ConfigurationDefaults defaults{"/home/joe", {"/backup", "/key", "/cache"}};
    const auto read = [&](const std::string& file) { return readConfiguration(file, defaults, volumes); };
    EXPECT_EQ(read(folder / "none").serverURL, "localhost");
    EXPECT_EQ(problems, 0);
    EXPECT_EQ(read(folder.write("bad.plist", "<plist")).serverURL, "localhost");
    EXPECT_EQ(problems, 1);
    std::filesystem::create_symlink("gone", folder / "link.plist");
    EXPECT_EQ(read(folder / "link.plist").repository.location, "");
    EXPECT_EQ(std::exchange(problems, 1), 2);

    const Array patterns{"/a/", "/a/*.o*", "/Volumes/Disk/b/", "/Volumes/Gone/", "a/", "/file", 7};
    const Value environment = Dictionary{{"NAME", "value"}, {"NUMBER", 7}};
    const Configuration own = read(
        write("policy.plist", Dictionary{{"policyExcludeList", patterns}, {"environment", environment}}));
    EXPECT_EQ(own.repository.environment, (decltype(own.repository.environment){{"NAME", "value"}}));
    EXPECT_EQ(own.policy, (std::vector<std::string>{"/a/", "/a/*.o*", "/media/joe/Disk/b/"}));
    EXPECT_EQ(own.ownFiles, (decltype(own.ownFiles){"/backup"}));
    EXPECT_EQ(problems, 6);
    for (const Value& place : {Value(7), Value(""), Value("a/b"), Value("local:a")}) {
        EXPECT_EQ(read(write("place.plist", Dictionary{{"repository", place}})).repository.location, "");
        EXPECT_NE(faultIn(Dictionary{{"repository", place}}, volumes), "");
    }
    EXPECT_EQ(problems, 10);
    EXPECT_EQ(volumePattern(own.policy[2], volumes), "/Volumes/Disk/b/");
    EXPECT_EQ(volumePattern(own.policy[1], volumes), "/Volumes/Boot/a/*.o*");

    // The home folder is reached through a link, and is still empty.
    std::filesystem::create_directories(folder / "data/joe");
    std::filesystem::create_symlink("data", folder / "homes");
    const std::string home = folder / "homes/joe";
    const Configuration linked = readConfiguration(
        folder / "none", {home, {home + "/r/b", home + "/key", home + "/c"}, {home + "/s/log"}}, volumes);
    EXPECT_EQ(linked.home, folder / "data/joe");
    EXPECT_EQ(linked.ownFiles, (decltype(own.ownFiles){folder / "data/joe/r/b", folder / "data/joe/s/log"}));
}

TEST_F(Store, DaemonsOfOneMachineHaveNumbersThatDifferAndKeepTheirs) {
    const auto number = [&](const std::string& name) {
        return computerNumber(folder / name + "/number", folder / name + "/index").number;
    };
    const std::uint32_t first = number("a");
    EXPECT_GT(static_cast<std::int32_t>(first), 0);
    EXPECT_NE(number("b"), first);
    folder.write("a/index-1", "");
    EXPECT_EQ(number("a"), first);
    for (const char* const lost : {"a/number", "a/local-daemon-number"}) {
        std::filesystem::remove(folder / lost);
        EXPECT_EQ(number("a"), first) << lost;
        EXPECT_EQ(folder.read(lost), std::to_string(first) + '\n');
    }
    EXPECT_EQ(problems, 1);
    const auto written = std::filesystem::last_write_time(folder / "a/number");
    folder.write("a/number", std::to_string(first / 10) + '\n');
    std::filesystem::last_write_time(folder / "a/number", written);
    EXPECT_EQ(number("a"), first) << "a damaged number is none";
    folder.write("a/number", "77\n");
    std::filesystem::last_write_time(folder / "a/number", written + std::chrono::hours(1));
    EXPECT_EQ(number("a"), 77U) << "one that was written later is meant";
    folder.write("c/index-1", ""); // from a version that did not store numbers
    folder.write("d/index-1", "");
    EXPECT_EQ(number("c"), number("d"));
    EXPECT_EQ(problems, 4);
    const std::string kept = folder.write("e/number", "# 77");
    EXPECT_NE(computerNumber(kept, folder / "e/index").refusal, "");
    EXPECT_EQ(std::filesystem::file_size(kept), 4U);
}

} // namespace
} // namespace kelvane
