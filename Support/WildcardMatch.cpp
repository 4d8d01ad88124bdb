#include "Support/WildcardMatch.h"

#include <cctype>
#include <cstddef>
#include <vector>

namespace kelvane {
namespace {

constexpr char star = '*';

int lower(char character) {
    return std::tolower(static_cast<unsigned char>(character));
}

bool beginsWith(std::string_view text, std::string_view start) {
    if (text.size() < start.size())
        return false;
    for (std::size_t i = 0; i < start.size(); ++i) {
        if (lower(text[i]) != lower(start[i]))
            return false;
    }
    return true;
}

std::string_view untilZero(std::string_view text) {
    return text.substr(0, text.find('\0'));
}

// The stars before a run of other characters, and that run.
struct Part {
    bool isDeep = false;
    std::string_view run; // never empty

    // Whether the search for this part stops at `character`.
    [[nodiscard]] bool isSoughtAt(char character) const {
        const auto sought = static_cast<unsigned char>(run.front());
        const auto byte = static_cast<unsigned char>(character);
        return byte == std::tolower(sought) || byte == std::toupper(sought);
    }
};

struct Pattern {
    std::string_view start; // before the first star
    std::vector<Part> parts;
    bool endsInStar = false;
};

Pattern parsed(std::string_view text) {
    Pattern pattern;
    pattern.start = text.substr(0, text.find(star));
    text.remove_prefix(pattern.start.size());
    while (!text.empty()) {
        const std::size_t stars = text.find_first_not_of(star);
        if (stars == std::string_view::npos) {
            pattern.endsInStar = true;
            break;
        }
        text.remove_prefix(stars);
        const std::string_view run = text.substr(0, text.find(star));
        pattern.parts.push_back({stars > 1, run});
        text.remove_prefix(run.size());
    }
    return pattern;
}

// For each position of a text, its end included: whether the rest of a pattern matches from there.
using Row = std::vector<char>;

// Computes the row of `part` and the parts after it from `after`, the row of the parts after it alone. Goes
// backwards from the end of the text, so that the result for the next character is already known.
Row rowOf(const Part& part, std::string_view text, const Row& after) {
    Row row(text.size() + 1, false);
    for (std::size_t at = text.size(); at-- > 0;) {
        if (part.isSoughtAt(text[at])) {
            const std::size_t end = at + part.run.size();
            const bool matchesHere =
                end <= text.size() && after[end] && beginsWith(text.substr(at), part.run);
            const bool isOnlyTry = !part.isDeep && part.run.front() == '/';
            row[at] = matchesHere || (!isOnlyTry && row[at + 1]);
        } else {
            row[at] = (part.isDeep || text[at] != '/') && row[at + 1];
        }
    }
    return row;
}

} // namespace

bool WildcardMatch(std::string_view pattern, std::string_view text) {
    text = untilZero(text);
    const Pattern wanted = parsed(untilZero(pattern));
    if (!beginsWith(text, wanted.start))
        return false;
    text.remove_prefix(wanted.start.size());
    if (wanted.parts.empty())
        return wanted.endsInStar || text.empty();

    Row row(text.size() + 1, wanted.endsInStar);
    row.back() = true;
    for (auto part = wanted.parts.rbegin(); part != wanted.parts.rend(); ++part)
        row = rowOf(*part, text, row);
    return row.front();
}

} // namespace kelvane
