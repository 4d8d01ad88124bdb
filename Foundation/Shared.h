#pragma once

#include <atomic>
#include <utility>

namespace kelvane {

// How many owners a block has that is kept by whoever owns it. Owners on different threads need no lock.
class OwnerCount {
public:
    void add() { count_.fetch_add(1, std::memory_order_relaxed); }
    // True for the last one, who then sees all that the others did.
    [[nodiscard]] bool removeLast() { return count_.fetch_sub(1, std::memory_order_acq_rel) == 1; }
    // An owner who is alone stays so until it gives away a share itself.
    [[nodiscard]] bool isAlone() const { return count_.load(std::memory_order_acquire) == 1; }

private:
    std::atomic<unsigned> count_{1};
};

template <class T>
struct SharedBlock : OwnerCount {
    explicit SharedBlock(T value) : content(std::move(value)) {}

    T content;
};

// A share of a T: copies refer to the same T for as long as they only read it, and `own` gives this one a T
// that nobody else sees. Different shares of one T may be used by different threads at the same time. A share
// that was given nothing, or that was moved from, reads as a default T.
template <class T>
class Shared {
public:
    Shared() = default;
    explicit Shared(T content) : block_(new SharedBlock<T>(std::move(content))) {}
    Shared(const Shared& other) : block_(other.block_) {
        if (block_)
            block_->add();
    }
    Shared(Shared&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
    Shared& operator=(Shared other) noexcept {
        std::swap(block_, other.block_);
        return *this;
    }
    ~Shared() {
        if (block_ && block_->removeLast())
            delete block_;
    }

    const T& operator*() const {
        if (block_)
            return block_->content;
        static const T nothing{};
        return nothing;
    }

    [[nodiscard]] bool isSameAs(const Shared& other) const { return block_ == other.block_; }

    [[nodiscard]] T& own() {
        if (!block_ || !block_->isAlone())
            *this = Shared(**this);
        return block_->content;
    }

private:
    SharedBlock<T>* block_ = nullptr;
};

} // namespace kelvane
