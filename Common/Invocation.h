#pragma once

#include "Common/MethodSignature.h"
#include "Common/ValueBuffer.h"

#include <stdexcept>
#include <string>

namespace kelvane {

// A captured call: the selector, its arguments in native form and, after the call, its result. Owns
// everything except the texts of the signature, which belong to a constant method table.
class Invocation {
public:
    Invocation(std::string_view selector, const MethodSignature& signature)
        : selector_(selector), signature_(signature) {}

    [[nodiscard]] const std::string& selector() const { return selector_; }
    [[nodiscard]] const MethodSignature& signature() const { return signature_; }

    // The index does not count the receiver and the selector. Throws when the method has no such argument.
    [[nodiscard]] ValueBuffer& argument(std::size_t index) { return arguments_.at(checked(index)); }
    [[nodiscard]] const ValueBuffer& argument(std::size_t index) const {
        return arguments_.at(checked(index));
    }
    [[nodiscard]] ValueBuffer& result() { return result_; }
    [[nodiscard]] const ValueBuffer& result() const { return result_; }

private:
    [[nodiscard]] std::size_t checked(std::size_t index) const {
        if (index >= signature_.argumentCount)
            throw std::out_of_range(selector_ + " takes fewer arguments");
        return index;
    }

    std::string selector_;
    MethodSignature signature_;
    std::array<ValueBuffer, mostArguments> arguments_;
    ValueBuffer result_;
};

// Receives the calls of a peer, on the receive thread or on the main thread, as its proxy was configured.
class InvocationTarget {
public:
    virtual ~InvocationTarget() = default;
    // The methods that this target implements.
    [[nodiscard]] virtual Protocol methods() const = 0;
    // Runs the call and leaves its result in the invocation.
    virtual void invoke(Invocation& invocation) = 0;
};

} // namespace kelvane
