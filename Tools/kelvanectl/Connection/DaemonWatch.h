#pragma once

#include "Common/ClientTarget.h"
#include "PreferencePane/Link/BackupState.h"
#include "Tools/kelvanectl/Connection/LinkBreaker.h"
#include "Tools/kelvanectl/Output/EventWriter.h"

#include <memory>

namespace kelvane::ctl {

// Turns the daemon's callbacks and connection changes into events: each connection and each loss once,
// each change of the state dictionary, and each callback with its arguments. Reconnects for ever.
//
// On the main thread. `begin` must be called once it is in a shared_ptr, `end` before it is destroyed.
class DaemonWatch : public ClientTarget, public std::enable_shared_from_this<DaemonWatch> {
public:
    DaemonWatch(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<const Bundle> bundle, EventWriter& events,
                LinkBreaker& breaker);

    void begin();
    // An open connection ends without an event.
    void end();
    // For a daemon that does not answer: the loss is an event with this reason.
    void reconnect(const std::string& reason);
    [[nodiscard]] bool wasEverConnected() const { return wasEverConnected_; }

    void fileChanged(const Value& path) override { called("fileChanged:", path); }
    void filesChanged(const Value& paths) override { called("filesChanged:", paths); }
    void folderChanged(const Value& path) override { called("folderChanged:", path); }
    void foldersChanged(const Value& paths) override { called("foldersChanged:", paths); }
    void stateChanged(std::uint32_t state) override { called("stateChanged:", state); }
    void statesChanged(const Value& states) override { called("statesChanged:", states); }
    void setAlertString(const Value& alert) override { called("setAlertString:", alert); }
    void setAlertStrings(const Value& alerts) override { called("setAlertStrings:", alerts); }

private:
    void connectionChanged();
    void stateChanged(const Value& state);
    void called(std::string_view selector, const Value& argument);

    const std::shared_ptr<const Bundle> bundle_;
    const std::shared_ptr<NotificationCenter> notifications_ = std::make_shared<NotificationCenter>();
    EventWriter& events_;
    LinkBreaker& breaker_;
    BackupState state_;
    NotificationCenter::Observer connectionObserver_;
    NotificationCenter::Observer stateObserver_;
    bool connected_ = false; // As last written.
    bool wasEverConnected_ = false;
    Value lastState_;
    std::string lossReason_;
};

} // namespace kelvane::ctl
