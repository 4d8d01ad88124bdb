#include "Foundation/PropertyList/BinaryPropertyList.h"
#include "Support/Json/JsonMarkers.h"
#include "Support/Json/JsonPropertyList.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <unordered_set>
#include <vector>

namespace kelvane {
namespace {

using Json = nlohmann::ordered_json;

// An iterator over the text that also stores its position in `*furthest`, for error messages.
class CountingIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    CountingIterator(const char* current, const char** furthest) : current_(current), furthest_(furthest) {}

    reference operator*() const { return *current_; }
    CountingIterator& operator++() {
        ++current_;
        if (furthest_)
            *furthest_ = current_;
        return *this;
    }
    friend bool operator==(const CountingIterator& left, const CountingIterator& right) {
        return left.current_ == right.current_;
    }
    friend bool operator!=(const CountingIterator& left, const CountingIterator& right) {
        return !(left == right);
    }

private:
    const char* current_;
    const char** furthest_;
};

// An array or object whose end has not been read yet.
struct Frame {
    bool isObject = false;
    bool isLiteral = false; // the content of a "$dictionary", which is never a marker itself
    int level = 0;
    Array items;
    Dictionary entries;
    std::unordered_set<std::string> keys;
    std::string key; // the key of the next value

    [[nodiscard]] bool expectsLiteral() const {
        return isObject && !isLiteral && entries.empty() && key == marker::dictionary;
    }
    [[nodiscard]] bool holdsLiteral() const {
        return isObject && !isLiteral && !entries.empty() && entries.begin()->first == marker::dictionary;
    }
};

// Builds the value from the parser's events. Each handler returns whether to continue.
class Builder {
public:
    explicit Builder(std::string_view text) : text_(text), position_(text.data()) {}

    [[nodiscard]] JsonReading read();

    bool null() { return refuse("null is not supported"); }
    bool boolean(bool flag) { return add(flag); }
    bool number_integer(std::int64_t number) { return add(number); }
    bool number_unsigned(std::uint64_t number) { return add(number); }
    bool number_float(double number, const std::string& digits);
    bool string(std::string& text) { return add(std::move(text)); }
    bool binary(std::vector<std::uint8_t>& /*bytes*/) { return false; } // does not occur in text
    bool start_object(std::size_t /*count*/) { return open(true); }
    bool start_array(std::size_t /*count*/) { return open(false); }
    bool key(std::string& key);
    bool end_object();
    bool end_array();
    bool parse_error(std::size_t position, const std::string& lastToken, const std::exception& exception);

private:
    bool open(bool isObject);
    bool add(Value value);
    bool refuse(const std::string& reason);
    bool refuseLevel();
    [[nodiscard]] std::string place() const;

    const std::string_view text_;
    const char* position_;
    std::vector<Frame> frames_;
    JsonReading reading_;
};

JsonReading Builder::read() {
    const char* const end = text_.data() + text_.size();
    // The parser would treat a NUL byte as the end.
    if (const std::size_t zero = text_.find('\0'); zero != std::string_view::npos) {
        position_ += zero + 1;
        refuse("the text contains a NUL byte");
    } else if (text_.empty()) {
        reading_.error = "it is empty";
    } else {
        Json::sax_parse(CountingIterator(text_.data(), &position_), CountingIterator(end, nullptr), this);
    }
    if (!reading_.succeeded())
        reading_.value = {};
    return std::move(reading_);
}

bool Builder::number_float(double number, const std::string& digits) {
    if (digits.find_first_of(".eE") == std::string::npos)
        return refuse("the integer " + digits + " does not fit 64 bits");
    return add(number);
}

bool Builder::key(std::string& key) {
    Frame& frame = frames_.back();
    if (!frame.keys.insert(key).second)
        return refuse("the key \"" + key + "\" occurs twice");
    if (frame.holdsLiteral())
        return refuse("\"$dictionary\" must be the only key of its object");
    frame.key = std::move(key);
    return true;
}

bool Builder::end_object() {
    Frame frame = std::move(frames_.back());
    frames_.pop_back();
    if (!frame.isLiteral && isMarker(frame.entries)) {
        const auto& [key, content] = *frame.entries.begin();
        Value value = valueOfMarker(key, content);
        return value.isAbsent() ? refuse('"' + key + "\" does not take what it holds")
                                : add(std::move(value));
    }
    if (frame.level > deepestNesting)
        return refuseLevel();
    return add(std::move(frame.entries));
}

bool Builder::end_array() {
    Array items = std::move(frames_.back().items);
    frames_.pop_back();
    return add(std::move(items));
}

bool Builder::parse_error(std::size_t /*position*/, const std::string& /*lastToken*/,
                          const std::exception& exception) {
    // "[json.exception.parse_error.101] parse error at line 1, column 5: syntax error while ..."
    std::string_view reason = exception.what();
    reason.remove_prefix(std::min(reason.find("] ") + 2, reason.size()));
    if (reason.starts_with("parse error at line"))
        reason.remove_prefix(reason.find(": ") + 2);
    return refuse(std::string(reason));
}

bool Builder::open(bool isObject) {
    Frame frame;
    frame.isObject = isObject;
    const Frame* parent = frames_.empty() ? nullptr : &frames_.back();
    frame.isLiteral = parent && isObject && parent->expectsLiteral();
    frame.level = (parent ? parent->level : 0) + (frame.isLiteral ? 0 : 1);
    // An object that turns out to be a marker does not count as a level, so one more is allowed here.
    if (frame.level > deepestNesting + (isObject ? 1 : 0))
        return refuseLevel();
    frames_.push_back(std::move(frame));
    return true;
}

bool Builder::add(Value value) {
    if (frames_.empty()) {
        reading_.value = std::move(value);
        return true;
    }
    Frame& frame = frames_.back();
    if (frame.isObject)
        frame.entries.append(frame.key, std::move(value));
    else
        frame.items.push_back(std::move(value));
    return true;
}

bool Builder::refuseLevel() {
    return refuse("more than " + std::to_string(deepestNesting) + " levels");
}

bool Builder::refuse(const std::string& reason) {
    if (reading_.succeeded())
        reading_.error = place() + ": " + reason;
    return false;
}

std::string Builder::place() const {
    const std::string_view before = text_.substr(0, static_cast<std::size_t>(position_ - text_.data()));
    const auto line = 1 + std::count(before.begin(), before.end(), '\n');
    const std::size_t lineStart = before.rfind('\n') + 1; // 0 on the first line
    return "line " + std::to_string(line) + ", column " + std::to_string(before.size() - lineStart);
}

} // namespace

JsonReading propertyListFromJson(std::string_view text) {
    return Builder(text).read();
}

} // namespace kelvane
