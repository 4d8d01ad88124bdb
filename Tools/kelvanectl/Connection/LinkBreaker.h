#pragma once

#include "Common/KelvProxy.h"

#include <memory>
#include <mutex>

namespace kelvane::ctl {

// Lets another thread end the link under a call in which the main thread waits. The proxy is not owned.
class LinkBreaker {
public:
    void setProxy(std::weak_ptr<KelvaneProxy> proxy) {
        const std::scoped_lock guard(mutex_);
        proxy_.swap(proxy);
    }

    // From any thread. The call answers 0 or nothing; nobody else hears of it.
    void breakLink() {
        std::shared_ptr<KelvaneProxy> proxy;
        {
            const std::scoped_lock guard(mutex_);
            proxy = proxy_.lock();
        }
        if (!proxy)
            return;
        proxy->setSocket(nullptr); // also ends a write that finds no room
        proxy->close();
    }

private:
    std::mutex mutex_;
    std::weak_ptr<KelvaneProxy> proxy_;
};

} // namespace kelvane::ctl
