#include "MemberCheck.h"

#include <cmath>
#include <sstream>
#include <typeinfo>
#include <vector>

#include <Poco/Exception.h>
#include <Poco/JSON/Array.h>
#include <Poco/JSON/Parser.h>
#include <Poco/NumberFormatter.h>

#include "Data/Base/PropertyEnum.h"
#include "Data/Base/PropertyNumber.h"
#include "Data/Base/PropertyString.h"
#include "Data/Base/PropertyUri.h"
#include "Data/Base/PropertyUuid.h"
#include "Data/OptionalProperty.h"

namespace Kivo::Client {

using Data::OperationResult;
using Data::Base::PropertyValueBase;
using Data::Base::PropertyValueString;

namespace {

// Client texts are echoed in reasons only this far, cut at a character boundary.
const std::size_t QUOTED_BYTES = 64;

// The text in double quotes, with quotes and backslashes escaped and control characters shown
// as "?", so that a reason stays one readable line.
std::string quoted(const std::string& text) {
    std::size_t end = text.size();
    if (end > QUOTED_BYTES) {
        end = QUOTED_BYTES;
        while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    }
    std::string result = "\"";
    for (std::size_t i = 0; i < end; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == '"' || c == '\\') result += '\\';
        result += c < 0x20 || c == 0x7F ? '?' : static_cast<char>(c);
    }
    return result + (end < text.size() ? "...\"" : "\"");
}

bool isFractional(const Poco::Dynamic::Var& member) {
    const double number = member.convert<double>();
    return number != std::floor(number);
}

std::string typeName(const Poco::Dynamic::Var& member) {
    if (member.isEmpty()) return "null";
    if (member.isBoolean()) return "a boolean";
    if (member.isInteger()) return "an integer";
    if (member.isNumeric()) return isFractional(member) ? "a number with a fraction" : "a number";
    if (member.isString()) return "a string";
    if (member.isArray()) return "an array";
    return "an object";
}

// The items of an array member, in whichever representation it came.
Poco::JSON::Array::Ptr arrayOf(const Poco::Dynamic::Var& member) {
    if (member.type() == typeid(Poco::JSON::Array::Ptr)) {
        return member.extract<Poco::JSON::Array::Ptr>();
    }
    Poco::JSON::Parser parser;
    return parser.parse(member.convert<std::string>()).extract<Poco::JSON::Array::Ptr>();
}

const char* formatReason(PropertyValueString::FormatType format) {
    switch (format) {
        case PropertyValueString::STRING_FORMAT_DATE:
            return "is not a date (YYYY-MM-DD)";
        case PropertyValueString::STRING_FORMAT_TIME:
            return "is not a time (hh:mm:ss with a zone, like 08:30:00Z)";
        case PropertyValueString::STRING_FORMAT_DATETIME:
            return "is not a date and time (YYYY-MM-DDThh:mm:ss with a zone)";
        case PropertyValueString::STRING_FORMAT_LANGUAGE:
            return "is not a language (like en or en-gb)";
        case PropertyValueString::STRING_FORMAT_SERVICECATEGORY:
            return "is not a service category";
        case PropertyValueString::STRING_FORMAT_VERSION:
            return "is not a version (like 1.4.2)";
        case PropertyValueString::STRING_FORMAT_CUSTOM:
            return "does not match the property's pattern";
        case PropertyValueString::STRING_POINT_2D:
            return "is not a point (like 000120;000340)";
        case PropertyValueString::STRING_RECTANGLE_2D:
            return "is not a rectangle (four six-digit numbers joined by ;)";
        default:
            return "is not a valid value";
    }
}

std::string enumReason(const Data::Base::PropertyValueEnum& value) {
    std::string words;
    for (const std::string& word : value.getDeclaredEnumValues()) {
        words += (words.empty() ? "" : ", ") + word;
    }
    return "is not one of " + words;
}

std::string integerReason(const Data::Base::PropertyValueNumberBase<long>& value,
                          const std::string& text) {
    long number = 0;
    if (!value.parseString(text, number)) return "is not an integer";
    if (!value.getMinValue().isNull() && number < value.getMinValue().value()) {
        return "is below the minimum " + Poco::NumberFormatter::format(value.getMinValue().value());
    }
    if (!value.getMaxValue().isNull() && number > value.getMaxValue().value()) {
        return "is above the maximum " + Poco::NumberFormatter::format(value.getMaxValue().value());
    }
    return "is not accepted";
}

}  // namespace

MemberCheck::MemberCheck(const Data::Base::PropertyKey& key, const PropertyValueBase& value)
    : m_key(key), m_value(&value), m_optional(nullptr), m_kind(kindOf(&value)) {}

MemberCheck::MemberCheck(const Data::Base::PropertyKey& key,
                         const Data::OptionalPropertyBase& optional)
    : m_key(key),
      m_value(optional.getPrototype()),
      m_optional(&optional),
      m_kind(kindOf(m_value)) {}

