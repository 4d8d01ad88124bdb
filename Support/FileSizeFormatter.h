#pragma once

#include "Foundation/Value.h"
#include "Support/NumberFormatter.h"

#include <optional>
#include <string>
#include <utility>

namespace kelvane {

class Bundle;

// Byte counts for people: exact with the word for bytes ("4096 bytes"), or abbreviated with a unit ("1.21
// MB"). Two shared instances serve every view. Main thread only: neither they nor the table of units are
// guarded.
class FileSizeFormatter {
public:
    // `base` writes the number of the abbreviated form.
    explicit FileSizeFormatter(NumberFormatter base) : base_(std::move(base)) {}

    // Takes the texts of the units from the bundle, for all formatters; English until then.
    static void initializeUsingBundle(const Bundle& bundle);

    [[nodiscard]] static const FileSizeFormatter& sharedFileSizeFormatter();
    [[nodiscard]] static const FileSizeFormatter& sharedFileSizeAbbrevFormatter();

    void setAbbreviated(bool abbreviated) { abbreviated_ = abbreviated; }

    // None for what is no number. A signed 64-bit number is a count of 64 bits; of every other number the low
    // 32 bits count. (An unsigned 64-bit number that fits a signed one is one: see `Integer`.)
    [[nodiscard]] std::optional<std::string> stringForObjectValue(const Value& value) const;
    [[nodiscard]] std::optional<std::string> stringFromNumber(const Value& number) const {
        return stringForObjectValue(number);
    }

private:
    NumberFormatter base_;
    bool abbreviated_ = false;
};

} // namespace kelvane
