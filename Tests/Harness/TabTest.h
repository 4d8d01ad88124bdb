#pragma once

#include "FakeDaemon/FakeDaemon.h"
#include "Tests/Harness/EnvironmentVariable.h"
#include "Tests/Harness/PaneDouble.h"
#include "Tests/Harness/RunUntil.h"
#include "Tests/Harness/TemporaryFolder.h"

#include <QAbstractButton>
#include <QMessageBox>
#include <QPointer>
#include <QTest>
#include <gtest/gtest.h>

namespace kelvane::tests {

using namespace std::chrono_literals;
using Strings = std::vector<std::string>;

// A tab with a fake daemon, a private folder and preferences. The derived class owns the pane and the tab,
// passes the link's notifications to the tab as the real pane does, and ends the pane's state before it
// destroys the tab.
class TabTest : public testing::Test {
protected:
    explicit TabTest(DaemonWorld world = {}) : daemon(folder / "daemon.sock", std::move(world)) {}
    ~TabTest() override {
        daemon.stop();
        EXPECT_TRUE(loop->runUntil([] { return KelvaneSocket::liveThreads() == 0; }));
        loop->runPosted();
    }
    // Gives the pane its link, without starting it.
    void attach(PaneDouble& attached) {
        pane_ = &attached;
        attached.state =
            std::make_shared<BackupState>(attached.mainLoop(), attached.notifications(), attached.bundle());
        attached.state->setWantsStateChangedNotifications();
    }
    void observe(std::string_view name, const std::function<void()>& heard) {
        observers_.push_back(pane_->notifications()->observe(name, pane_->state.get(),
                                                             [heard](const Notification&) { heard(); }));
    }
    // The widget that contains all controls of the tab.
    [[nodiscard]] virtual const QWidget& shown() const = 0;

    void connect() {
        ASSERT_TRUE(daemon.start());
        pane_->state->onBegin();
        ASSERT_TRUE(pane_->connected());
        ASSERT_TRUE(daemon.waitForPanes(1));
    }
    void waitForLoss() {
        ASSERT_TRUE(loop->runUntil([this] { return !pane_->connected(); }));
    }
    void loseDaemon() {
        daemon.stop();
        waitForLoss();
    }
    void poll() { loop->advance(2s); }
    void setState(std::string_view key, const Value& value) {
        daemon.setState(key, value);
        poll();
    }

    // Finds a control by its name in the form.
    template <class Control = QWidget>
    [[nodiscard]] Control& control(const char* name) const {
        auto* const found = shown().findChild<Control*>(name);
        if (found == nullptr)
            throw std::runtime_error(std::string("no ") + name);
        return *found;
    }
    void click(const char* name) const {
        QWidget& clicked = control(name);
        QTest::mouseClick(&clicked, Qt::LeftButton, {}, {10, clicked.height() / 2});
    }
    // The text of a control; a placeholder in brackets.
    [[nodiscard]] std::string text(const char* name) const {
        const QString text = control(name).property("text").toString();
        const QVariant placeholder = control(name).property("placeholderText");
        return (text.isEmpty() && placeholder.isValid() ? '[' + placeholder.toString() + ']' : text)
            .toStdString();
    }
    [[nodiscard]] QMessageBox* sheet() const { return shown().findChild<QMessageBox*>(); }
    [[nodiscard]] QAbstractButton& sheetButton(const char* text) const {
        for (QAbstractButton* const button : sheet()->buttons())
            if (button->text().remove('&') == text)
                return *button;
        throw std::runtime_error(std::string("no button ") + text);
    }
    // Presses the sheet's button and waits until everything is done.
    void answer(const char* button) const {
        const QPointer<QMessageBox> answered = sheet();
        ASSERT_TRUE(answered);
        sheetButton(button).click();
        ASSERT_TRUE(runUntil([&] { return !answered; })) << button;
        QCoreApplication::processEvents();
    }

    const TemporaryFolder folder;
    const EnvironmentVariable preferences{"XDG_CONFIG_HOME", folder.path().c_str()};
    const std::shared_ptr<ManualLoop> loop = std::make_shared<ManualLoop>();
    FakeDaemon daemon;

private:
    PaneDouble* pane_ = nullptr;
    std::vector<NotificationCenter::Observer> observers_;
};

} // namespace kelvane::tests
