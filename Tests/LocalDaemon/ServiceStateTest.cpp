#include "LocalDaemon/DaemonState.h"

#include <gtest/gtest.h>

namespace kelvane {
namespace {

TEST(ServiceState, SaysTheFirstReasonThatHolds) {
    const struct {
        ServiceConditions conditions; // enabled, paused, recovering, over quota, scanning, pending
        ServiceState expected;
    } cases[] = {
        {{false, true, true, true, true, true}, ServiceState::Disabled},
        {{true, true, true, true, true, true}, ServiceState::Paused},
        {{true, false, true, true, true, true}, ServiceState::RecoverMode},
        {{true, false, false, true, true, true}, ServiceState::OverQuota},
        {{true, false, false, false, true, true}, ServiceState::Scanning},
        {{true, false, false, false, false, true}, ServiceState::BackupPending},
        {{true, false, false, false, false, false}, ServiceState::Idle},
    };
    for (const auto& [conditions, expected] : cases)
        EXPECT_EQ(serviceStateFor(conditions), expected);
}

struct Told : DaemonObserver {
    void stateChanged(std::uint32_t code) override { states.push_back(code); }
    void alertRaised(const std::string&) override {}
    void filesChanged(const std::vector<std::string>&) override {}
    std::vector<std::uint32_t> states;
};

class State : public ::testing::Test {
protected:
    State() { state.setObserver(told); }

    static ScanReport report(std::uint64_t count, std::uint64_t bytes, bool isScanning = false) {
        ScanReport result;
        result.totals = {count, bytes};
        result.isScanning = isScanning;
        return result;
    }

    const std::shared_ptr<Told> told = std::make_shared<Told>();
    DaemonState state{Configuration{"localhost", "", 1, 2}, Settings(), std::make_unique<NothingBackedUp>(),
                      [](const Settings&, std::uint64_t) { return std::string(); },
                      std::chrono::system_clock::now};
};

TEST_F(State, SaysNothingOfCountsBeforeTheScanHasSeenAny) {
    EXPECT_EQ(state.serviceState(), 7U);
    for (const char* key : {"backedUpFileCount", "backedupFileSize", "pendingFileCount", "pendingFileSize"})
        EXPECT_TRUE(state.stateDictionary()[key].isAbsent()) << key;
    state.takeReport(report(5'000'000'000, 1U << 20U, true));
    EXPECT_EQ(state.stateDictionary()["pendingFileCount"], 0xFFFFFFFFU); // more than the number can say
    EXPECT_EQ(state.stateDictionary()["pendingFileSize"], 1U << 20U);
    EXPECT_EQ(told->states, std::vector<std::uint32_t>());
    state.takeReport(report(0, 0));
    EXPECT_FALSE(state.stateDictionary()["isBackupNeeded"].boolValue());
    EXPECT_EQ(told->states, std::vector<std::uint32_t>{8});
}

TEST_F(State, IsOverItsQuotaByTheByteAndByTheTestingFlag) {
    constexpr std::uint64_t quota = 2U << 20U;
    const auto isOver = [this] { return state.stateDictionary()["isOverQuota"].boolValue(); };
    state.takeReport(report(1, quota));
    EXPECT_FALSE(isOver());
    state.takeReport(report(1, quota + 1));
    EXPECT_TRUE(isOver());
    EXPECT_EQ(state.stateDictionary()["statusString"], "Account over quota");
    state.setOverQuotaForTesting(false);
    EXPECT_FALSE(isOver());
    state.setOverQuotaForTesting(std::nullopt);
    EXPECT_TRUE(isOver());
    EXPECT_EQ(told->states, (std::vector<std::uint32_t>{5, 17, 5, 17}));
}

TEST_F(State, KeepsAStateThatIsSetUntilItsOwnIsAnother) {
    state.takeReport(report(1, 1));
    state.overrideServiceState(24);
    state.takeReport(report(2, 2));
    EXPECT_EQ(state.serviceState(), 24U);
    state.setPausedMinutes(1);
    EXPECT_EQ(state.serviceState(), 13U);
    state.setPausedMinutes(0);
    EXPECT_EQ(state.serviceState(), 5U);
    state.overrideServiceState(20);
    state.overrideServiceState(0);
    EXPECT_EQ(told->states, (std::vector<std::uint32_t>{5, 24, 13, 5, 20, 5}));
    // Panes take these two for the progress of a restore.
    state.overrideServiceState(15);
    state.overrideServiceState(16);
    EXPECT_EQ(state.serviceState(), 16U);
    EXPECT_EQ(told->states.size(), 6U);
}

TEST(CallbackQueue, KeepsWhatASlowPaneIsToBeToldSmall) {
    CallbackQueue queue("/everything");
    queue.stateChanged(1);
    queue.setStateHandler(true);
    for (const std::uint32_t state : {5U, 7U, 5U})
        queue.stateChanged(state);
    queue.filesChanged({"/a", "/b", "/a"});
    const auto batch = queue.take();
    ASSERT_TRUE(batch);
    EXPECT_EQ(batch->states, (std::vector<std::uint32_t>{7, 5}));
    EXPECT_EQ(batch->files, (std::vector<std::string>{"/a", "/b"}));

    for (std::uint32_t number = 0; number < 5000; ++number) {
        queue.stateChanged(number);
        queue.filesChanged({"/" + std::to_string(number)});
    }
    const auto large = queue.take();
    ASSERT_TRUE(large);
    EXPECT_EQ(large->states.back(), 4999U);
    EXPECT_LT(large->states.size(), 100U);
    EXPECT_EQ(large->files, std::vector<std::string>{"/everything"});
    queue.filesChanged({"/a"});
    EXPECT_EQ(queue.take()->files, std::vector<std::string>{"/a"});
}

TEST(AlertString, EscapesItsSeparator) {
    EXPECT_EQ(alertString({"kind", "error", "a|b", "c"}), "kind|error|||a&#124b|c");
}

} // namespace
} // namespace kelvane
