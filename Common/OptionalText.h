#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace kelvane {

// A text or none, in the size of one pointer. A tree keeps millions of names and paths, most of them short or
// absent; a std::optional<std::string> would take five times as much besides the characters.
class OptionalText {
public:
    OptionalText() = default;
    explicit OptionalText(std::optional<std::string_view> text) {
        if (text)
            store(*text);
    }
    OptionalText(const OptionalText& other) : OptionalText(other.text()) {}
    OptionalText(OptionalText&&) noexcept = default;
    OptionalText& operator=(const OptionalText& other) {
        *this = OptionalText(other);
        return *this;
    }
    OptionalText& operator=(OptionalText&&) noexcept = default;
    ~OptionalText() = default;

    [[nodiscard]] bool isPresent() const { return block_ != nullptr; }
    // Empty when there is no text. Valid until this object changes.
    [[nodiscard]] std::string_view view() const {
        return block_ ? std::string_view(block_.get() + sizeof(Length), length()) : std::string_view();
    }
    [[nodiscard]] std::optional<std::string_view> text() const {
        return block_ ? std::optional(view()) : std::nullopt;
    }

private:
    using Length = std::uint32_t;

    void store(std::string_view text) {
        if (text.size() > std::numeric_limits<Length>::max())
            throw std::length_error("a text of more than 4 GiB");
        const auto length = static_cast<Length>(text.size());
        block_ = std::make_unique_for_overwrite<char[]>(sizeof length + text.size());
        std::memcpy(block_.get(), &length, sizeof length);
        text.copy(block_.get() + sizeof length, text.size());
    }
    [[nodiscard]] std::size_t length() const {
        Length length = 0;
        std::memcpy(&length, block_.get(), sizeof length);
        return length;
    }

    std::unique_ptr<char[]> block_; // the length, then the characters
};

} // namespace kelvane
