#pragma once

#include <cstdint>

namespace kelvane {

struct FileTotals {
    std::uint64_t count = 0;
    std::uint64_t bytes = 0;

    FileTotals& operator+=(const FileTotals& other) {
        count += other.count;
        bytes += other.bytes;
        return *this;
    }
    FileTotals& operator-=(const FileTotals& other) {
        count -= other.count;
        bytes -= other.bytes;
        return *this;
    }
    friend bool operator==(const FileTotals&, const FileTotals&) = default;
};

} // namespace kelvane
