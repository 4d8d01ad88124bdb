#include "Tests/LocalDaemon/Restore/RestoreQueueFixture.h"

#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace kelvane::tests {
namespace {

using RestoringTest = RestoreQueueTest;

TEST_F(RestoringTest, ALinkThatIsPutInTheWayLeadsNowhereAndOneThatWasThereIsFollowed) {
    folder_.write("home/f", "secret");
    folder_.pretendBackUp();
    fs::create_directories(folder_ / "out/a/b");
    fs::create_symlink("out", folder_ / "usual way");
    start(script(std::string(copyScript) + "\nmv " + (folder_ / "out/a") + ' ' + (folder_ / "elsewhere") +
                 "; ln -s ../elsewhere " + (folder_ / "out/a")));
    const std::uint32_t job = restore(home("f"), folder_ / "usual way/a/b/f");
    EXPECT_EQ(queue_->status(job), restorestatus::incomplete);
    EXPECT_FALSE(fs::exists(folder_ / "elsewhere/b/f"));
    queue_.reset();
    start(copying());
    EXPECT_EQ(queue_->status(restore(home("f"), folder_ / "usual way/c")), restorestatus::finished);
    EXPECT_EQ(folder_.read("out/c"), "secret");
}

TEST_F(RestoringTest, ThePlaceAddsNoRightsAndMissingFoldersComeAsTheyWere) {
    folder_.write("home/d/e/f", "secret");
    folder_.write("home/d/g", "");
    ASSERT_EQ(::chmod(home("d/e/f").c_str(), 0640), 0);
    ASSERT_EQ(::chmod(home("d").c_str(), 0750), 0);
    EXPECT_EQ(::chown(home("d/e").c_str(), 4711, 4711), ::geteuid() == 0 ? 0 : -1);
    ASSERT_EQ(::setxattr(home("d/e").c_str(), "user.saved", "1", 1, 0), 0);
    for (const char* name : {"d/e", "d"})
        setTime(home(name));
    folder_.write("home/denied/f", "");
    setRule(home("denied"), "system.posix_acl_access", 0);
    folder_.write("out/denied/others", "");
    folder_.backUp();
    const std::string target = folder_ / "out/d";
    fs::create_directories(target);
    setRule(folder_ / "out", "system.posix_acl_default");
    setRule(target, "system.posix_acl_default");
    ASSERT_EQ(::setxattr(target.c_str(), "user.other", "1", 1, 0), 0);
    start();
    restore(home("d"), target);
    const auto before = picture(home("d"));
    EXPECT_EQ(picture(target), before);
    EXPECT_EQ(modeOf(target), 0750U);
    folder_.write("out/d/e/others", "");
    ASSERT_TRUE(::chmod((target + "/e").c_str(), 0707) == 0 && ::chmod(target.c_str(), 0700) == 0);
    restore(home("d"), target);
    EXPECT_EQ(modeOf(target), 0700U) << "what else is in it keeps its owner's rules";
    EXPECT_EQ(modeOf(target + "/e"), 0705U);
    ASSERT_EQ(::chmod((folder_ / "out/denied").c_str(), 0777), 0);
    restore(home("denied"), folder_ / "out/denied");
    EXPECT_EQ(modeOf(folder_ / "out/denied"), 0700U) << "somebody has no access by its ACL";
    for (const char* name : {"", "/e", "/e/f", "/g"})
        for (const char* attribute : {"system.posix_acl_access", "system.posix_acl_default", "user.other"})
            EXPECT_LT(::getxattr((target + name).c_str(), attribute, nullptr, 0), 0) << name << attribute;
    EXPECT_EQ(::getxattr((target + "/e").c_str(), "user.saved", nullptr, 0), 1);
    setRule(target, "system.posix_acl_access");
    restore(home("d"), target);
    EXPECT_EQ(modeOf(target), 0700U) << "somebody has access by its ACL";

    fs::remove_all(home("d"));
    restore(home("d/e/f"), home("d/e/f"));
    auto expected = before;
    expected.erase("/g");
    EXPECT_EQ(picture(home("d")), expected);
    EXPECT_EQ(modeOf(home("d")), 0750U);
    restore(home("d/e/f"), folder_ / "new/e/f"); // no folder in the backup
    EXPECT_EQ(modeOf(folder_ / "new"), 0700U);
    EXPECT_EQ(modeOf(folder_ / "new/e"), 0700U);
}

// More files than one call of restic can name.
TEST_F(RestoringTest, AnAccessRuleOfAFolderIsNotInheritedByWhatComesLater) {
    constexpr int count = 420;
    const auto name = [](int number) { return "d/" + std::string(240, 'n') + std::to_string(number); };
    for (int number = 0; number < count; ++number)
        folder_.write("home/" + name(number), "1");
    setRule(home("d"), "system.posix_acl_default");
    folder_.backUp();
    start();
    fs::create_directory(folder_ / "out");
    for (int number = 0; number < count; ++number)
        ASSERT_NE(add(home(name(number)), folder_ / ("out/" + std::to_string(number))), 0U);
    ASSERT_TRUE(waitFor([&] { return !ends_.empty() && reports_.back().job == 0; }));
    for (int number = 0; number < count; ++number) {
        const std::string file = folder_ / ("out/" + std::to_string(number));
        EXPECT_EQ(::getxattr(file.c_str(), "system.posix_acl_access", nullptr, 0), -1) << file;
        EXPECT_TRUE(fs::exists(file));
    }
}

// Calls `work` on a thread that the modes of files apply to, also when the tests run as root.
template <class Work>
void asOrdinaryUser(Work work) {
    std::thread([&work] {
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct sets[2]{};
        ASSERT_EQ(::syscall(SYS_capget, &header, sets), 0);
        for (const unsigned right : {CAP_DAC_OVERRIDE + 0U, CAP_FOWNER + 0U}) {
            ::prctl(PR_CAPBSET_DROP, right);
            for (std::uint32_t* const set : {&sets[0].effective, &sets[0].permitted, &sets[0].inheritable})
                *set &= ~(1U << right);
        }
        ASSERT_EQ(::syscall(SYS_capset, &header, sets), 0);
        work();
    }).join();
}

TEST_F(RestoringTest, AttributesOfWhatNobodyMayWriteComeBackAndWriteProtectedFoldersTakeThem) {
    const std::vector<std::pair<const char*, mode_t>> items{{"d/f", 0400}, {"d/g", 0},    {"d/e/f", 04555},
                                                            {"d/e", 0500}, {"d/none", 0}, {"d/rule", 0550},
                                                            {"d/r", 0440}, {"d", 0500}};
    for (const char* name : {"d/none", "d/rule"})
        fs::create_directories(home(name));
    for (const char* name : {"d/f", "d/g", "d/e/f", "d/r"})
        folder_.write(std::string("home/") + name, name);
    for (const char* name : {"d/rule", "d/r"}) // which restic sets before the others
        setRule(home(name), "system.posix_acl_access");
    for (const auto& [name, mode] : items) {
        ASSERT_EQ(::setxattr(home(name).c_str(), "user.saved", name, 2, 0), 0) << name;
        ASSERT_EQ(::chmod(home(name).c_str(), mode), 0);
        setTime(home(name));
    }
    folder_.backUp();
    const auto before = picture(home("d"));
    fs::permissions(home("d/e"), fs::perms::owner_all);
    folder_.write("home/d/e/f", "changed");
    fs::permissions(home("d/e"), fs::perms::owner_read | fs::perms::owner_exec);
    asOrdinaryUser([&] {
        start();
        restore(home("d/e/f"), home("d/e/f"));
        fs::permissions(home("d"), fs::perms::owner_all); // until it has been restored
        for (const std::string& target : {home("d"), folder_ / "out/d"}) {
            const std::uint32_t job = restore(home("d"), target);
            EXPECT_EQ(queue_->failures(job), "");
        }
        queue_.reset();
    });
    EXPECT_TRUE(ends_.front().empty()) << ends_.front().front().reason;
    for (const std::string& target : {folder_.home(), folder_ / "out"}) {
        EXPECT_EQ(picture(target + "/d"), before);
        for (const auto& [name, mode] : items) {
            EXPECT_EQ(::getxattr((target + '/' + name).c_str(), "user.saved", nullptr, 0), 2)
                << target << name;
            EXPECT_EQ(modeOf(target + '/' + name), mode) << target << name;
        }
    }
}

// Either this user may not set the owner, or restic has not restored it.
TEST_F(RestoringTest, WithoutItsOwnerAFileHasNoRightsOfItsOwnersAndGroup) {
    folder_.write("home/program", "1");
    fs::permissions(home("program"), static_cast<fs::perms>(06774));
    folder_.pretendBackUp();
    start(script(std::string(copyScript) + "\nfile=$(find $target -name program)\n"
                                           "chown 4711:4711 $file 2>/dev/null; chmod 6774 $file"));
    restore(home("program"), folder_ / "program");
    EXPECT_EQ(modeOf(folder_ / "program"), 0744U);
}

TEST_F(RestoringTest, WhatDoesNotFitComesInPortionsAndALargeFileWithItsHoles) {
    constexpr std::uint64_t space = 40'000;
    for (const char* name : {"a/1", "a/2", "a/b/3", "4"})
        folder_.write(std::string("home/") + name, noise(9'000));
    folder_.write("home/a/two\nlines", std::string(3'000'000, '\0') + "end");
    ASSERT_EQ(::setxattr(home("a/two\nlines").c_str(), "user.saved", "12345", 5, 0), 0);
    ASSERT_EQ(::chmod(home("a/two\nlines").c_str(), 04750), 0);
    fs::create_hard_link(home("a/1"), home("z"));
    fs::create_hard_link(home("a/two\nlines"), home("y"));
    ASSERT_EQ(::chmod(home("a/b").c_str(), 0555), 0);
    for (const char* name : {"a/two\nlines", "a/b", "a", ""})
        setTime(home(name));
    folder_.backUp();
    adjust_ = [](RestoreQueue::Options& options) {
        options.freeSpace = [](const std::string&) { return space; };
    };
    start();
    EXPECT_EQ(queue_->failures(restore(folder_.home(), folder_ / "out")), "");
    EXPECT_TRUE(picture(folder_ / "out") == picture(folder_.home()));
    struct stat status {};
    ASSERT_EQ(::stat((folder_ / "out/a/two\nlines").c_str(), &status), 0);
    EXPECT_LT(status.st_blocks * 512, 100'000);
    EXPECT_EQ(::getxattr((folder_ / "out/a/two\nlines").c_str(), "user.saved", nullptr, 0), 5);
    EXPECT_TRUE(fs::equivalent(folder_ / "out/a/1", folder_ / "out/z"));
    EXPECT_TRUE(fs::equivalent(folder_ / "out/a/two\nlines", folder_ / "out/y"));
    EXPECT_FALSE(hasStaging(folder_ / "out"));
}

TEST_F(RestoringTest, HolesComeBackAndNothingElseOfTheFileChanges) {
    std::string text = noise(100'000);
    text.resize(2'000'000);
    folder_.write("home/sparse", text + "end");
    ASSERT_EQ(::chmod(home("sparse").c_str(), 0400), 0);
    setTime(home("sparse"));
    folder_.pretendBackUp();
    start(copying());
    restore(folder_.home(), folder_ / "out");
    struct stat status {};
    ASSERT_EQ(::stat((folder_ / "out/sparse").c_str(), &status), 0);
    EXPECT_LT(status.st_blocks * 512, 200'000);
    EXPECT_TRUE(picture(folder_ / "out") == picture(folder_.home()));
}

TEST_F(RestoringTest, ADevicePipeOrSocketIsNotReplacedAndALongPathIsReached) {
    std::string deep = "home";
    for (int level = 0; level < 14; ++level)
        deep += '/' + std::string(200, static_cast<char>('a' + level));
    folder_.write(deep + "/f", "deep");
    folder_.write("home/pipe", "file");
    folder_.backUp();
    fs::remove(folder_ / (deep + "/f"));
    fs::remove(home("pipe"));
    ASSERT_EQ(::mkfifo(home("pipe").c_str(), 0600), 0);
    start();
    const std::uint32_t job = restore(folder_.home(), folder_.home());
    EXPECT_EQ(queue_->failures(job), home("pipe") + ": a device, pipe or socket is in its place\n");
    EXPECT_TRUE(fs::is_fifo(home("pipe")));
    EXPECT_EQ(folder_.read(deep + "/f"), "deep");
}

// Calls `work` with a new disk mounted at the folder, which only root may do.
template <class Work>
void onDisk(const char* kind, const std::string& folder, const char* options, Work work) {
    bool isMounted = false;
    std::thread([&] {
        isMounted = ::unshare(CLONE_NEWNS) == 0 &&
                    ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                    ::mount("none", folder.c_str(), kind, 0, options) == 0;
        if (isMounted)
            work();
    }).join();
    if (!isMounted)
        GTEST_SKIP() << "needs root, to mount a disk";
}

// A small disk mounted in the folder: files beside it cannot be renamed onto it.
TEST_F(RestoringTest, WhatComesToAnotherDiskIsRestoredByItselfAndOnlyWhereItFits) {
    for (const char* name : {"disk/f", "g"})
        folder_.write(std::string("home/") + name, name);
    folder_.write("home/large", noise(500'000));
    folder_.backUp();
    fs::create_directories(folder_ / "out/disk");
    onDisk("tmpfs", folder_ / "out/disk", "size=128k", [&] {
        start();
        EXPECT_EQ(queue_->failures(restore(folder_.home(), folder_ / "out")),
                  home("disk/f") +
                      ": its folder is not on the disk of the other items; restore it separately\n");
        EXPECT_EQ(folder_.read("out/g"), "g");
        EXPECT_EQ(queue_->failures(restore(home("disk/f"), folder_ / "out/disk/f")), "");
        EXPECT_EQ(folder_.read("out/disk/f"), "disk/f");
        EXPECT_EQ(queue_->failures(restore(home("large"), folder_ / "out/disk/large")),
                  home("large") + ": it cannot be written: No space left on device\n");
        EXPECT_EQ(std::distance(fs::directory_iterator(folder_ / "out/disk"), {}), 1);
        queue_.reset();
    });
}

TEST_F(RestoringTest, WhereTheDiskKeepsNoAclsWhatHadOneIsForItsOwnerAlone) {
    for (const char* name : {"d/f", "d/plain", "e/g"})
        folder_.write(std::string("home/") + name, std::string(5000, *name));
    for (const char* name : {"d/f", "e"})
        setRule(home(name), "system.posix_acl_access");
    ASSERT_EQ(::chmod(home("d/plain").c_str(), 0644), 0);
    folder_.backUp();
    fs::create_directory(folder_ / "out");
    onDisk("ramfs", folder_ / "out", "", [&] {
        for (const std::uint64_t space : {std::uint64_t{1} << 30U, std::uint64_t{4096}}) { // then streamed
            adjust_ = [&](RestoreQueue::Options& options) {
                options.freeSpace = [=](auto&) { return space; };
            };
            start();
            const std::string why =
                ": restored with access for its owner only: the target file system does not support ACLs\n";
            EXPECT_EQ(queue_->failures(restore(folder_.home(), folder_ / "out/h")),
                      home("d/f") + why + home("e") + why);
            EXPECT_EQ(modeOf(folder_ / "out/h/d/f") & 077U, 0U);
            EXPECT_EQ(modeOf(folder_ / "out/h/e") & 077U, 0U);
            EXPECT_EQ(modeOf(folder_ / "out/h/d/plain"), 0644U);
            EXPECT_EQ(folder_.read("out/h/d/f"), folder_.read("home/d/f"));
            queue_.reset();
            start(script("[ \"$1\" = cat ] && exit 1\nexec restic \"$@\""));
            const std::string target = folder_ / "out/d" + std::to_string(space);
            const std::string failures = queue_->failures(restore(home("d"), target));
            const std::string unknown =
                "restored with access for its owner only: cannot determine whether it had an ACL: ";
            EXPECT_NE(failures.find(home("d/plain") + (space > 4096 ? ": " + unknown : ": restic failed")),
                      std::string::npos)
                << failures;
            EXPECT_EQ(modeOf(target + "/plain"), space > 4096 ? 0600U : 0U);
            queue_.reset();
        }
    });
}

// Nobody but the owner may change the folder; what has a place of its own below it comes back.
TEST_F(RestoringTest, IntoAFolderOfSomebodyElseComesWhatHasAPlaceThere) {
    for (const char* name : {"a", "d/e"})
        folder_.write(std::string("home/") + name, name);
    folder_.pretendBackUp();
    const std::string out = folder_ / "out";
    fs::create_directories(out + "/d");
    if (::geteuid() != 0 || ::chown(out.c_str(), 4711, 4711) != 0)
        GTEST_SKIP() << "needs root, to give a folder to somebody else";
    asOrdinaryUser([&] {
        start(script("[ \"$1\" = cat ] && exit 1\n" + std::string(copyScript)));
        EXPECT_EQ(queue_->failures(restore(folder_.home(), out)),
                  folder_.home() +
                      ": only its owner has access: cannot determine whether it had an ACL: restic failed\n" +
                      folder_.home() + ": " + out +
                      " is accessible to users who must not see the restored files: its mode cannot be set: "
                      "Operation not permitted\n" +
                      home("a") + ": nothing can be written in " + out + '\n');
        queue_.reset();
    });
    EXPECT_EQ(folder_.read("out/d/e"), "d/e");
}

TEST_F(RestoringTest, TheJournalRemovesNothingButStagingFolders) {
    folder_.write("home/a", "1");
    folder_.pretendBackUp();
    folder_.write("documents/letter", "");
    folder_.write(".kelvane-restore-mine/letter", "");
    folder_.write("elsewhere/.kelvane-restore-1/letter", "");
    folder_.write(".kelvane-restore-1/letter", "");
    fs::create_symlink("elsewhere", folder_ / "link");
    std::string lines;
    for (const char* name : {"documents", ".kelvane-restore-mine", "link/.kelvane-restore-1"})
        lines += "staging\t" + (folder_ / name) + "\t\n";
    folder_.write("state/jobs", lines);
    start(copying());
    restore(home("a"), folder_ / "b");
    for (const char* name :
         {"documents", ".kelvane-restore-mine", ".kelvane-restore-1", "elsewhere/.kelvane-restore-1"})
        EXPECT_TRUE(fs::exists(folder_ / name + "/letter")) << name;
}

TEST_F(RestoringTest, ARestoreThatCannotBeginSaysWhy) {
    std::string said;
    const auto say = [&](const std::string& reason) { said = reason.empty() ? said : reason; };
    adjust_ = [&](auto& options) { options.onWait = options.onRefusal = options.onJobNotSaved = say; };
    start("/no/such/program"); // and the repository is not listed
    const std::uint32_t job = restore(home("a"), folder_ / "a");
    EXPECT_NE(queue_->failures(job).find("/no/such/program"), std::string::npos) << queue_->failures(job);
    EXPECT_NE(said, "");
    queue_.reset();
    fs::remove_all(folder_ / "state");
    folder_.write("state", "no folder"); // like a disk that cannot be written
    folder_.write("home/a", "1");
    folder_.pretendBackUp();
    start(copying());
    EXPECT_EQ(queue_->failures(restore(home("a"), folder_ / "b")), "");
    EXPECT_EQ(folder_.read("b"), "1");
    EXPECT_EQ(said, folder_ / "state/jobs" + " cannot be written: Not a directory");
    EXPECT_EQ(add(home("a"), folder_ / "b/../a"), 0U);
    EXPECT_EQ(queue_->failures(0), said + '\n');
}

} // namespace
} // namespace kelvane::tests
