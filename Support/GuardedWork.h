#pragma once

#include "Support/Logging.h"

#include <exception>
#include <functional>
#include <string>

namespace kelvane {

// Runs `work` and catches its exceptions. They are faults of this program, which must end one piece of work
// and not the daemon. Each is logged, and its text is passed to `failed` on the same thread. May be called
// from any thread.
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
    logError("Internal error while %@: %@", name, reason);
    failed(reason);
}

} // namespace kelvane
