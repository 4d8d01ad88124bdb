// The file of the restore jobs, and how much of it is kept.

#include "Support/Logging.h"
#include "Tests/Harness/AsNobody.h"
#include "Tests/LocalDaemon/Restore/RestoreQueueFixture.h"

#include <csignal>
#include <sys/resource.h>

namespace kelvane::tests {
namespace {

using RestoreJournalTest = RestoreQueueTest;

TEST_F(RestoreJournalTest, NoNoteIsLostToADamagedFileToADiskThatIsAwayOrToTidyingUp) {
    const std::string path = folder_ / "state/jobs";
    const std::string staging = folder_ / "disk/.kelvane-restore-9";
    folder_.write("home/a", "1");
    folder_.pretendBackUp();
    folder_.write("state/elsewhere", "job\t7\t0\t50\t/a\t/b\t\n");
    fs::create_symlink("elsewhere", path); // refused
    {
        RestoreJournal journal(path);
        EXPECT_TRUE(journal.open().waiting.empty());
        EXPECT_EQ(folder_.read("state/jobs.damaged"), "job\t7\t0\t50\t/a\t/b\t\n");
        EXPECT_EQ(journal.add({3, 0, 50, "/a", "/b"}), "");
        journal.end(3, {restorestatus::incomplete, {"why"}});
        journal.stagingMade(staging);
        const std::string longName = '/' + std::string(100'000, 'x');
        for (int round = 0; round < 20; ++round) {
            journal.stagingMade(longName);
            journal.stagingGone(longName);
        }
        EXPECT_LT(fs::file_size(path), 2'000'000U);
    }
    start(copying());
    EXPECT_EQ(queue_->failures(3), "why\n");
    restore("/any", "/any");
    queue_.reset(); // the disk was not mounted
    fs::create_directories(staging);
    start(copying());
    restore("/any", "/any");
    EXPECT_FALSE(fs::exists(staging));
    queue_.reset();
    EXPECT_TRUE(RestoreJournal(path).open().stagingFolders.empty());
}

TEST_F(RestoreJournalTest, OfADamagedJournalOnlyWholeLinesCountAndItIsTold) {
    const std::string path = folder_ / "state/jobs";
    fs::create_directories(folder_ / "state");
    {
        RestoreJournal journal(path);
        static_cast<void>(journal.open());
        for (const std::uint32_t id : {1U, 2U})
            EXPECT_EQ(journal.add({id, 0, 50, "/a", "/out1"}), "");
    }
    std::string text = folder_.read("state/jobs");
    text[text.find("out1") + 3] = '9';
    const std::string old = "job\t7\t0\t50\t/a\t/b\t\n";
    const struct {
        std::string text;
        std::size_t waiting;
        bool isDamaged;
    } cases[] = {{text, 1, true},
                 {old, 1, false},
                 {old + "job\t8\t0\t50\trel/a\t/b\t\n", 0, true},
                 {old + "staging\t/a/../b\t\n", 0, true},
                 {old + "job\t8", 1, true},
                 {std::string(5000, '\0'), 0, true}};
    for (const auto& each : cases) {
        folder_.write("state/jobs", each.text);
        const RestoreJournal::Contents contents = RestoreJournal(path).open();
        EXPECT_EQ(contents.waiting.size(), each.waiting) << each.text;
        EXPECT_EQ(!contents.damage.empty(), each.isDamaged) << each.text;
        EXPECT_EQ(RestoreJournal(path).open().damage, "");
        EXPECT_EQ(folder_.read("state/jobs.damaged") == each.text, each.isDamaged);
    }
    EXPECT_NE(stagingPlaceFor("rel/a", false).folder, "rel"); // and terminates
}

TEST_F(RestoreJournalTest, TheJournalKeepsNamesWholeAndALimitedNumberOfEnds) {
    const std::string path = folder_ / "state/jobs";
    std::vector<std::string> said;
    const LogSinkToken log = setLogSink([&said](const LogEntry& entry) { said.push_back(entry.text); });
    const RestoreJob odd{.id = 1, .version = 2, .priority = 3, .source = "/a\n\t%41\xff", .target = "/b"};
    const RestoreJob unsaved{
        .id = 2, .priority = 50, .source = "/" + std::string(3000, 'x'), .target = "/unsaved"};
    const AsNobody nobody(folder_);
    fs::create_directories(folder_ / "state");
    fs::permissions(folder_ / "state", static_cast<fs::perms>(0555));
    RestoreJournal journal(path);
    EXPECT_EQ(journal.open().damage, "");
    EXPECT_EQ(journal.add(odd), path + " cannot be written: Permission denied");
    EXPECT_TRUE(said.at(0).starts_with("The restore journal cannot be written: "));
    fs::permissions(folder_ / "state", fs::perms::owner_all); // as when a full disk has space again
    EXPECT_EQ(journal.add(odd), "");
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit small{fs::file_size(path) + 1000, limit.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    EXPECT_EQ(journal.add(unsaved), path + " cannot be written: No space left on device");
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    for (std::uint32_t id = 10; id <= 1010; ++id)
        journal.end(id, {restorestatus::finished, {}});
    const RestoreJournal::Contents contents = RestoreJournal(path).open();
    EXPECT_EQ(contents.damage, "");
    EXPECT_EQ(contents.waiting, std::vector<RestoreJob>{odd});
    EXPECT_EQ(contents.ended.size(), 1000U);
    EXPECT_EQ(contents.ended.begin()->first, 11U);

    RestoreJournal damaged(path);
    EXPECT_EQ(damaged.open().damage, "");
    std::ofstream(path, std::ios::app) << "job\t5\n";
    said.clear();
    for (int number = 0; number < 15; ++number)
        damaged.stagingMade('/' + std::string(100'000, 'x') + std::to_string(number));
    EXPECT_EQ(said, std::vector<std::string>{"The restore journal cannot be rewritten: damaged lines: 1"});
    const auto failures = RestoreJournal::Ended::with(std::vector<RestoreFailure>(1002)).failures;
    EXPECT_EQ(failures.size(), 1001U);
    EXPECT_EQ(failures.back(), "and 2 more");
}

TEST_F(RestoreJournalTest, RefusesMoreJobsThanItsMemoryIsFor) {
    std::string lines;
    for (int id = 1; id <= 20'000; ++id)
        lines += "job\t" + std::to_string(id) + "\t0\t50\t/a\t/b\t\n";
    folder_.write("state/jobs", lines);
    adjust_ = [](RestoreQueue::Options& options) { options.waits = {}; };
    start();
    EXPECT_EQ(add("/a", "/b"), 0U);
    EXPECT_EQ(queue_->failures(0), "/a cannot be restored: there are too many restore jobs\n");
    EXPECT_EQ(queue_->status(20'000), restorestatus::waiting);
}

TEST_F(RestoreJournalTest, WhatFailedOfManyJobsIsDroppedBeforeItTakesTheMemory) {
    folder_.write("home/a", "1");
    folder_.pretendBackUp();
    {
        RestoreJournal journal(folder_ / "state/jobs");
        static_cast<void>(journal.open());
        for (std::uint32_t id = 1; id < 4; ++id)
            journal.end(id, {restorestatus::incomplete, {std::string(6U << 20U, 'x'), "y"}});
    }
    start(copying());
    EXPECT_EQ(queue_->status(1), restorestatus::incomplete);
    EXPECT_EQ(queue_->failures(1), "the log lists the failures\n");
    EXPECT_GT(queue_->failures(2).size(), 6U << 20U);
}

} // namespace
} // namespace kelvane::tests
