#pragma once

#include "Common/Invocation.h"

namespace kelvane {

// A pane as the daemon sees it; derive from it to receive the daemon's calls. They arrive on the thread that
// the proxy was configured for, which in a pane is the main thread.
class ClientTarget : public InvocationTarget {
public:
    virtual void fileChanged(const Value& path) = 0;
    virtual void filesChanged(const Value& paths) = 0;
    virtual void folderChanged(const Value& path) = 0;
    virtual void foldersChanged(const Value& paths) = 0;
    virtual void stateChanged(std::uint32_t state) = 0;
    virtual void statesChanged(const Value& states) = 0;
    virtual void setAlertString(const Value& alert) = 0;
    virtual void setAlertStrings(const Value& alerts) = 0;

    [[nodiscard]] Protocol methods() const final;
    void invoke(Invocation& invocation) final;
};

} // namespace kelvane
