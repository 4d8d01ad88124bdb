// Who may read restored files, and the protection of the key file.

#include "Tests/LocalDaemon/Restore/RestoreQueueFixture.h"

namespace kelvane::tests {
namespace {

class RestoreAccess : public RestoreQueueTest {};

TEST_F(RestoreAccess, AFolderThatIsOpenToOthersIsNarrowedBeforeAnythingComesIntoIt) {
    for (const char* name : {"mode/1", "mode/2", "rule/1", "rule/2"}) {
        folder_.write(std::string("home/") + name, std::string(9'000, *name));
        folder_.write(std::string("out/") + name + " of others", "");
    }
    ASSERT_EQ(::chmod(home("mode").c_str(), 0700), 0);
    setRule(home("rule"), "system.posix_acl_access", 0);
    folder_.backUp();
    for (const char* name : {"mode", "rule"})
        ASSERT_EQ(::chmod((folder_ / (std::string("out/") + name)).c_str(), 0777), 0);
    std::set<std::string> open;
    adjust_ = [&](RestoreQueue::Options& options) {
        options.freeSpace = [&](const std::string&) {
            for (const std::string name : {"mode", "rule"})
                if (fs::exists(folder_ / ("out/" + name + "/1")) && modeOf(folder_ / ("out/" + name)) != 0700)
                    open.insert(name);
            return std::uint64_t{20'000}; // for a part
        };
    };
    start();
    EXPECT_EQ(queue_->failures(restore(folder_.home(), folder_ / "out")), "");
    EXPECT_EQ(open, std::set<std::string>());
    for (const std::string name : {"mode", "rule"}) {
        EXPECT_TRUE(fs::exists(folder_ / ("out/" + name + "/2")));
        EXPECT_EQ(modeOf(folder_ / ("out/" + name)), 0700U);
    }
}

TEST_F(RestoreAccess, TheKeyInUseIsNotReplacedByOneThatWasSavedEarlier) {
    folder_.write("home/key", "older");
    fs::create_symlink("elsewhere", home("way")); // the link on the way to the key, with its old target
    folder_.backUp();
    folder_.write("home/key", folder_.read("password"));
    fs::remove(home("way"));
    fs::create_symlink(".", home("way"));
    fs::create_symlink("home/way/key", folder_ / "link");
    adjust_ = [&](RestoreQueue::Options& options) {
        RepositoryPlace place = folder_.place();
        place.passwordFile = folder_ / "link";
        options.restic = std::make_shared<Restic>(place);
    };
    start();
    const std::string failures = queue_->failures(restore(folder_.home(), folder_.home()));
    for (const char* name : {"key", "way"})
        EXPECT_NE(failures.find(home(name) + ": it would replace the key"), std::string::npos) << failures;
    EXPECT_EQ(folder_.read("home/key"), folder_.read("password"));
    EXPECT_EQ(queue_->failures(restore(home("key"), folder_ / "key")), "");
    EXPECT_EQ(folder_.read("key"), "older");
}

} // namespace
} // namespace kelvane::tests
