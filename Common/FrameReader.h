#pragma once

#include "Foundation/Value.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace kelvane {

// A frame is this marker, the type and the payload length as signed 32-bit numbers in host byte order, and
// the payload.
inline constexpr std::string_view frameMarker = "DC41B5B5-D458-4454-9BFC-D4C4203F035C";

inline constexpr std::int32_t requestFrame = 1;
inline constexpr std::int32_t responseFrame = 2;
// Never sent: the type that a receiver gets when its connection has failed.
inline constexpr std::int32_t failureNotice = 0;

// In bytes. Nobody sends a larger payload, and a frame that announces one counts as a failed read. The
// listing of a folder with a million files stays below it.
inline constexpr std::int32_t largestPayload = 256 << 20;

// The source of a frame's bytes.
class ByteSource {
public:
    virtual ~ByteSource() = default;
    // Reads exactly `count` bytes and returns their number. Returns fewer only when no more bytes are
    // available for now, and -1 when the source has failed or ended, or `count` is negative.
    virtual std::int32_t readBytes(std::int32_t count, std::uint8_t* buffer) = 0;
};

struct Frame {
    std::int32_t type = 0;
    std::optional<Data> payload; // absent in a frame of length 0
};

// The only decoder of the link's frames. The buffer of a payload grows as its bytes arrive, so a false length
// costs no memory.
class FrameReader {
public:
    explicit FrameReader(ByteSource& source) : source_(source) {}

    enum class Marker { Found, Garbage, Nothing, Failed };
    // Reads the next 36 bytes. A stream that is out of sync recovers only if a marker starts exactly where
    // one of these blocks does.
    [[nodiscard]] Marker readMarker();
    // Reads what follows a marker. Returns none when the source failed, the length is negative or above
    // `largestPayload`, or memory runs out.
    [[nodiscard]] std::optional<Frame> readFrame();

private:
    [[nodiscard]] std::optional<std::int32_t> readInt();
    [[nodiscard]] std::optional<Data> readPayload(std::int32_t length);

    ByteSource& source_;
};

} // namespace kelvane
