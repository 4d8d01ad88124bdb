#pragma once

#include "FakeDaemon/FakeDaemon.h"
#include "Support/Json/JsonPropertyList.h"
#include "Tests/Harness/TemporaryFolder.h"
#include "Tests/Tools/ChildProgram.h"

#include <gtest/gtest.h>
#include <memory>

namespace kelvane::tests {

// kelvanectl as a child process with private preferences, and a fake daemon at its socket.
class Kelvanectl : public testing::Test {
protected:
    using Words = std::vector<std::string>;

    void SetUp() override {
        daemon_.changeWorld([](DaemonWorld& world) {
            world.state = plist(R"({"serviceState": 8, "backedUpFileCount": 1, "backedupFileSize": 6442450944,
                                    "pendingFileCount": 2, "currentBackupFile": "/a\u001b[31m\nb",
                                    "isQuotaLimited": true, "quotaMB": 2048})");
            world.values =
                plist(R"({"userEmail": "anna@example.net", "computerNumber": 4711, "automaticMode": true})");
        });
        ASSERT_TRUE(daemon_.start());
    }

    [[nodiscard]] std::unique_ptr<ChildProgram> start(Words words, std::string_view input = {},
                                                      const std::string& output = {}) const {
        words.insert(words.begin(), KELVANECTL);
        return std::make_unique<ChildProgram>(std::move(words), environment_, input, output);
    }
    [[nodiscard]] ChildProgram::Result run(Words words, std::string_view input = {}) const {
        return start(std::move(words), input)->finish();
    }

    [[nodiscard]] static Value plist(std::string_view json) { return propertyListFromJson(json).value; }

    // Expects this status and one line on standard error that contains `reason`.
    static void expectFailure(const ChildProgram::Result& result, int status, std::string_view reason) {
        EXPECT_EQ(result.status, status) << result.errors;
        EXPECT_TRUE(result.errors.starts_with("kelvanectl: ")) << result.errors;
        EXPECT_NE(result.errors.find(reason), std::string::npos) << result.errors;
        EXPECT_EQ(result.errors.find('\n'), result.errors.size() - 1) << result.errors;
    }

    const TemporaryFolder folder_;
    const std::string socket_ = folder_ / "daemon.sock";
    std::vector<std::string> environment_{"KELVANE_DAEMON=" + socket_,
                                          "XDG_CONFIG_HOME=" + (folder_ / "config"),
                                          "XDG_RUNTIME_DIR=" + folder_.path(), "TZ=UTC"};
    FakeDaemon daemon_{socket_};
};

} // namespace kelvane::tests
