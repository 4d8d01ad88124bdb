#include "Foundation/NotificationCenter.h"

#include <gtest/gtest.h>
#include <optional>

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

TEST_F(NotificationCenterTest, TellsLivingObserversOfTheNameAndSenderInTheOrderOfRegistration) {
    const int one = 1;
    const int other = 2;
    auto a = observe("changed", nullptr, "a");
    const auto b = observe("closed", nullptr, "b");
    const auto c = observe("changed", &one, "c");
    const auto d = observe("changed", &other, "d");
    const auto e = center_->observe("changed", nullptr, [&](const Notification& notification) {
        EXPECT_EQ(notification.name, "changed");
        heard_ += notification.sender == &one ? "1" : "e";
        heard_ += notification.userInfo["key"].stringValue();
    });
    EXPECT_EQ(heardAfter("changed", &one), "ac1");
    EXPECT_EQ(heardAfter("changed", &other), "ade");
    EXPECT_EQ(heardAfter("changed"), "ae");
    EXPECT_EQ(heardAfter("closed", &one), "b");
    EXPECT_EQ(heardAfter("change"), "");
    a = observe("changed", nullptr, "A"); // its token is replaced by a later one
    heard_.clear();
    center_->post("changed", &one, Dictionary{{"key", "value"}});
    EXPECT_EQ(heard_, "c1valueA");
}

TEST_F(NotificationCenterTest, LetsObserversComeAndGoAndPostDuringAPost) {
    NotificationCenter::Observer own, later, added;
    const auto inner = observe("inner", nullptr, "i");
    own = center_->observe("changed", nullptr, [&](const Notification&) {
        own = {};
        later = {};
        added = observe("changed", nullptr, "n");
        center_->post("inner", nullptr);
        heard_ += "o"; // its capture still exists
    });
    later = observe("changed", nullptr, "l");
    const auto last = observe("changed", nullptr, "z");
    EXPECT_EQ(heardAfter("changed"), "ioz");
    EXPECT_EQ(heardAfter("changed"), "zn");
}

} // namespace
} // namespace kelvane::tests