MemberCheck::Kind MemberCheck::kindOf(const PropertyValueBase* value) {
    if (value == nullptr) return KIND_OTHER;
    if (value->isReference()) return KIND_STRING;
    if (value->isArray()) return KIND_ARRAY;
    // By the stored type: every text kind (formats, enums) stores a std::string.
    const std::type_info& type = value->type();
    if (type == typeid(bool)) return KIND_BOOLEAN;
    if (type == typeid(long)) return KIND_INTEGER;
    if (type == typeid(std::string) || type == typeid(Poco::URI) || type == typeid(Poco::UUID)) {
        return KIND_STRING;
    }
    return KIND_OTHER;
}

OperationResult MemberCheck::checkType(const Poco::Dynamic::Var& member) const {
    const std::string mismatch = typeMismatch(member);
    if (!mismatch.empty()) return refused(OperationResult::WRONG_PROPERTY_TYPE, mismatch);
    if (m_kind == KIND_INTEGER && !fitsInteger(member)) {
        return refused(OperationResult::INVALID_VALUE,
                       member.convert<std::string>() + " is beyond the 64-bit integer range");
    }
    return OperationResult(OperationResult::OK);
}

OperationResult MemberCheck::explain(const Poco::Dynamic::Var& member) const {
    const std::string text = textOf(member);
    if (accepts(text)) return OperationResult(OperationResult::OK);
    return refused(OperationResult::INVALID_VALUE, refusal(text));
}

bool MemberCheck::accepts(const std::string& text) const {
    if (m_optional != nullptr) return m_optional->isValidValue(text);
    return m_value->toString() == text || m_value->isValidStringValue(text);
}

std::string MemberCheck::typeMismatch(const Poco::Dynamic::Var& member) const {
    switch (m_kind) {
        case KIND_BOOLEAN:
            if (member.isBoolean()) return std::string();
            return "expects true or false, got " + typeName(member);
        case KIND_INTEGER:
            if (!member.isBoolean() && member.isNumeric() && !isFractional(member)) {
                return std::string();
            }
            return "expects an integer, got " + typeName(member);
        case KIND_ARRAY: {
            if (!member.isArray()) return "expects an array of strings, got " + typeName(member);
            const Poco::JSON::Array::Ptr items = arrayOf(member);
            for (std::size_t i = 0; i < items->size(); ++i) {
                const Poco::Dynamic::Var item = items->get(i);
                if (!item.isString()) {
                    return "expects an array of strings, got an array holding " + typeName(item);
                }
            }
            return std::string();
        }
        case KIND_STRING:
        case KIND_OTHER:
            break;
    }
    if (member.isString()) return std::string();
    return "expects a string, got " + typeName(member);
}

bool MemberCheck::fitsInteger(const Poco::Dynamic::Var& member) {
    if (member.isInteger()) {
        try {
            member.convert<Poco::Int64>();
            return true;
        } catch (const Poco::RangeException&) {
            return false;
        }
    }
    // 2^63 is exact as a double; every integral double below it in magnitude fits.
    const double number = member.convert<double>();
    return number >= -9223372036854775808.0 && number < 9223372036854775808.0;
}

std::string MemberCheck::textOf(const Poco::Dynamic::Var& member) const {
    if (m_kind == KIND_INTEGER) {
        return Poco::NumberFormatter::format(
            member.isInteger() ? member.convert<Poco::Int64>()
                               : static_cast<Poco::Int64>(member.convert<double>()));
    }
    return member.isString() ? member.extract<std::string>() : member.convert<std::string>();
}

std::string MemberCheck::refusal(const std::string& text) const {
    if (m_value == nullptr) return quoted(text) + " is not a valid value";
    const PropertyValueBase& value = *m_value;
    if (const auto* number =
            dynamic_cast<const Data::Base::PropertyValueNumberBase<long>*>(&value)) {
        return text + " " + integerReason(*number, text);
    }
    if (value.isArray()) {
        std::vector<std::string> items;
        if (Data::Base::parseJsonArrayItems(text, items)) {
            for (const std::string& item : items) {
                Poco::JSON::Array single;
                single.add(item);
                std::ostringstream json;
                single.stringify(json);
                if (!value.isValidStringValue(json.str())) {
                    return "item " + quoted(item) + " does not have the format of the items";
                }
            }
        }
        return "is not a valid array";
    }
    if (value.isReference()) {
        return quoted(text) + " does not name an element this property may refer to";
    }
    if (const auto* enumeration = dynamic_cast<const Data::Base::PropertyValueEnum*>(&value)) {
        return quoted(text) + " " + enumReason(*enumeration);
    }
    if (const auto* string = dynamic_cast<const PropertyValueString*>(&value)) {
        return quoted(text) + " " + formatReason(string->getFormatType());
    }
    if (dynamic_cast<const Data::Base::PropertyValueUri*>(&value) != nullptr) {
        return quoted(text) + " is not a URI";
    }
    if (const auto* uuid = dynamic_cast<const Data::Base::PropertyValueUuid*>(&value)) {
        Poco::UUID parsed;
        return quoted(text) +
               (uuid->parseString(text, parsed) ? " is the null UUID" : " is not a UUID");
    }
    return quoted(text) + " is not a valid value";
}

OperationResult MemberCheck::refused(OperationResult::Value code, const std::string& reason) const {
    return OperationResult(code, m_key + ": " + reason);
}

}  // namespace Kivo::Client
