#include "Support/Json/JsonPropertyList.h"

#include "Foundation/Description.h"
#include "Support/Json/Base64.h"
#include "Support/Json/JsonMarkers.h"

#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>

namespace kelvane {
namespace {

using Json = nlohmann::ordered_json;

Json marked(std::string_view key, Json content) {
    return Json::object({{std::string(key), std::move(content)}});
}

Json jsonOf(double number) {
    return std::isfinite(number) ? Json(number) : marked(marker::real, textOfNonFinite(number));
}

// Returns the double that has the same shortest decimal text as the float (0.1, not 0.10000000149), or the
// float's exact value if that double would round to a different float.
double shortestDouble(float number) {
    std::array<char, 32> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
    double shortest = 0;
    std::from_chars(text.data(), end, shortest);
    return static_cast<float>(shortest) == number ? shortest : static_cast<double>(number);
}

Json jsonOf(float number) {
    return marked(marker::float4,
                  std::isfinite(number) ? Json(shortestDouble(number)) : Json(textOfNonFinite(number)));
}

Json jsonOf(Date date) {
    std::string text = iso8601(date);
    const std::optional<Date> named = dateFromText(text);
    const auto bits = [](Date moment) { return std::bit_cast<std::uint64_t>(moment.secondsSinceReference); };
    const bool exact = named && bits(*named) == bits(date);
    return marked(marker::date, exact ? Json(std::move(text)) : jsonOf(date.secondsSinceReference));
}

Json jsonOf(Integer number) {
    return number.isSigned ? Json(static_cast<std::int64_t>(number.bits)) : Json(number.bits);
}

Json jsonOf(const Array& items) {
    Json::array_t list;
    list.reserve(items.size());
    for (const Value& item : items)
        list.push_back(jsonFromPropertyList(item));
    return list;
}

Json jsonOf(const Dictionary& entries) {
    Json::object_t object;
    // Bypasses the object's own insertion, which compares each key with all others: these keys all differ.
    std::vector<Json::object_t::value_type>& list = object;
    list.reserve(entries.size());
    for (const auto& [key, value] : entries)
        list.emplace_back(key, jsonFromPropertyList(value));
    Json json(std::move(object));
    return isMarker(entries) ? marked(marker::dictionary, std::move(json)) : json;
}

} // namespace

Json jsonFromPropertyList(const Value& value) {
    switch (value.kind()) {
    case Value::Kind::Absent: break;
    case Value::Kind::Bool: return value.boolValue();
    case Value::Kind::Integer: return jsonOf(*value.integer());
    case Value::Kind::Float: return jsonOf(value.floatValue());
    case Value::Kind::Double: return jsonOf(value.doubleValue());
    case Value::Kind::String: return value.stringValue();
    case Value::Kind::Data: return marked(marker::data, base64FromData(value.dataValue()));
    case Value::Kind::Date: return jsonOf(value.dateValue());
    case Value::Kind::Array: return jsonOf(value.array());
    case Value::Kind::Dictionary: return jsonOf(value.dictionary());
    }
    return nullptr;
}

} // namespace kelvane
