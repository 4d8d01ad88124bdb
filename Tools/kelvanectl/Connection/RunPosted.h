#pragma once

#include "Platform/PollLoop.h"

namespace kelvane::ctl {

// Runs the tasks posted to the loop so far, even after `quit`. A program also calls this as its last use of
// the loop, since a task that stays in the loop may own an object that owns the loop.
inline void runPosted(PollLoop& loop) {
    bool done = false;
    loop.post([&] {
        done = true;
        loop.quit();
    });
    while (!done)
        loop.run();
}

} // namespace kelvane::ctl
