#pragma once

#include "Platform/PollLoop.h"

namespace kelvane::ctl {

// Runs the tasks posted to the loop so far, even after `quit`. Also the last use of a loop in a program,
// since a remaining task may own the object that owns the loop.
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
