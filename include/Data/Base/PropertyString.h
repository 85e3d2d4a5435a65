#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYSTRING_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYSTRING_H

#include <string>

#include <Poco/Dynamic/Var.h>
#include <Poco/RegularExpression.h>
#include <Poco/SharedPtr.h>

#include "Data/Base/PropertyValue.h"

namespace Kivo::Data::Base {

// The patterns of the string formats. A format check always matches the whole text from its
// first character, so the service-category alternation needs no grouping and the version
// pattern no closing "$".
extern const std::string REGEX_FORMAT_ANY;
extern const std::string REGEX_DATE;
extern const std::string REGEX_TIME;
extern const std::string REGEX_FORMAT_DATE;
extern const std::string REGEX_FORMAT_TIME;
extern const std::string REGEX_FORMAT_DATE_TIME;
extern const std::string REGEX_FORMAT_LANGUAGE;
extern const std::string REGEX_FORMAT_SERVICECATEGORY;
extern const std::string REGEX_FORMAT_VERSION_NUMBER;
extern const std::string REGEX_FORMAT_POINT_2D;
extern const std::string REGEX_FORMAT_RECTANGLE_2D;

extern template class PropertyValue<std::string>;

// A text value with a format fixed at construction. Every format but STRING_FORMAT_TEXT (and
// numbers outside the enum) carries a compiled check that each new text must match as a
// whole, case-sensitively; the empty text never passes a check.
//
// Constructors store their text without checking it, so a fresh value holds "<undefined>"
// even where its own format would refuse that text.
//
// The compiled check of a fixed format is built once per process and shared by every value
// of that format; copies share the check too. The shared expression is only ever matched,
// never changed, and matching one compiled expression from several threads at once is safe.
//
// Ordering and equality compare the texts byte-wise; the format plays no part.
class PropertyValueString : public PropertyValue<std::string> {
public:
    // Numbers outside the enumerators are allowed and carry no check.
    enum FormatType : int {
        STRING_FORMAT_TEXT = 0,
        STRING_FORMAT_DATE = 1,
        STRING_FORMAT_TIME = 2,
        STRING_FORMAT_DATETIME = 3,
        STRING_FORMAT_LANGUAGE = 4,
        STRING_FORMAT_SERVICECATEGORY = 5,
        STRING_FORMAT_VERSION = 6,
        // Checked by REGEX_FORMAT_ANY until setCustomFormat installs another pattern.
        STRING_FORMAT_CUSTOM = 7,
        STRING_POINT_2D = 8,
        STRING_RECTANGLE_2D = 9,
    };

    // "<undefined>": the text of a value constructed without one.
    static const char* const UNDEFINED_VALUE;

    explicit PropertyValueString(FormatType format = STRING_FORMAT_TEXT);
    explicit PropertyValueString(const std::string& value, FormatType format = STRING_FORMAT_TEXT);
    PropertyValueString(const PropertyValueString&) = default;
    PropertyValueString& operator=(const PropertyValueString&) = default;

    FormatType getFormatType() const { return m_formatType; }
    // Installs the shared compiled check of the current format, replacing any other check. For
    // STRING_FORMAT_TEXT and numbers outside the enum the check stays as it is. The first call
    // in the process compiles every format's pattern once; later calls only share them.
    void initFormatCheck();
    // For a STRING_FORMAT_CUSTOM value only (false otherwise, nothing changed): an empty
    // pattern drops the check; any other is compiled and installed unless the current text
    // fails it, in which case the earlier check stays and the result is false. A malformed
    // pattern throws Poco::RegularExpressionException and the earlier check stays.
    bool setCustomFormat(const std::string& pattern);

    Poco::Dynamic::Var getGenericValue() const override { return m_value; }
    // The stored text, without the round trip through a variant.
    std::string toString() const override { return m_value; }
    bool matches(const Poco::RegularExpression& re) const override { return re.match(m_value, 0); }
    // True without check; else whether the check matches the whole of `value`.
    bool isValidValue(const std::string& value) const override;
    // Checks and stores `text` as setValue does; text needs no parsing.
    bool setValueFromString(const std::string& text) override { return setValue(text); }
    // Copies `text`; never fails.
    bool parseString(const std::string& text, std::string& out) const override;

    operator const char*() const { return m_value.c_str(); }

protected:
    // Installs `pattern`, compiled for this value alone, whatever the current text; an empty
    // pattern drops the check. A malformed pattern throws Poco::RegularExpressionException
    // and leaves the check as it was.
    void replaceFormatCheck(const std::string& pattern);

private:
    FormatType m_formatType;
    // Empty when unconstrained. The pointee is shared and never modified.
    Poco::SharedPtr<Poco::RegularExpression> m_formatCheck;
};

// A string of the fixed format F.
template <PropertyValueString::FormatType F>
class PropertyValueFormatedString : public PropertyValueString {
public:
    PropertyValueFormatedString() : PropertyValueString(F) {}
    // Stores `value` unchecked, as every string constructor does.
    explicit PropertyValueFormatedString(const std::string& value)
        : PropertyValueString(value, F) {}
    PropertyValueFormatedString(const PropertyValueFormatedString&) = default;
    PropertyValueFormatedString& operator=(const PropertyValueFormatedString&) = default;
};

extern template class PropertyValueFormatedString<
    PropertyValueString::STRING_FORMAT_SERVICECATEGORY>;
extern template class PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_VERSION>;
extern template class PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_CUSTOM>;

// A string checked by a pattern of the client's choice (see setCustomFormat); REGEX_FORMAT_ANY
// until one is set, which refuses only the empty text.
class PropertyValueCustomString
    : public PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_CUSTOM> {
public:
    PropertyValueCustomString() = default;
    explicit PropertyValueCustomString(const std::string& value)
        : PropertyValueFormatedString(value) {}
    // Stores `value` unchecked, as every string constructor does, and installs `pattern`
    // whether or not `value` satisfies it: the pattern governs every later write, and a value
    // declared with the "<undefined>" placeholder keeps its pattern. An empty pattern leaves
    // the value unconstrained; a malformed one throws Poco::RegularExpressionException.
    PropertyValueCustomString(const std::string& value, const std::string& pattern);
    PropertyValueCustomString(const PropertyValueCustomString&) = default;
    PropertyValueCustomString& operator=(const PropertyValueCustomString&) = default;
};

// The string arrays the library instantiates; PropertyValue.h defines the template.
extern template class PropertyValueArray<PropertyValueString>;
extern template class PropertyValueArray<
    PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_SERVICECATEGORY>>;
extern template class PropertyValueArray<
    PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_VERSION>>;

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYSTRING_H
