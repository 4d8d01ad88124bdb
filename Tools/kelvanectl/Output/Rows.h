#pragma once

#include "Tools/kelvanectl/Output/Terminal.h"

#include <string>
#include <string_view>
#include <utility>

namespace kelvane::ctl {

// Rows of a label and a text, with the texts aligned.
class Rows {
public:
    void add(std::string_view label, std::string_view text) {
        constexpr std::size_t column = 16;
        text_ += label;
        text_.append(column - label.size(), ' ');
        text_ += printable(text) + '\n';
    }
    void addName(std::string_view label, std::string_view name) { add(label, printableName(name)); }
    void addIfAny(std::string_view label, std::string_view text) {
        if (!text.empty())
            add(label, text);
    }
    void addKnown(std::string_view label, std::string_view text) {
        add(label, text.empty() ? "not known" : text);
    }
    void addHeading(std::string_view text) { text_.append(text) += '\n'; }

    [[nodiscard]] std::string take() { return std::move(text_); }

private:
    std::string text_;
};

} // namespace kelvane::ctl
