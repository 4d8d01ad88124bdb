#include "Platform/SpecialFolders.h"
#include "Tests/Harness/EnvironmentVariable.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvane::tests {
namespace {

TEST(SpecialFolders, FollowTheEnvironmentWhereItGivesAnAbsolutePath) {
    const EnvironmentVariable home("HOME", "/home/u/");
    for (const auto& [value, folder] : {std::pair<const char*, const char*>(nullptr, "/home/u/.config"),
                                        {"", "/home/u/.config"},
                                        {"relative/folder", "/home/u/.config"},
                                        {"/else/where//", "/else/where"}}) {
        const EnvironmentVariable variable("XDG_CONFIG_HOME", value);
        EXPECT_EQ(configurationFolder(), folder);
    }
    const EnvironmentVariable none("HOME", nullptr);
    EXPECT_EQ(homeFolder().front(), '/');
}

TEST(SpecialFolders, PrivateFolderIsOursAloneOrRefused) {
    const TemporaryFolder folder;
    const std::string made = folder / "made";
    EXPECT_TRUE(ensurePrivateFolder(made));
    EXPECT_TRUE(ensurePrivateFolder(made));
    ASSERT_EQ(::symlink("made", (folder / "link").c_str()), 0);
    EXPECT_FALSE(ensurePrivateFolder(folder / "link"));
    EXPECT_FALSE(ensurePrivateFolder(folder.write("file", "")));
    ASSERT_EQ(::chmod(made.c_str(), 0710), 0);
    EXPECT_FALSE(ensurePrivateFolder(made));
    if (::geteuid() == 0) { // nobody else can give a folder away
        ASSERT_TRUE(::chmod(made.c_str(), 0700) == 0 && ::chown(made.c_str(), 65534, 65534) == 0);
        EXPECT_FALSE(ensurePrivateFolder(made));
    }
}

TEST(SpecialFolders, DaemonPathAlwaysFitsASocket) {
    const std::string shared = "/tmp/kelvane-" + std::to_string(::geteuid());
    const std::string tail = "/kelvane/daemon.sock";
    const std::string fits = '/' + std::string(103 - tail.size() - 1, 'r');
    for (const auto& [runtime, folder] : {std::pair(fits, fits), {fits + 'r', shared}, {"", shared}}) {
        const EnvironmentVariable variable("XDG_RUNTIME_DIR", runtime.c_str());
        EXPECT_EQ(defaultDaemonPath(), folder + tail);
    }
}

} // namespace
} // namespace kelvane::tests
