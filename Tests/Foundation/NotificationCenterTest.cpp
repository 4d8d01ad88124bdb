#include "Foundation/NotificationCenter.h"

#include <gtest/gtest.h>
#include <optional>
#include <stdexcept>

namespace kelvane::tests {
namespace {

class NotificationCenterTest : public testing::Test {
protected:
    NotificationCenter::Observer observe(const std::string& name, const void* sender,
                                         const std::string& mark) {
        return center_->observe(name, sender, [this, mark](const Notification&) { heard_ += mark; });
    }
    std::string heardAfter(std::string_view name, const void* sender = nullptr) {
        heard_.clear();
        center_->post(name, sender);
        return heard_;
    }

    std::optional<NotificationCenter> center_{std::in_place};
    std::string heard_;
};

TEST_F(NotificationCenterTest, TellsObserversOfTheNameAndSenderInTheOrderOfRegistration) {
    const int one = 1;
    const int other = 2;
    const auto a = observe("changed", nullptr, "a");
    const auto b = observe("closed", nullptr, "b");
    const auto c = observe("changed", &one, "c");
    const auto d = observe("changed", &other, "d");
    const auto e = observe("changed", nullptr, "e");
    EXPECT_EQ(heardAfter("changed", &one), "ace");
    EXPECT_EQ(heardAfter("changed", &other), "ade");
    EXPECT_EQ(heardAfter("changed"), "ae");
    EXPECT_EQ(heardAfter("closed", &one), "b");
    EXPECT_EQ(heardAfter("change"), "");
}

TEST_F(NotificationCenterTest, HandsOverWhatWasPosted) {
    const int sender = 0;
    const auto observer = center_->observe("changed", nullptr, [&](const Notification& notification) {
        EXPECT_EQ(notification.name, "changed");
        EXPECT_EQ(notification.sender, &sender);
        heard_ = notification.userInfo["key"].stringValue();
    });
    center_->post("changed", &sender, Dictionary{{"key", "value"}});
    EXPECT_EQ(heard_, "value");
}

TEST_F(NotificationCenterTest, ForgetsAnObserverWhoseTokenDies) {
    auto a = observe("changed", nullptr, "a");
    {
        const auto b = observe("changed", nullptr, "b");
        EXPECT_EQ(heardAfter("changed"), "ab");
    }
    EXPECT_EQ(heardAfter("changed"), "a");
    a = observe("changed", nullptr, "c");
    EXPECT_EQ(heardAfter("changed"), "c");
}

TEST_F(NotificationCenterTest, LetsObserversComeAndGoDuringAPost) {
    NotificationCenter::Observer own;
    NotificationCenter::Observer later;
    NotificationCenter::Observer added;
    own = center_->observe("changed", nullptr, [&](const Notification&) {
        own = {};
        later = {};
        added = observe("changed", nullptr, "n");
        heard_ += "o"; // its own capture is still there
    });
    later = observe("changed", nullptr, "l");
    const auto last = observe("changed", nullptr, "z");
    EXPECT_EQ(heardAfter("changed"), "oz");
    EXPECT_EQ(heardAfter("changed"), "zn");
}

TEST_F(NotificationCenterTest, PostsInsideAPost) {
    const auto outer = center_->observe("outer", nullptr, [&](const Notification&) {
        heard_ += "(";
        center_->post("inner", nullptr);
        heard_ += ")";
    });
    const auto inner = observe("inner", nullptr, "i");
    const auto last = observe("outer", nullptr, "z");
    EXPECT_EQ(heardAfter("outer"), "(i)z");
}

TEST_F(NotificationCenterTest, MayDieBeforeATokenAndDuringAPost) {
    const auto first = center_->observe("changed", nullptr, [&](const Notification&) { center_.reset(); });
    const auto second = observe("changed", nullptr, "b");
    center_->post("changed", nullptr);
    EXPECT_FALSE(center_);
    EXPECT_EQ(heard_, "b");
}

TEST_F(NotificationCenterTest, LeavesAPostAtAnExceptionAndGoesOnAfterwards) {
    auto failing =
        center_->observe("changed", nullptr, [](const Notification&) { throw std::runtime_error("no"); });
    const auto last = observe("changed", nullptr, "z");
    EXPECT_THROW(center_->post("changed", nullptr), std::runtime_error);
    failing = {};
    EXPECT_EQ(heardAfter("changed"), "z");
}

} // namespace
} // namespace kelvane::tests
