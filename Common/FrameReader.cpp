#include "Common/FrameReader.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <utility>

namespace kelvane {
namespace {

constexpr std::int32_t firstPayloadBlock = 64 * 1024;

} // namespace

FrameReader::Marker FrameReader::readMarker() {
    std::array<std::uint8_t, frameMarker.size()> block{};
    const std::int32_t count = source_.readBytes(static_cast<std::int32_t>(block.size()), block.data());
    if (count < 0)
        return Marker::Failed;
    if (count < 2)
        return Marker::Nothing;
    return std::memcmp(block.data(), frameMarker.data(), block.size()) == 0 ? Marker::Found : Marker::Garbage;
}

std::optional<Frame> FrameReader::readFrame() {
    const std::optional<std::int32_t> type = readInt();
    if (!type)
        return std::nullopt;
    const std::optional<std::int32_t> length = readInt();
    if (!length || *length < 0 || *length > largestPayload)
        return std::nullopt;
    if (*length == 0)
        return Frame{*type, std::nullopt};
    std::optional<Data> payload = readPayload(*length);
    if (!payload)
        return std::nullopt;
    return Frame{*type, std::move(payload)};
}

std::optional<std::int32_t> FrameReader::readInt() {
    std::array<std::uint8_t, sizeof(std::int32_t)> bytes{};
    if (source_.readBytes(static_cast<std::int32_t>(bytes.size()), bytes.data()) < 1)
        return std::nullopt;
    std::int32_t number = 0;
    std::memcpy(&number, bytes.data(), sizeof number);
    return number;
}

std::optional<Data> FrameReader::readPayload(std::int32_t length) {
    Data payload;
    std::int32_t block = firstPayloadBlock;
    for (std::int32_t arrived = 0; arrived < length;) {
        const std::int32_t wanted = std::min(block, length - arrived);
        try {
            payload.resize(static_cast<std::size_t>(arrived) + static_cast<std::size_t>(wanted));
        } catch (const std::bad_alloc&) {
            return std::nullopt; // out of memory: a failed read, not the end of the process
        }
        if (source_.readBytes(wanted, payload.data() + arrived) < wanted)
            return std::nullopt;
        arrived += wanted;
        block = arrived; // the buffer doubles
    }
    return payload;
}

} // namespace kelvane
