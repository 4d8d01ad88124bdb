#pragma once

#include "Support/Logging.h"

#include <exception>
#include <functional>
#include <string>

namespace kelvane {

// What a piece of a thread's work throws is a fault of this program, or something that no content of a home
// or repository may bring about; it ends that piece and not the daemon. `failed` is told what it was; any
// thread.
using WorkFailed = std::function<void(const std::string& reason)>;

template <class Work>
void runGuarded(const char* name, const WorkFailed& failed, Work work) {
    std::string reason;
    try {
        return work();
    } catch (const std::exception& error) {
        reason = error.what();
    } catch (...) {
        reason = "unknown exception";
    }
    KelvaneSystemLog("Internal error while %@: %@", name, reason);
    failed(reason);
}

} // namespace kelvane
