#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace kelvane {

inline constexpr std::size_t mostArguments = 8;

// Size in bytes, on a 64-bit processor, of a value whose type code starts `type`; 0 for void and for unknown
// codes.
[[nodiscard]] constexpr std::uint32_t nativeSize(std::string_view type) {
    switch (type.empty() ? '\0' : type.front()) {
    case 'c':
    case 'C':
    case 'B': return 1;
    case 's':
    case 'S': return 2;
    case 'i':
    case 'I':
    case 'f': return 4;
    case 'l':
    case 'L':
    case 'q':
    case 'Q':
    case 'd':
    case '*':
    case '@': return 8;
    default: return 0;
    }
}

// A parsed method type string: the return type, the receiver "@" and the selector ":", then a code for each
// argument, each followed by its offset in the frame ("I40@0:8@16@24I32I36"). The views refer to that string.
struct MethodSignature {
    std::string_view returnType;
    std::array<std::string_view, mostArguments> argumentTypes{};
    std::size_t argumentCount = 0; // without the receiver and the selector

    [[nodiscard]] constexpr std::uint32_t returnLength() const { return nativeSize(returnType); }
    [[nodiscard]] constexpr std::span<const std::string_view> arguments() const {
        return std::span(argumentTypes).first(argumentCount);
    }

    [[nodiscard]] static constexpr MethodSignature fromTypes(std::string_view types) {
        MethodSignature signature;
        signature.returnType = takeType(types);
        takeType(types); // the receiver
        takeType(types); // the selector
        while (!types.empty() && signature.argumentCount < mostArguments)
            signature.argumentTypes[signature.argumentCount++] = takeType(types);
        return signature;
    }

private:
    static constexpr std::string_view takeType(std::string_view& types) {
        constexpr std::string_view digits = "0123456789";
        const std::string_view type = types.substr(0, types.find_first_of(digits));
        types.remove_prefix(type.size());
        const std::size_t next = types.find_first_not_of(digits);
        types = next == std::string_view::npos ? std::string_view() : types.substr(next);
        return type;
    }
};

// One row of a method table.
struct MethodDescription {
    std::string_view selector;
    std::string_view types;
    std::string_view extension = {}; // the extension that the daemon must list before a call; empty: none
};

// A method table: the methods that one side of the link implements. Refers to constant tables, which are
// never destroyed.
using Protocol = std::span<const MethodDescription>;

[[nodiscard]] constexpr const MethodDescription* findMethod(Protocol protocol, std::string_view selector) {
    for (const MethodDescription& method : protocol)
        if (method.selector == selector)
            return &method;
    return nullptr;
}

} // namespace kelvane
