#pragma once

#include "Platform/FileDescriptor.h"
#include "Platform/SystemCallFilter.h"

#include <functional>
#include <string>

namespace kelvane {

// Tells of each extended attribute that a child process, or what it starts, is about to set by a path: what a
// disk does not keep a program may leave out without a word. The child waits for `takeNext`, so whoever runs
// it polls the descriptor. Belongs to one thread.
class AttributeWatch {
public:
    using Take = std::function<void(const std::string& path, const std::string& name)>;

    // Before the fork. False: nothing is watched.
    [[nodiscard]] bool prepare();
    // In the child, between fork and exec, after what else filters its calls. False with errno: it must not
    // go on.
    [[nodiscard]] bool beginInChild();
    // In the parent, after the fork; waits for the child.
    void begin();

    [[nodiscard]] int descriptor() const { return listener_.get(); } // readable when something waits; or -1
    void takeNext(const Take& take);
    // Whether all has been told so far.
    [[nodiscard]] bool isComplete() const { return isComplete_; }

private:
    SystemCallFilter filter_;
    FileDescriptor parents_; // sockets, through which the listener comes
    FileDescriptor childs_;
    FileDescriptor listener_;
    bool isComplete_ = false;
};

} // namespace kelvane
