// Passes the bytes of a hostile peer to the frame reader, and each frame to a proxy whose delegate answers
// the daemon's whole method table. The first byte sets how often a read is short.

#include "Common/FrameReader.h"
#include "Common/KelvProxy.h"
#include "Common/Protocols.h"

#include <algorithm>
#include <cstddef>
#include <span>

namespace kelvane {
namespace {

class Peer : public ByteSource {
public:
    explicit Peer(std::span<const std::uint8_t> bytes) : bytes_(bytes) {
        if (!bytes_.empty()) {
            shortReadEvery_ = bytes_.front();
            bytes_ = bytes_.subspan(1);
        }
    }

    std::int32_t readBytes(std::int32_t count, std::uint8_t* buffer) override {
        if (count < 0 || bytes_.empty())
            return -1;
        ++reads_;
        auto size = std::min(static_cast<std::size_t>(count), bytes_.size());
        if (shortReadEvery_ > 0 && reads_ % shortReadEvery_ == 0)
            size = (size + 1) / 2;
        std::copy_n(bytes_.begin(), size, buffer);
        bytes_ = bytes_.subspan(size);
        return static_cast<std::int32_t>(size);
    }

private:
    std::span<const std::uint8_t> bytes_;
    unsigned shortReadEvery_ = 0;
    unsigned reads_ = 0;
};

// Returns the buffer of the first argument, whatever the type of the result.
class Echo : public InvocationTarget {
public:
    [[nodiscard]] Protocol methods() const override { return KelvaneDaemonProtocol; }
    void invoke(Invocation& invocation) override {
        const MethodSignature& signature = invocation.signature();
        for (std::size_t index = 0; index < signature.argumentCount; ++index)
            static_cast<void>(encodeValue(signature.argumentTypes[index], invocation.argument(index)));
        if (signature.argumentCount > 0)
            invocation.result() = invocation.argument(0);
    }
};

} // namespace
} // namespace kelvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using namespace kelvane;
    Peer peer(std::span(bytes, size));
    FrameReader reader(peer);
    const auto target = std::make_shared<Echo>();
    const auto proxy = KelvaneProxy::create(); // Without a socket no call waits, and responses are dropped.
    proxy->setDelegate(target);
    for (auto marker = reader.readMarker(); marker != FrameReader::Marker::Failed;
         marker = reader.readMarker()) {
        if (marker != FrameReader::Marker::Found)
            continue;
        if (const auto frame = reader.readFrame())
            proxy->processData(frame->payload ? &*frame->payload : nullptr, frame->type);
    }
    return 0;
}
