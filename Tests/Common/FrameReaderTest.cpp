#include "Common/FrameReader.h"
#include "Tests/Harness/LinkPair.h"

#include <algorithm>
#include <climits>
#include <numeric>

namespace kelvane::tests {
namespace {

using Marker = FrameReader::Marker;

// Gives what it holds and then fails, and remembers the largest number of bytes that it was asked for.
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
        // Off by one, and back on the blocks thanks to what lies between.
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

} // namespace
} // namespace kelvane::tests
