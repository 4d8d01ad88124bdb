#pragma once

#include "Common/ExtensionProtocol.h"
#include "Common/Invocation.h"

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <utility>

namespace kelvane {

// A selector as a template argument.
template <std::size_t size>
struct Selector {
    consteval Selector(const char (&text)[size]) { std::copy_n(text, size, characters); } // NOLINT
    [[nodiscard]] constexpr std::string_view view() const { return {characters, size - 1}; }

    char characters[size]{};
};

// The row for a selector in either method table.
[[nodiscard]] consteval const MethodDescription* methodOfEitherSide(std::string_view selector) {
    const MethodDescription* method = findMethod(KelvaneExtendedDaemonProtocol, selector);
    return method ? method : findMethod(KelvaneClientProtocol, selector);
}

// The C++ type of a type code in typed calls. "c" is a bool in both tables.
template <char code>
struct NativeType;
template <>
struct NativeType<'v'> {
    using Type = void;
};
template <>
struct NativeType<'c'> {
    using Type = bool;
};
template <>
struct NativeType<'I'> {
    using Type = std::uint32_t;
};
template <>
struct NativeType<'q'> {
    using Type = std::int64_t;
};
template <>
struct NativeType<'Q'> {
    using Type = std::uint64_t;
};
template <>
struct NativeType<'@'> {
    using Type = Value;
};

template <Selector selector>
concept InMethodTable = (methodOfEitherSide(selector.view()) != nullptr);

// A selector of either table with its C++ types, resolved at compile time.
template <Selector selector>
requires InMethodTable<selector>
struct TypedMethod {
    static constexpr const MethodDescription* description = methodOfEitherSide(selector.view());
    static constexpr MethodSignature signature = MethodSignature::fromTypes(description->types);

    using Result = typename NativeType<signature.returnType.front()>::Type;
    template <std::size_t index>
    using Argument = typename NativeType<signature.argumentTypes[index].front()>::Type;

    // Numbers must have exactly the method's type; an object may be anything that converts to a Value.
    template <class... Given>
    static constexpr bool accepts() {
        if constexpr (sizeof...(Given) == signature.argumentCount)
            return acceptsEach<Given...>(std::index_sequence_for<Given...>());
        else
            return false;
    }

private:
    template <class Type, class Given>
    static constexpr bool isAccepted =
        std::same_as<Type, Value> ? std::convertible_to<Given, Value> : std::same_as<Type, Given>;

    template <class... Given, std::size_t... index>
    static constexpr bool acceptsEach(std::index_sequence<index...> /*positions*/) {
        return (isAccepted<Argument<index>, Given> && ...);
    }
};

template <Selector selector, class... Arguments>
concept TakesArguments = InMethodTable<selector> && TypedMethod<selector>::template accepts<Arguments...>();

template <class Type>
void storeNative(ValueBuffer& buffer, const Type& value) {
    if constexpr (std::same_as<Type, bool>)
        buffer.store(static_cast<signed char>(value ? 1 : 0));
    else if constexpr (std::is_arithmetic_v<Type>)
        buffer.store(value);
    else
        buffer.storeObject(Value(value));
}

template <class Type>
[[nodiscard]] Type loadNative(const ValueBuffer& buffer) {
    if constexpr (std::same_as<Type, bool>)
        return buffer.load<signed char>() != 0;
    else if constexpr (std::is_arithmetic_v<Type>)
        return buffer.load<Type>();
    else
        return buffer.object();
}

// The receiving side: a selector bound to the member function that implements it. Compiles only when the
// function has exactly the method's types (objects as `const Value&`).
template <class Target>
struct MethodBinding {
    MethodDescription description;
    void (*invoke)(Target&, Invocation&);
};

namespace typedcall {

template <class Function>
struct Member;
template <class Class, class Return, class... Arguments>
struct Member<Return (Class::*)(Arguments...)> {
    using Result = Return;
    static constexpr std::size_t count = sizeof...(Arguments);

    template <class Method, std::size_t... index>
    static constexpr bool matches(std::index_sequence<index...>) {
        return std::same_as<Result, typename Method::Result> &&
               (std::same_as<std::remove_cvref_t<Arguments>, typename Method::template Argument<index>> &&
                ...);
    }

    template <auto function, class Target, std::size_t... index>
    static void invoke(Target& target, Invocation& invocation, std::index_sequence<index...>) {
        if constexpr (std::same_as<Result, void>)
            (target.*function)(loadNative<std::remove_cvref_t<Arguments>>(invocation.argument(index))...);
        else
            storeNative<Result>(invocation.result(),
                                (target.*function)(loadNative<std::remove_cvref_t<Arguments>>(
                                    invocation.argument(index))...));
    }
};

} // namespace typedcall

template <class Target, Selector selector, auto function>
consteval MethodBinding<Target> bind() {
    using Method = TypedMethod<selector>;
    using Function = typedcall::Member<decltype(function)>;
    static_assert(Function::count == Method::signature.argumentCount,
                  "the method has another number of arguments");
    static_assert(Function::template matches<Method>(std::make_index_sequence<Function::count>()),
                  "the method has other types");
    return {*Method::description, [](Target& target, Invocation& invocation) {
                Function::template invoke<function>(target, invocation,
                                                    std::make_index_sequence<Function::count>());
            }};
}

// Runs the function bound to the invocation's selector. Throws std::logic_error when there is none: the
// bindings must cover the target's method table.
template <class Target>
void invokeBound(std::span<const MethodBinding<Target>> bindings, Target& target, Invocation& invocation) {
    for (const auto& binding : bindings)
        if (binding.description.selector == invocation.selector())
            return binding.invoke(target, invocation);
    throw std::logic_error("no binding for " + invocation.selector());
}

} // namespace kelvane
