#include "Common/FrameReader.h"
#include "Common/Protocols.h"
#include "Common/ValueBuffer.h"
#include "Tests/Harness/LinkPair.h"

#include <algorithm>
#include <climits>
#include <numeric>

namespace kelvane::tests {
namespace {

using Marker = FrameReader::Marker;

// Returns its contents and then fails; records the largest number of requested bytes.
class Bytes : public ByteSource {
public:
    explicit Bytes(std::string bytes) : bytes_(std::move(bytes)) {}

    std::int32_t readBytes(std::int32_t count, std::uint8_t* buffer) override {
        largestRead = std::max(largestRead, count);
        const auto size = static_cast<std::size_t>(count);
        if (count < 0 || size > bytes_.size())
            return -1;
        std::copy_n(bytes_.begin(), size, buffer);
        bytes_.erase(0, size);
        return count;
    }

    std::int32_t largestRead = 0;

private:
    std::string bytes_;
};

TEST(FrameReader, FindsTheMarkerOnlyAtTheStartOfABlockOf36) {
    const std::string marker(frameMarker);
    const std::string noise(36, '#');
    const std::pair<std::string, std::vector<Marker>> cases[] = {
        {"", {Marker::Failed}},
        {marker.substr(1), {Marker::Failed}},
        {marker, {Marker::Found, Marker::Failed}},
        {noise + noise + marker, {Marker::Garbage, Marker::Garbage, Marker::Found}},
        {marker.substr(1) + "x" + marker, {Marker::Garbage, Marker::Found}},
        {"#" + marker, {Marker::Garbage, Marker::Failed}},
        // Off by one byte, and aligned with the blocks again by the bytes in between.
        {"#" + marker + noise.substr(1) + marker, {Marker::Garbage, Marker::Garbage, Marker::Found}}};
    for (const auto& [bytes, results] : cases) {
        Bytes source(bytes);
        FrameReader reader(source);
        for (const Marker expected : results)
            EXPECT_EQ(reader.readMarker(), expected) << bytes;
    }
}

TEST(FrameReader, TakesExactlyWhatTheLengthSays) {
    for (const std::size_t size : {0U, 1U, 65536U, 65537U, 1000003U}) {
        std::string payload(size, 'x');
        std::iota(payload.begin(), payload.end(), '\0');
        Bytes source(frame(2, payload) + frame(7, ""));
        FrameReader reader(source);
        for (const std::string& expected : {payload, std::string()}) {
            ASSERT_EQ(reader.readMarker(), Marker::Found);
            const auto taken = reader.readFrame();
            ASSERT_TRUE(taken);
            EXPECT_EQ(taken->payload.has_value(), !expected.empty());
            EXPECT_EQ(taken->payload.value_or(Data()), Data(expected.begin(), expected.end()));
        }
    }
}

TEST(FrameReader, FailsOnALengthThatLiesWithoutTakingMemoryForIt) {
    for (const std::int32_t length : {-1, INT_MIN, 6, 70000, INT_MAX}) {
        Bytes source(frame(1, "short", length));
        FrameReader reader(source);
        ASSERT_EQ(reader.readMarker(), Marker::Found);
        EXPECT_FALSE(reader.readFrame()) << length;
        EXPECT_LE(source.largestRead, 64 * 1024) << length;
    }
}

// A typing error in a table shows in the offsets, which follow from the types, and in the frame's size.
TEST(Protocols, HaveTypeStringsWhoseOffsetsAddUp) {
    for (const Protocol& protocol :
         {Protocol(KelvaneExtendedDaemonProtocol), Protocol(KelvaneClientProtocol)})
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

template <class Number>
void checkNumber(const char* type, Number number) {
    SCOPED_TRACE(type);
    ValueBuffer buffer;
    buffer.store(number);
    std::uint32_t size = 0;
    const Value encoded = KelvaneProxy::encodeType(type, buffer, &size);
    EXPECT_EQ(encoded, Value(number));
    EXPECT_EQ(encoded.kind(), Value(number).kind());
    EXPECT_EQ(size, sizeof number);
    for (const auto& [object, expected] :
         {std::pair(encoded, number), {Value("7"), Number{}}, {Value(), Number{}}}) {
        KelvaneProxy::decodeObject(object, type, buffer);
        EXPECT_EQ(buffer.load<Number>(), expected) << object.description();
    }
}

TEST(ValueBuffer, TurnsNumbersOfEachTypeIntoObjectsAndBack) {
    checkNumber<signed char>("c", -100);
    checkNumber<unsigned char>("C", 200);
    checkNumber<short>("s", -30000);
    checkNumber<unsigned short>("S", 60000);
    checkNumber<int>("i", -2000000000);
    checkNumber<unsigned>("I", 4000000000);
    checkNumber<long>("l", LONG_MIN);
    checkNumber<unsigned long>("L", ULONG_MAX);
    checkNumber<long long>("q", LLONG_MIN);
    checkNumber<unsigned long long>("Q", ULLONG_MAX);
    checkNumber<float>("f", 0.5F);
    checkNumber<double>("d", 0.1);

    ValueBuffer buffer;
    decodeValue(2, "B", buffer); // a bool is one byte that is 1 or 0
    EXPECT_EQ(buffer.load<unsigned char>(), 1);
    EXPECT_EQ(encodeValue("B", buffer).kind(), Value::Kind::Bool);
    decodeValue(2 + 256, "c", buffer);
    EXPECT_EQ(buffer.load<signed char>(), 2);
}

} // namespace
} // namespace kelvane::tests
