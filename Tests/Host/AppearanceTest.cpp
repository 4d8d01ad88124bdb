#include "Host/Appearance.h"
#include "Tests/Desktop/FakeService.h"
#include "Tests/Harness/RunUntil.h"

#include <QApplication>
#include <QDBusVariant>
#include <QPalette>
#include <QStyle>
#include <gtest/gtest.h>

namespace kelvane::host {
namespace {

bool isDark() {
    return QApplication::palette().color(QPalette::Window).lightness() < 128;
}

TEST(Appearance, FollowsTheDesktopAndReadsWellInBothShades) {
    const char* const address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    ASSERT_NE(address, nullptr) << "needs a session bus";
    const auto twice = [](uint scheme) {
        return QVariant::fromValue(QDBusVariant(QVariant::fromValue(QDBusVariant(scheme))));
    };
    tests::FakeService portal(
        "org.freedesktop.portal.Desktop",
        [&](const QDBusMessage& call) { return call.createReply(twice(1)); }, address);
    const QPalette own = QApplication::palette();
    applyAppearance(Appearance::System);
    EXPECT_TRUE(tests::runUntil([] { return isDark(); }));
    const auto change = [&](const char* key, const QVariant& value) {
        portal.emitSignal("/org/freedesktop/portal/desktop", "org.freedesktop.portal.Settings",
                          "SettingChanged", {"org.freedesktop.appearance", key, value});
    };
    change("color-scheme", QVariant::fromValue(QDBusVariant(0U)));
    EXPECT_TRUE(tests::runUntil([] { return !isDark(); }));
    EXPECT_EQ(QApplication::palette(), own);
    change("contrast", QVariant::fromValue(QDBusVariant(1U)));
    change("color-scheme", QVariant::fromValue(QDBusVariant("dark")));
    change("color-scheme", QVariant::fromValue(QDBusVariant(1U)));
    EXPECT_TRUE(tests::runUntil([] { return isDark(); }));

    for (const Appearance appearance : {Appearance::Light, Appearance::Dark}) {
        applyAppearance(appearance);
        const QPalette palette = QApplication::palette();
        for (const auto& [text, ground] : {std::pair(QPalette::WindowText, QPalette::Window),
                                           {QPalette::Text, QPalette::Base},
                                           {QPalette::ButtonText, QPalette::Button},
                                           {QPalette::HighlightedText, QPalette::Highlight},
                                           {QPalette::Link, QPalette::Window}}) {
            const int distance = palette.color(text).lightness() - palette.color(ground).lightness();
            EXPECT_GT(std::abs(distance), 80) << text;
        }
    }
    QApplication::setPalette(own);
}

} // namespace
} // namespace kelvane::host
