#pragma once

#include "Common/KelvProxy.h"

#include <memory>
#include <mutex>

namespace kelvane::ctl {

// Lets another thread close the connection during a call that blocks the main thread. The proxy is not
// owned.
class LinkBreaker {
public:
    void setProxy(std::weak_ptr<KelvaneProxy> proxy) {
        const std::scoped_lock guard(mutex_);
        proxy_.swap(proxy);
    }

    // May be called on any thread. The blocked call returns 0 or nothing; no delegate is notified.
    void breakLink() {
        std::shared_ptr<KelvaneProxy> proxy;
        {
            const std::scoped_lock guard(mutex_);
            proxy = proxy_.lock();
        }
        if (!proxy)
            return;
        proxy->setSocket(nullptr); // Also ends a blocked write.
        proxy->close();
    }

private:
    std::mutex mutex_;
    std::weak_ptr<KelvaneProxy> proxy_;
};

} // namespace kelvane::ctl
