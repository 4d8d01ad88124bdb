#include "Tests/LocalDaemon/Restore/RestoreQueueFixture.h"

namespace kelvane::tests {
namespace {

class RestoringDamagedTest : public RestoreQueueTest {
protected:
    // Flips a byte in the middle of each pack that contains file data.
    void damagePacks() const {
        for (const auto& entry : fs::recursive_directory_iterator(folder_ / "repository/data"))
            if (entry.is_regular_file() && entry.file_size() > 100'000) {
                fs::permissions(entry, fs::perms::owner_write, fs::perm_options::add);
                std::fstream pack(entry.path(), std::ios::binary | std::ios::in | std::ios::out);
                pack.seekg(static_cast<std::streamoff>(entry.file_size() / 2));
                const int byte = pack.get();
                pack.seekp(static_cast<std::streamoff>(entry.file_size() / 2));
                pack.put(static_cast<char>(byte ^ 1));
            }
    }
};

TEST_F(RestoringDamagedTest, WhatADamagedPackHeldIsNamedAndReplacesNothing) {
    folder_.write("home/odd \xff/large", noise(1'600'000));
    folder_.write("home/odd \xff/: small\n", "whole");
    fs::create_hard_link(home("odd \xff/large"), home("other name"));
    fs::permissions(home("odd \xff"), fs::perms::all);
    folder_.backUp();
    for (const char* name : {"odd \xff/large", "other name"}) {
        fs::remove(home(name));
        folder_.write(std::string("home/") + name, "old");
    }
    damagePacks();
    start();
    const std::uint32_t job = restore(folder_.home(), folder_.home());
    EXPECT_EQ(queue_->status(job), restorestatus::incomplete);
    EXPECT_NE(queue_->failures(job).find("/large: "), std::string::npos) << queue_->failures(job);
    EXPECT_NE(queue_->failures(job).find("other name: "), std::string::npos) << queue_->failures(job);
    for (const char* name : {"odd \xff/large", "other name"})
        EXPECT_EQ(folder_.read(std::string("home/") + name), "old");
    queue_.reset();
    for (const std::uint64_t space : {std::uint64_t{1} << 30U, std::uint64_t{40'000}}) { // then in portions
        adjust_ = [=](RestoreQueue::Options& options) { options.freeSpace = [=](auto&) { return space; }; };
        const std::string beside = "beside " + std::to_string(space);
        folder_.write(beside + "/odd \xff/large", "somebody's own");
        fs::permissions(folder_ / (beside + "/odd \xff"), fs::perms::owner_all);
        start();
        EXPECT_EQ(queue_->status(restore(folder_.home(), folder_ / beside)), restorestatus::incomplete);
        EXPECT_EQ(folder_.read(beside + "/odd \xff/: small\n"), "whole");
        EXPECT_EQ(modeOf(folder_ / (beside + "/odd \xff")), 0700U) << "others would read what stays in it";
        queue_.reset();
    }
}

// restic's index no longer lists the pack: restic itself restores nothing of such a snapshot.
TEST_F(RestoringDamagedTest, WhatIsLostTakesNothingElseWithIt) {
    for (const char* name : {"odd \xff[1]/whole", "odd x[1]/whole", "odd \xff[1]/lost 2"})
        folder_.write(std::string("home/unread/") + name, "whole");
    folder_.backUp();
    for (const char* name : {"unread/odd \xff[1]/lost \xfe", "unread/lost", "saved again"})
        folder_.write(std::string("home/") + name, noise(1'600'000));
    folder_.backUp();
    for (const auto& entry : fs::recursive_directory_iterator(folder_ / "repository/data"))
        if (entry.is_regular_file() && entry.file_size() > 100'000)
            fs::remove(entry);
    Restic::Call call;
    call.arguments = {"rebuild-index"};
    ASSERT_TRUE(Restic(folder_.place()).run(call, StopSignal()).succeeded());
    folder_.write("home/saved again", "another version");
    folder_.backUp(home("unread"));
    start();
    const std::uint32_t job = restore(folder_.home(), folder_ / "beside");
    const std::string failures = queue_->failures(job);
    EXPECT_EQ(queue_->status(job), restorestatus::incomplete);
    for (const char* name : {"odd \xff[1]/whole", "odd x[1]/whole", "odd \xff[1]/lost 2"})
        EXPECT_EQ(folder_.read(std::string("beside/unread/") + name), "whole") << failures;
    EXPECT_EQ(folder_.read("beside/saved again"), "another version") << failures;
    EXPECT_NE(failures.find(home("unread/lost: a part of it is missing")), std::string::npos) << failures;
    EXPECT_NE(failures.find("[1]/lost \ufffdFE: a part of it is missing"), std::string::npos) << failures;
    EXPECT_FALSE(fs::exists(folder_ / "beside/unread/odd \xff[1]/lost \xfe"));
}

TEST_F(RestoringDamagedTest, AnErrorWhoseFileIsNotKnownFailsEverythingItMayBeAbout) {
    for (const char* name : {"in/a", "in/deep/b", "out"})
        folder_.write(std::string("home/") + name, "12345");
    folder_.pretendBackUp();
    // A device, which this user cannot create and the index does not contain.
    const std::string device = home("in/null: a");
    start(script("if [ $1 = ls ]; then echo '{\"struct_type\":\"node\",\"type\":\"dev\",\"path\":\"" +
                 device + "\"}'; exit; fi\necho \"ignoring error for " + device +
                 ": operation not permitted\" >&2\n" + copyScript +
                 "\necho 'Fatal: There were 1 errors' >&2; exit 1"));
    EXPECT_EQ(queue_->failures(restore(folder_.home(), folder_ / "beside")), "");
    queue_.reset();
    start(script("echo \"ignoring error for " + home("in/what?: no such blob") + "\" >&2\n" + copyScript +
                 "\necho 'Fatal: There were 1 errors' >&2; exit 1"));
    const std::uint32_t job = restore(folder_.home(), folder_ / "new");
    EXPECT_NE(queue_->failures(job).find(home("in/a: ")), std::string::npos);
    EXPECT_NE(queue_->failures(job).find(home("in/deep/b: ")), std::string::npos);
    EXPECT_FALSE(fs::exists(folder_ / "new/in/a") || fs::exists(folder_ / "new/in/deep/b"));
    EXPECT_EQ(folder_.read("new/out"), "12345");
    queue_.reset();
    fs::create_hard_link(home("in/a"), home("other name"));
    folder_.pretendBackUp();
    const std::string much = "yes \"$(printf %1000s)\" | head -c 17000000 >&2\n";
    for (const std::string& more : {std::string(), much}) {
        start(script(copyScript + ("\n" + more) + "echo 'ignoring error for " + home("in/a") +
                     ": broken\nFatal: There were 1 errors' >&2; exit 1"));
        const std::string failures = queue_->failures(restore(folder_.home(), folder_ / "newer"));
        const std::string reason =
            more.empty() ? ": broken\n" : ": restic reported too many errors to assign them to files\n";
        for (const char* name : {"in/a", "other name"})
            EXPECT_NE(failures.find(home(name) + reason), std::string::npos) << failures;
        EXPECT_EQ(failures.find(home("out") + reason) != std::string::npos, !more.empty()) << failures;
        queue_.reset();
    }
}

} // namespace
} // namespace kelvane::tests
