// Who may read what a restore brings, and the key without which there is none.

#include "Tests/LocalDaemon/RestoreQueueFixture.h"

namespace kelvane::tests {
namespace {

class RestoreAccess : public RestoreQueueTest {};

TEST_F(RestoreAccess, AFolderThatIsOpenToOthersIsNarrowedBeforeAnythingComesIntoIt) {
    for (const char* name : {"a/1", "a/2", "a/3"})
        folder_.write(std::string("home/") + name, std::string(9'000, *name));
    ASSERT_EQ(::chmod(home("a").c_str(), 0700), 0);
    folder_.pretendBackUp();
    folder_.write("out/a/others", "");
    const std::string target = folder_ / "out/a";
    ASSERT_EQ(::chmod(target.c_str(), 0777), 0);
    bool wasOpen = false;
    adjust_ = [&](RestoreQueue::Options& options) {
        options.freeSpace = [&](const std::string&) {
            wasOpen = wasOpen || (fs::exists(target + "/1") && modeOf(target) != 0700);
            return std::uint64_t{20'000}; // for a part
        };
    };
    start(copying());
    EXPECT_EQ(queue_->failures(restore(folder_.home(), folder_ / "out")), "");
    EXPECT_TRUE(fs::exists(target + "/3"));
    EXPECT_FALSE(wasOpen);
    EXPECT_EQ(modeOf(target), 0700U);
}

TEST_F(RestoreAccess, TheKeyInUseIsNotReplacedByOneThatWasSavedEarlier) {
    folder_.write("home/key", "older");
    folder_.backUp();
    folder_.write("home/key", folder_.read("password"));
    adjust_ = [&](RestoreQueue::Options& options) {
        RepositoryPlace place = folder_.place();
        place.passwordFile = home("key");
        options.restic = std::make_shared<Restic>(place);
    };
    start();
    const std::string failures = queue_->failures(restore(folder_.home(), folder_.home()));
    EXPECT_TRUE(failures.starts_with(home("key") + ": it is the key")) << failures;
    EXPECT_EQ(folder_.read("home/key"), folder_.read("password"));
    EXPECT_EQ(queue_->failures(restore(home("key"), folder_ / "key")), "");
    EXPECT_EQ(folder_.read("key"), "older");
}

} // namespace
} // namespace kelvane::tests
