#pragma once

#include <atomic>
#include <utility>

namespace kelvane {

// Counts the owners of a shared block. Owners on different threads need no lock.
class OwnerCount {
public:
    void add() { count_.fetch_add(1, std::memory_order_relaxed); }
    // Returns true for the last owner, to which all changes by the other owners are then visible.
    [[nodiscard]] bool removeLast() { return count_.fetch_sub(1, std::memory_order_acq_rel) == 1; }
    // If this returns true, it stays true until the caller itself makes another owner.
    [[nodiscard]] bool isAlone() const { return count_.load(std::memory_order_acquire) == 1; }

private:
    std::atomic<unsigned> count_{1};
};

template <class T>
struct SharedBlock : OwnerCount {
    explicit SharedBlock(T value) : content(std::move(value)) {}

    T content;
};

// A T with copy-on-write. Copies refer to the same T until one of them calls `own`, which returns a T that no
// other copy refers to. Different copies may be used by different threads at the same time. An object that is
// default-constructed or moved-from reads as a default T.
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
