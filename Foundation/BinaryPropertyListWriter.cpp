#include "Foundation/BinaryPropertyList.h"

#include "Foundation/BinaryPropertyListLayout.h"
#include "Foundation/Unicode.h"

#include <unordered_map>

// First version: one pass that numbers the objects, each scalar once, and writes them.
namespace kelvane {
namespace {

using layout::Type;

unsigned widthFor(std::uint64_t n) { return n < 0x100 ? 1 : n < 0x10000 ? 2 : n < 0x100000000ULL ? 4 : 8; }

void appendNumber(Data& out, std::uint64_t n, unsigned width) {
    for (unsigned i = width; i-- > 0;)
        out.push_back(static_cast<std::uint8_t>(n >> (8 * i)));
}

void appendInteger(Data& out, std::uint64_t bits, bool negative, bool large) {
    if (large) {
        out.push_back(0x14);
        appendNumber(out, 0, 8);
        appendNumber(out, bits, 8);
        return;
    }
    const unsigned width = negative ? 8 : widthFor(bits);
    out.push_back(static_cast<std::uint8_t>(0x10U | (width == 1 ? 0U : width == 2 ? 1U : width == 4 ? 2U : 3U)));
    appendNumber(out, bits, width);
}

void appendHead(Data& out, Type type, std::uint64_t count) {
    const unsigned high = static_cast<unsigned>(type) << 4U;
    out.push_back(static_cast<std::uint8_t>(high | (count < 15 ? count : 15U)));
    if (count >= 15)
        appendInteger(out, count, false, false);
}

class Writer {
public:
    std::string error;
    std::vector<Data> objects;              // scalars written; containers empty until the end
    std::vector<std::vector<std::uint32_t>> references;
    std::vector<Type> types;

    std::uint32_t add(const Value& value, int level) {
        if (level > deepestNesting)
            error = "it is nested too deeply";
        if (!error.empty())
            return 0;
        if (value.isArray() || value.isDictionary())
            return addContainer(value, level);
        Data bytes = scalar(value);
        std::string key(bytes.begin(), bytes.end());
        const auto [found, isNew] = known_.emplace(std::move(key), static_cast<std::uint32_t>(objects.size()));
        if (isNew)
            push(std::move(bytes), Type::Simple);
        return found->second;
    }

private:
    void push(Data bytes, Type type) {
        objects.push_back(std::move(bytes));
        references.emplace_back();
        types.push_back(type);
    }

    std::uint32_t addContainer(const Value& value, int level) {
        const auto index = static_cast<std::uint32_t>(objects.size());
        push({}, value.isArray() ? Type::Array : Type::Dictionary);
        std::vector<std::uint32_t> refs;
        for (const Value& item : value.array())
            refs.push_back(add(item, level + 1));
        for (const auto& entry : value.dictionary())
            refs.push_back(add(entry.first, level + 1));
        for (const auto& entry : value.dictionary())
            refs.push_back(add(entry.second, level + 1));
        appendHead(objects[index], types[index], value.size());
        references[index] = std::move(refs);
        return index;
    }

    Data scalar(const Value& value) {
        Data out;
        switch (value.kind()) {
        case Value::Kind::Bool: out.push_back(value.boolValue() ? layout::trueMarker : layout::falseMarker); break;
        case Value::Kind::Integer: {
            const Integer n = *value.integer();
            appendInteger(out, n.bits, n.isNegative(), !n.isSigned && n.bits >> 63U != 0);
            break;
        }
        case Value::Kind::Float:
            out.push_back(0x22);
            appendNumber(out, std::bit_cast<std::uint32_t>(value.floatValue()), 4);
            break;
        case Value::Kind::Double:
            out.push_back(0x23);
            appendNumber(out, std::bit_cast<std::uint64_t>(value.doubleValue()), 8);
            break;
        case Value::Kind::Date:
            out.push_back(layout::dateMarker);
            appendNumber(out, std::bit_cast<std::uint64_t>(value.dateValue().secondsSinceReference), 8);
            break;
        case Value::Kind::Data:
            appendHead(out, Type::Data, value.dataValue().size());
            out.insert(out.end(), value.dataValue().begin(), value.dataValue().end());
            break;
        case Value::Kind::String: text(out, value.stringValue()); break;
        default: error = "an absent value has no form in a property list";
        }
        return out;
    }

    void text(Data& out, const std::string& string) {
        if (isAscii(string)) {
            appendHead(out, Type::AsciiString, string.size());
            out.insert(out.end(), string.begin(), string.end());
        } else if (const auto units = utf16BigEndianFromUtf8(string)) {
            appendHead(out, Type::Utf16String, units->size() / 2);
            out.insert(out.end(), units->begin(), units->end());
        } else {
            error = "a text is not UTF-8";
        }
    }

    std::unordered_map<std::string, std::uint32_t> known_;
};

} // namespace

PropertyListWriting writeBinaryPropertyList(const Value& value) {
    Writer writer;
    writer.add(value, 1);
    if (!writer.error.empty())
        return {{}, writer.error};
    Data out(layout::header.begin(), layout::header.end());
    std::vector<std::uint64_t> offsets;
    const unsigned referenceWidth = widthFor(writer.objects.size());
    for (std::size_t i = 0; i < writer.objects.size(); ++i) {
        offsets.push_back(out.size());
        out.insert(out.end(), writer.objects[i].begin(), writer.objects[i].end());
        for (const std::uint32_t reference : writer.references[i])
            appendNumber(out, reference, referenceWidth);
    }
    const std::uint64_t table = out.size();
    const unsigned offsetWidth = widthFor(table);
    for (const std::uint64_t offset : offsets)
        appendNumber(out, offset, offsetWidth);
    out.insert(out.end(), 6, 0);
    out.push_back(static_cast<std::uint8_t>(offsetWidth));
    out.push_back(static_cast<std::uint8_t>(referenceWidth));
    appendNumber(out, writer.objects.size(), 8);
    appendNumber(out, 0, 8);
    appendNumber(out, table, 8);
    return {std::move(out), {}};
}

} // namespace kelvane
