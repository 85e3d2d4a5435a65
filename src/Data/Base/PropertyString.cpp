#include "Data/Base/PropertyString.h"

#include <cstddef>
#include <vector>

namespace Kivo::Data::Base {

const std::string REGEX_FORMAT_ANY = ".*";
const std::string REGEX_DATE = "[0-9]{4}-([0][1-9]|[1][0-2])-([0][1-9]|[12][0-9]|3[01])";
const std::string REGEX_TIME = R"(\d{2}:\d{2}:\d{2}(\.\d{3})?((Z|(\+|\-)\d{2}:\d{2})))";
const std::string REGEX_FORMAT_DATE = "^" + REGEX_DATE + "$";
const std::string REGEX_FORMAT_TIME = "^" + REGEX_TIME + "$";
const std::string REGEX_FORMAT_DATE_TIME = "^" + REGEX_DATE + "T" + REGEX_TIME + "$";
const std::string REGEX_FORMAT_LANGUAGE = "^([a-z]{2})(-[a-z]+)?$";
const std::string REGEX_FORMAT_SERVICECATEGORY =
    "^addresses|auth|car|cdn|charging|ev|search|hybrid|map(rendering)?|inputdevices|"
    "media(library)?|mixer|navigation|communication|system|radio|speech|swdl$";
const std::string REGEX_FORMAT_VERSION_NUMBER = R"(^v?\d+(\.\d+)?(\.\d+)?)";
const std::string REGEX_FORMAT_POINT_2D = R"(^\d{6};\d{6}$)";
const std::string REGEX_FORMAT_RECTANGLE_2D = R"(^\d{6};\d{6};\d{6};\d{6}$)";

const char* const PropertyValueString::UNDEFINED_VALUE = "<undefined>";

template class PropertyValue<std::string>;
template class PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_SERVICECATEGORY>;
template class PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_VERSION>;
template class PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_CUSTOM>;

namespace {

typedef Poco::SharedPtr<Poco::RegularExpression> CheckPtr;

// Case-sensitive, studied.
CheckPtr compile(const std::string& pattern) {
    return CheckPtr(new Poco::RegularExpression(pattern, 0, true));
}

// The pattern of a format that has a check, else null.
const std::string* formatPattern(PropertyValueString::FormatType format) {
    switch (format) {
        case PropertyValueString::STRING_FORMAT_DATE:
            return &REGEX_FORMAT_DATE;
        case PropertyValueString::STRING_FORMAT_TIME:
            return &REGEX_FORMAT_TIME;
        case PropertyValueString::STRING_FORMAT_DATETIME:
            return &REGEX_FORMAT_DATE_TIME;
        case PropertyValueString::STRING_FORMAT_LANGUAGE:
            return &REGEX_FORMAT_LANGUAGE;
        case PropertyValueString::STRING_FORMAT_SERVICECATEGORY:
            return &REGEX_FORMAT_SERVICECATEGORY;
        case PropertyValueString::STRING_FORMAT_VERSION:
            return &REGEX_FORMAT_VERSION_NUMBER;
        case PropertyValueString::STRING_FORMAT_CUSTOM:
            return &REGEX_FORMAT_ANY;
        case PropertyValueString::STRING_POINT_2D:
            return &REGEX_FORMAT_POINT_2D;
        case PropertyValueString::STRING_RECTANGLE_2D:
            return &REGEX_FORMAT_RECTANGLE_2D;
        default:
            return nullptr;
    }
}

// The one compiled check of `format` in this process, or null where the format has none.
//
// Every value of a format shares this expression, and several threads may match it at once:
// in Poco 1.11 RegularExpression::match(subject, offset) keeps its Match and the ovector it
// hands to pcre_exec on its own stack and only reads the compiled pattern and its study data
// (studied without JIT), and pcre_exec is re-entrant on a shared compiled pattern.
//
// The table is built on first use, after this file's pattern constants: no value of this
// library is constructed by a static initialiser.
CheckPtr sharedFormatCheck(PropertyValueString::FormatType format) {
    static const std::vector<CheckPtr> checks = [] {
        std::vector<CheckPtr> compiled;
        for (int f = 0; f <= PropertyValueString::STRING_RECTANGLE_2D; ++f) {
            const std::string* pattern = formatPattern(PropertyValueString::FormatType(f));
            compiled.push_back(pattern != nullptr ? compile(*pattern) : CheckPtr());
        }
        return compiled;
    }();
    const auto index = static_cast<std::size_t>(format);
    return index < checks.size() ? checks[index] : CheckPtr();
}

}  // namespace

PropertyValueString::PropertyValueString(FormatType format)
    : PropertyValueString(UNDEFINED_VALUE, format) {}

PropertyValueString::PropertyValueString(const std::string& value, FormatType format)
    : PropertyValue<std::string>(value), m_formatType(format) {
    initFormatCheck();
}

void PropertyValueString::initFormatCheck() {
    CheckPtr check = sharedFormatCheck(m_formatType);
    if (!check.isNull()) m_formatCheck = check;
}

bool PropertyValueString::setCustomFormat(const std::string& pattern) {
    if (m_formatType != STRING_FORMAT_CUSTOM) return false;
    const CheckPtr kept = m_formatCheck;
    replaceFormatCheck(pattern);
    if (isValidValue(m_value)) return true;
    m_formatCheck = kept;
    return false;
}

bool PropertyValueString::isValidValue(const std::string& value) const {
    return m_formatCheck.isNull() || m_formatCheck->match(value, 0);
}

bool PropertyValueString::parseString(const std::string& text, std::string& out) const {
    out = text;
    return true;
}

void PropertyValueString::replaceFormatCheck(const std::string& pattern) {
    m_formatCheck = pattern.empty() ? CheckPtr() : compile(pattern);
}

PropertyValueCustomString::PropertyValueCustomString(const std::string& value,
                                                     const std::string& pattern)
    : PropertyValueFormatedString(value) {
    replaceFormatCheck(pattern);
}

}  // namespace Kivo::Data::Base
