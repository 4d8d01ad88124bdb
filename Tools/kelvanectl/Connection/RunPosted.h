#pragma once

#include "Platform/PollLoop.h"

namespace kelvane::ctl {

// Runs what has been posted to the loop until now, whatever `quit` came before. The last thing that a program
// does with its loop, too: a task that is left over may hold what holds the loop.
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
