#pragma once

#include "Foundation/Value.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace kelvane {

// The padded form with "+" and "/", without line breaks.
[[nodiscard]] std::string base64FromData(std::span<const std::uint8_t> bytes);

// Returns none unless the text is exactly what `base64FromData` would return: padded, without line breaks.
[[nodiscard]] std::optional<Data> dataFromBase64(std::string_view text);

} // namespace kelvane
