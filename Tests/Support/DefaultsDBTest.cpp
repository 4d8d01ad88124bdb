#include "Support/Preferences/DefaultsDB.h"

#include "Foundation/PropertyList/BinaryPropertyList.h"
#include "Platform/FileDescriptor.h"
#include "Support/Logging.h"
#include "Tests/Harness/AsNobody.h"
#include "Tests/Harness/EnvironmentVariable.h"

#include <algorithm>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <thread>

namespace kelvane::tests {
namespace {

constexpr const char* fileName = "com.kelvane.preferences.plist";

// A private domain of the test.
class DefaultsDBTest : public testing::Test {
protected:
    // Writes like another process.
    void store(const Dictionary& entries) const {
        const Data bytes = writeBinaryPropertyList(entries).bytes;
        folder_.write(fileName, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    }
    [[nodiscard]] Value stored() const {
        const std::string bytes = folder_.read(fileName);
        return readBinaryPropertyList(Data(bytes.begin(), bytes.end())).value;
    }

    const TemporaryFolder folder_;
    const std::string file_ = folder_ / fileName;
    const EnvironmentVariable variable_{"XDG_CONFIG_HOME", folder_.path().c_str()};
};

TEST_F(DefaultsDBTest, StoresTextsNumbersAndBooleansBesideWhatOthersWrote) {
    store({{"foreign", Date{5}}, {"number", true}});
    DefaultsDB::setStringProperty("a@b.c", "text");
    DefaultsDB::setIntProperty(1, "number");
    DefaultsDB::setBoolProperty(true, "yes");
    DefaultsDB::setBoolProperty(false, "no");
    // Values that could not be read back are refused, and the others are written.
    DefaultsDB::setStringProperty(std::string(std::size_t{5} << 20U, 'x'), "long");
    DefaultsDB::setIntProperty(0, "last");
    EXPECT_EQ(stored().description(), "{foreign = 2001-01-01T00:00:05Z; number = 1; text = \"a@b.c\"; "
                                      "yes = \"YES\"; no = \"NO\"; last = 0;}");
    EXPECT_EQ(stored()["number"].kind(), Value::Kind::Integer);

    const auto statusOfFile = [this] {
        struct stat status {};
        EXPECT_EQ(::stat(file_.c_str(), &status), 0);
        return status;
    };
    const auto before = statusOfFile();
    EXPECT_EQ(before.st_mode & 07777U, 0600U) << "the account's address is nobody else's";
    DefaultsDB::setIntProperty(0, "last");
    EXPECT_EQ(statusOfFile().st_ino, before.st_ino) << "nothing new to write";
    DefaultsDB::setIntProperty(1, "last");
    EXPECT_NE(statusOfFile().st_ino, before.st_ino);
}

TEST_F(DefaultsDBTest, ReadsStoredValuesByConversionAndGivesDefaultsForAbsentKeys) {
    const std::tuple<Value, std::optional<std::string>, std::int32_t, bool> cases[] = {
        {" -12 apples", " -12 apples", -12, false},
        {"99999999999999999999", "99999999999999999999", 2147483647, false},
        {"-99999999999999999999", "-99999999999999999999", -2147483647 - 1, false},
        {"", "", 0, false},
        {"YES", "YES", 0, true},
        {"yes", "yes", 0, false},
        {42, "42", 42, false},
        {true, "1", 1, false},
        {Array{"YES"}, std::nullopt, 0, false}};
    for (const auto& [value, text, number, flag] : cases) {
        SCOPED_TRACE(value.description());
        store({{"key", value}});
        EXPECT_EQ(DefaultsDB::stringProperty("key", true), text);
        EXPECT_TRUE(DefaultsDB::lastReadOK());
        EXPECT_EQ(DefaultsDB::stringProperty("key", false, "default"), text.value_or(""));
        EXPECT_EQ(DefaultsDB::intProperty("key", false, 5), number);
        EXPECT_EQ(DefaultsDB::boolProperty("key", false, !flag), flag);
    }
    EXPECT_EQ(DefaultsDB::stringProperty("absent"), std::nullopt);
    EXPECT_FALSE(DefaultsDB::lastReadOK());
    EXPECT_EQ(DefaultsDB::stringProperty("absent", true, "default"), "default");
    EXPECT_EQ(DefaultsDB::intProperty("absent", true, 5), 5);
    EXPECT_TRUE(DefaultsDB::boolProperty("absent", true, true));
    EXPECT_FALSE(DefaultsDB::lastReadOK());
}

TEST_F(DefaultsDBTest, SeesWhatOthersWroteWhenItSynchronizesOrWrites) {
    store({{"a", 1}});
    EXPECT_EQ(DefaultsDB::intProperty("a"), 1);
    store({{"a", 2}});
    EXPECT_EQ(DefaultsDB::intProperty("a"), 1);
    EXPECT_EQ(DefaultsDB::intProperty("a", true), 2);
    store({{"a", 3}});
    DefaultsDB::setIntProperty(4, "b");
    EXPECT_EQ(DefaultsDB::intProperty("a"), 3);
}

TEST_F(DefaultsDBTest, LosesNothingWhenTwoProcessesWriteAtOnce) {
    constexpr int keyCount = 50;
    const auto writeAll = [](const std::string& prefix) {
        for (int key = 0; key < keyCount; ++key)
            DefaultsDB::setIntProperty(key, prefix + std::to_string(key));
    };
    const pid_t child = ::fork();
    if (child == 0) {
        writeAll("child");
        std::_Exit(0);
    }
    writeAll("parent");
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    EXPECT_EQ(stored().size(), 2U * keyCount);
    EXPECT_EQ(folder_.names().size(), 2U); // the file and its lock
}

// A failed write is logged, and the value is kept until the next load.
void expectUnwritable(const std::string& reason) {
    std::string logged;
    KelvaneLogStart("/");
    const LogSinkToken sink = setLogSink([&](const LogEntry& entry) { logged += entry.text; });
    DefaultsDB::setStringProperty("kept", "key");
    EXPECT_EQ(DefaultsDB::stringProperty("key"), "kept");
    EXPECT_NE(logged.find(reason), std::string::npos) << logged;
}

TEST_F(DefaultsDBTest, LeavesAloneWhatItCannotRead) {
    const std::string target = folder_.write("elsewhere/target", "precious");
    std::filesystem::create_symlink(target, file_);
    expectUnwritable("Too many levels of symbolic links");
    EXPECT_TRUE(std::filesystem::is_symlink(file_));
    EXPECT_EQ(folder_.read("elsewhere/target"), "precious");

    std::filesystem::remove(file_);
    std::filesystem::create_directory(file_);
    expectUnwritable("Is a directory");

    std::filesystem::remove(file_);
    folder_.write(fileName, "precious");
    std::filesystem::permissions(file_, std::filesystem::perms::none);
    ASSERT_EQ(::chmod((file_ + ".lock").c_str(), 0666), 0);
    {
        const AsNobody nobody(folder_); // root ignores permissions
        expectUnwritable("Permission denied");
    }
    std::filesystem::permissions(file_, std::filesystem::perms::owner_all);
    EXPECT_EQ(folder_.read(fileName), "precious");

    const EnvironmentVariable nowhere("XDG_CONFIG_HOME", "/proc/self/nowhere");
    expectUnwritable("cannot create /proc/self/nowhere");
}

long countOpened(const std::string& path) {
    std::error_code none;
    return std::ranges::count_if(
        std::filesystem::directory_iterator("/proc/self/fd"),
        [&](const auto& entry) { return std::filesystem::read_symlink(entry.path(), none) == path; });
}

TEST_F(DefaultsDBTest, WaitsOnceForALockWhateverHasNotBeenWrittenYet) {
    store({{"number", 1}});
    const FileDescriptor lock(::open((file_ + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    DefaultsDB::setIntProperty(2, "first");
    const auto start = std::chrono::steady_clock::now();
    DefaultsDB::setIntProperty(3, "second");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(3500));
    EXPECT_EQ(DefaultsDB::intProperty("first"), 2);
    const std::jthread other([&] { // unlocks once the main thread waits for the lock
        while (countOpened(file_ + ".lock") < 2)
            std::this_thread::yield();
        EXPECT_EQ(::flock(lock.get(), LOCK_UN), 0);
    });
    DefaultsDB::setIntProperty(4, "third");
    EXPECT_EQ(stored(), Value(Dictionary{{"number", 1}, {"first", 2}, {"second", 3}, {"third", 4}}));
}

TEST_F(DefaultsDBTest, PutsADamagedFileAsideAndWritesWhatItKnew) {
    store({{"known", 1}, {"key", 1}});
    EXPECT_EQ(DefaultsDB::intProperty("known"), 1);
    const std::string whole = folder_.read(fileName);
    for (const std::string& damaged :
         {whole.substr(0, whole.size() - 1), std::string("<plist><array/></plist>")}) {
        folder_.write(fileName, damaged);
        EXPECT_EQ(DefaultsDB::intProperty("known", true), 1);
        DefaultsDB::setIntProperty(2, "key");
        EXPECT_EQ(stored(), Value(Dictionary{{"known", 1}, {"key", 2}}));
        EXPECT_EQ(folder_.read(std::string(fileName) + ".damaged"), damaged);
    }
}

} // namespace
} // namespace kelvane::tests
