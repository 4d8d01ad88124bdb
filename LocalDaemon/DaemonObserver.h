#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kelvane {

// Hears what panes are to be told. Called with the state's mutex held, so it takes note and returns, and
// neither sends nor calls back.
class DaemonObserver {
public:
    virtual ~DaemonObserver() = default;
    virtual void stateChanged(std::uint32_t code) = 0;
    virtual void alertRaised(const std::string& alert) = 0;
    // Real paths; "/" alone stands for everything.
    virtual void filesChanged(const std::vector<std::string>& paths) = 0;
    virtual void foldersChanged(const std::vector<std::string>& paths) = 0;
};

} // namespace kelvane
