#include "Common/ClientTarget.h"
#include "Common/KelvProxy.h"
#include "Common/Protocols.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace kelvane::tests {
namespace {

// What compiles as a typed call, and what must not.
template <Selector selector, class... Arguments>
concept Callable = requires(KelvaneProxy& proxy, Arguments... arguments) {
    proxy.call<selector>(arguments...);
};
static_assert(Callable<"setPausedMinutes:", std::uint32_t>);
static_assert(!Callable<"setPausedMinutes:", int>);
static_assert(!Callable<"setPausedMinutes:", bool>);
static_assert(!Callable<"setPausedMinutes:">);
static_assert(!Callable<"setPausedMinutes:", std::uint32_t, std::uint32_t>);
static_assert(!Callable<"setPausedMinutes", std::uint32_t>);
static_assert(Callable<"dictionaryForPath:withDirSizes:", const char*, bool>);
static_assert(!Callable<"dictionaryForPath:withDirSizes:", const char*, int>);

template <Selector selector, class... Arguments>
using ResultOf = decltype(std::declval<KelvaneProxy&>().call<selector>(std::declval<Arguments>()...));
static_assert(std::same_as<ResultOf<"terminate">, void>);
static_assert(std::same_as<ResultOf<"automaticMode">, bool>);
static_assert(std::same_as<ResultOf<"longForState:", std::uint32_t>, std::int64_t>);
static_assert(std::same_as<ResultOf<"longlongForState:", std::uint32_t>, std::uint64_t>);
static_assert(std::same_as<ResultOf<"daemonState">, Value>);

TEST(MethodSignature, TakesATypeStringApart) {
    const auto signature = MethodSignature::fromTypes("I40@0:8@16@24I32I36");
    EXPECT_EQ(signature.returnType, "I");
    EXPECT_EQ(signature.returnLength(), 4U);
    EXPECT_TRUE(
        std::ranges::equal(signature.arguments(), std::array<std::string_view, 4>{"@", "@", "I", "I"}));
    EXPECT_EQ(MethodSignature::fromTypes("v16@0:8").returnLength(), 0U);
    for (const char* odd : {"", "v", "v16", "@", "16@0:8"})
        EXPECT_EQ(MethodSignature::fromTypes(odd).argumentCount, 0U) << odd;
}

// A slip of the pen in a table shows in the offsets: they follow from the types, and the frame's size from
// them.
TEST(Protocols, HaveTypeStringsWhoseOffsetsAddUp) {
    for (const Protocol& protocol : {Protocol(KelvaneDaemonProtocol), Protocol(KelvaneClientProtocol)})
        for (const MethodDescription& method : protocol) {
            const auto signature = MethodSignature::fromTypes(method.types);
            std::uint32_t offset = 16;
            std::string arguments = "@0:8";
            for (const std::string_view type : signature.arguments()) {
                arguments.append(type).append(std::to_string(offset));
                offset += std::max(nativeSize(type), 4U); // chars are widened
            }
            EXPECT_EQ(method.types, std::string(signature.returnType) + std::to_string(offset) + arguments);
            EXPECT_EQ(std::ranges::count(method.selector, ':'), std::ssize(signature.arguments()))
                << method.selector;
            EXPECT_EQ(findMethod(protocol, method.selector), &method) << "twice: " << method.selector;
        }
    EXPECT_EQ(std::size(KelvaneDaemonProtocol), 55U);
    EXPECT_EQ(findMethod(KelvaneDaemonProtocol, "setBackupControl:turnOff:"), nullptr);
}

} // namespace
} // namespace kelvane::tests
