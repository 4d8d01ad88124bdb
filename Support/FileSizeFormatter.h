#pragma once

#include "Foundation/Value.h"
#include "Support/NumberFormatter.h"

#include <optional>
#include <string>
#include <utility>

namespace kelvane {

class Bundle;

// Formats byte counts for display: exactly and with the word for bytes ("4096 bytes"), or abbreviated with a
// unit ("1.21 MB"). All views use the two shared instances. Main thread only, because the instances and the
// table of units have no lock.
class FileSizeFormatter {
public:
    // `base` formats the number of the abbreviated form.
    explicit FileSizeFormatter(NumberFormatter base) : base_(std::move(base)) {}

    // Reads the names of the units from the bundle, for all formatters. Until then they are English.
    static void initializeUsingBundle(const Bundle& bundle);

    [[nodiscard]] static const FileSizeFormatter& sharedFileSizeFormatter();
    [[nodiscard]] static const FileSizeFormatter& sharedFileSizeAbbrevFormatter();

    void setAbbreviated(bool abbreviated) { abbreviated_ = abbreviated; }

    // Returns nothing if the value is not a number. Of a signed 64-bit number all bits are used, of any other
    // number the low 32 bits. An unsigned 64-bit number that fits is a signed one, see `Integer`.
    [[nodiscard]] std::optional<std::string> stringForObjectValue(const Value& value) const;
    [[nodiscard]] std::optional<std::string> stringFromNumber(const Value& number) const {
        return stringForObjectValue(number);
    }

private:
    NumberFormatter base_;
    bool abbreviated_ = false;
};

} // namespace kelvane
