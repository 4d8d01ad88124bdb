#pragma once

#include "Foundation/Value.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace kelvane {

// One frame: this marker, the type and the payload's length as signed 32-bit numbers in host order, the
// payload.
inline constexpr std::string_view frameMarker = "DC41B5B5-D458-4454-9BFC-D4C4203F035C";

inline constexpr std::int32_t requestFrame = 1;
inline constexpr std::int32_t responseFrame = 2;
// Never on the wire: what a receiver is told when its connection failed.
inline constexpr std::int32_t failureNotice = 0;

// Bytes of a payload; nobody sends more, and more counts as a failed read. A million files in one folder stay
// below it.
inline constexpr std::int32_t largestPayload = 256 << 20;

// Where frames come from.
class ByteSource {
public:
    virtual ~ByteSource() = default;
    // Reads exactly `count` bytes. Fewer only when no more come without a failure; -1 when the source has
    // failed, ended, or `count` is negative.
    virtual std::int32_t readBytes(std::int32_t count, std::uint8_t* buffer) = 0;
};

struct Frame {
    std::int32_t type = 0;
    std::optional<Data> payload; // none for a frame whose length is 0
};

// Takes frames from a stream of bytes; the one decoder of the link. A payload's memory grows only as its
// bytes arrive, so that a length that lies costs nothing.
class FrameReader {
public:
    explicit FrameReader(ByteSource& source) : source_(source) {}

    enum class Marker { Found, Garbage, Nothing, Failed };
    // Takes the next 36 bytes. A stream that lost its alignment finds back only when a marker falls on such a
    // block.
    [[nodiscard]] Marker readMarker();
    // What follows a marker; none when the source failed or the length is negative.
    [[nodiscard]] std::optional<Frame> readFrame();

private:
    [[nodiscard]] std::optional<std::int32_t> readInt();
    [[nodiscard]] std::optional<Data> readPayload(std::int32_t length);

    ByteSource& source_;
};

} // namespace kelvane
