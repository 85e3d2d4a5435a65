#include "Data/Base/PropertyString.h"

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

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

typedef Poco::RegularExpression Check;

// Case-sensitive, studied. A malformed pattern throws Poco::RegularExpressionException.
std::unique_ptr<Check> compile(const std::string& pattern) {
    return std::make_unique<Check>(pattern, 0, true);
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

constexpr std::size_t FIXED_FORMATS = PropertyValueString::STRING_RECTANGLE_2D + 1;

// The one compiled check of each fixed format in this process, null where the format has none.
//
// Every value of a format shares this expression, and several threads may match it at once:
// in Poco 1.11 RegularExpression::match(subject, offset) keeps its Match and the ovector it
// hands to pcre_exec on its own stack and only reads the compiled pattern and its study data
// (studied without JIT), and pcre_exec is re-entrant on a shared compiled pattern.
//
// Built on first use, after this file's pattern constants: no value of this library is
// constructed by a static initialiser. Never destroyed, as values may outlive static
// destruction.
struct FixedChecks {
    FixedChecks() {
        for (std::size_t f = 0; f < FIXED_FORMATS; ++f) {
            const std::string* pattern = formatPattern(PropertyValueString::FormatType(f));
            if (pattern != nullptr) checks[f] = compile(*pattern);
        }
    }
    std::unique_ptr<Check> checks[FIXED_FORMATS];
};

const Check* sharedFormatCheck(PropertyValueString::FormatType format) {
    static const FixedChecks* const fixed = new FixedChecks;
    const auto index = static_cast<std::size_t>(format);
    return index < FIXED_FORMATS ? fixed->checks[index].get() : nullptr;
}

// The check of a custom pattern, compiled the first time any value installs it and kept for
// the rest of the process.
const Check* sharedPatternCheck(const std::string& pattern) {
    static std::mutex* const mutex = new std::mutex;
    static std::map<std::string, std::unique_ptr<Check>>* const checks =
        new std::map<std::string, std::unique_ptr<Check>>;
    std::lock_guard<std::mutex> lock(*mutex);
    auto found = checks->find(pattern);
    if (found == checks->end()) found = checks->emplace(pattern, compile(pattern)).first;
    return found->second.get();
}

}  // namespace

const PropertyValueString::Format* PropertyValueString::internFormat(FormatType type,
                                                                     const Check* check) {
    // The fixed formats with their own checks, which nearly every value has, without a lock.
    static const Format* const fixed = [] {
        Format* made = new Format[FIXED_FORMATS];
        for (std::size_t f = 0; f < FIXED_FORMATS; ++f) {
            made[f] = Format{FormatType(f), sharedFormatCheck(FormatType(f))};
        }
        return made;
    }();
    const auto index = static_cast<std::size_t>(type);
    if (index < FIXED_FORMATS && check == fixed[index].check) {
        return type == STRING_FORMAT_TEXT ? nullptr : &fixed[index];
    }
    static std::mutex* const mutex = new std::mutex;
    static std::map<std::pair<int, const Check*>, Format>* const others =
        new std::map<std::pair<int, const Check*>, Format>;
    std::lock_guard<std::mutex> lock(*mutex);
    return &others->emplace(std::make_pair(int(type), check), Format{type, check}).first->second;
}

PropertyValueString::PropertyValueString(FormatType format)
    : PropertyValueString(UNDEFINED_VALUE, format) {}

PropertyValueString::PropertyValueString(const std::string& value, FormatType format)
    : PropertyValue<std::string>(value),
      m_format(internFormat(format, sharedFormatCheck(format))) {}

void PropertyValueString::initFormatCheck() {
    const FormatType type = getFormatType();
    if (const Check* shared = sharedFormatCheck(type)) m_format = internFormat(type, shared);
}

bool PropertyValueString::setCustomFormat(const std::string& pattern) {
    if (getFormatType() != STRING_FORMAT_CUSTOM) return false;
    const Format* const kept = m_format;
    replaceFormatCheck(pattern);
    if (isValidValue(m_value)) return true;
    m_format = kept;
    return false;
}

bool PropertyValueString::isValidValue(const std::string& value) const {
    const Check* const formatCheck = check();
    return formatCheck == nullptr || formatCheck->match(value, 0);
}

bool PropertyValueString::parseString(const std::string& text, std::string& out) const {
    out = text;
    return true;
}

void PropertyValueString::replaceFormatCheck(const std::string& pattern) {
    m_format =
        internFormat(getFormatType(), pattern.empty() ? nullptr : sharedPatternCheck(pattern));
}

PropertyValueCustomString::PropertyValueCustomString(const std::string& value,
                                                     const std::string& pattern)
    : PropertyValueFormatedString(value) {
    replaceFormatCheck(pattern);
}

}  // namespace Kivo::Data::Base
