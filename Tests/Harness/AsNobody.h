#pragma once

#include "Tests/Harness/TemporaryFolder.h"

#include <unistd.h>

namespace kelvane::tests {

// Runs a test started by root with the rights of nobody while it lives, so that a write outside the test's
// folder, which is given to nobody, fails. No effect for other users.
class AsNobody {
public:
    explicit AsNobody(const TemporaryFolder& folder) {
        if (::geteuid() != 0)
            return;
        isRoot_ = ::chown(folder.path().c_str(), nobody, nobody) == 0 && ::seteuid(nobody) == 0;
        if (!isRoot_)
            throw std::runtime_error("cannot become nobody");
    }
    ~AsNobody() {
        if (isRoot_ && ::seteuid(0) != 0)
            std::abort();
    }
    AsNobody(const AsNobody&) = delete;
    AsNobody& operator=(const AsNobody&) = delete;

private:
    static constexpr uid_t nobody = 65534;
    bool isRoot_ = false;
};

} // namespace kelvane::tests
