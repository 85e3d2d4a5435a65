#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYSTRING_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYSTRING_H

#include <string>

#include <Poco/Dynamic/Var.h>
#include <Poco/RegularExpression.h>

#include "Data/Base/PropertyValue.h"

namespace Kivo::Data::Base {

/// @name String format patterns
/// The patterns of the string formats. A format check always matches the whole text from its
/// first character, so the service-category alternation needs no grouping and the version
/// pattern no closing "$".
///@{

/// Any text but the empty one: the check of STRING_FORMAT_CUSTOM until a pattern is set.
extern const std::string REGEX_FORMAT_ANY;
/// A date YYYY-MM-DD (months 01 to 12, days 01 to 31), unanchored: a part of the date formats.
extern const std::string REGEX_DATE;
/// A time hh:mm:ss (two digits each), optionally ".mmm", then a zone, "Z" or "+hh:mm" or
/// "-hh:mm", which is required; unanchored: a part of the time formats.
extern const std::string REGEX_TIME;
/// STRING_FORMAT_DATE: one REGEX_DATE, such as "2024-02-29".
extern const std::string REGEX_FORMAT_DATE;
/// STRING_FORMAT_TIME: one REGEX_TIME, such as "08:30:00Z".
extern const std::string REGEX_FORMAT_TIME;
/// STRING_FORMAT_DATETIME: a date, "T" and a time, such as "2024-02-29T08:30:00.000+01:00".
extern const std::string REGEX_FORMAT_DATE_TIME;
/// STRING_FORMAT_LANGUAGE: two lower-case letters, then optionally "-" and a lower-case
/// subtag: "en", "en-gb" (not "en-GB").
extern const std::string REGEX_FORMAT_LANGUAGE;
/// STRING_FORMAT_SERVICECATEGORY: one of the words addresses, auth, car, cdn, charging, ev,
/// search, hybrid, map, maprendering, inputdevices, media, medialibrary, mixer, navigation,
/// communication, system, radio, speech and swdl.
extern const std::string REGEX_FORMAT_SERVICECATEGORY;
/// STRING_FORMAT_VERSION: an optional "v" and one to three numbers joined by dots: "2",
/// "v1.4", "1.4.2".
extern const std::string REGEX_FORMAT_VERSION_NUMBER;
/// STRING_POINT_2D: two six-digit numbers joined by ";": "000120;000340".
extern const std::string REGEX_FORMAT_POINT_2D;
/// STRING_RECTANGLE_2D: four six-digit numbers joined by ";".
extern const std::string REGEX_FORMAT_RECTANGLE_2D;
///@}

extern template class PropertyValue<std::string>;

/// A text value with a format fixed at construction. Every format but STRING_FORMAT_TEXT (and
/// numbers outside the enum) carries a compiled check that each new text must match as a
/// whole, case-sensitively; the empty text never passes a check.
///
/// Constructors store their text without checking it, so a fresh value holds "<undefined>"
/// even where its own format would refuse that text.
///
/// Every check is compiled once per process and shared by every value that has it: a fixed
/// format's check, and a custom pattern's, which is kept for the rest of the process once any
/// value installed it (clients use a handful of patterns, and values are many). Copies share
/// the check too. The shared expression is only ever matched, never changed, and matching one
/// compiled expression from several threads at once is safe.
///
/// Ordering and equality compare the texts byte-wise; the format plays no part.
class PropertyValueString : public PropertyValue<std::string> {
public:
    /// The format of a string value, fixed at construction. Numbers outside the enumerators
    /// are allowed and carry no check.
    enum FormatType : int {
        /// Free text, unchecked.
        STRING_FORMAT_TEXT = 0,
        /// Checked by REGEX_FORMAT_DATE.
        STRING_FORMAT_DATE = 1,
        /// Checked by REGEX_FORMAT_TIME.
        STRING_FORMAT_TIME = 2,
        /// Checked by REGEX_FORMAT_DATE_TIME.
        STRING_FORMAT_DATETIME = 3,
        /// Checked by REGEX_FORMAT_LANGUAGE.
        STRING_FORMAT_LANGUAGE = 4,
        /// Checked by REGEX_FORMAT_SERVICECATEGORY.
        STRING_FORMAT_SERVICECATEGORY = 5,
        /// Checked by REGEX_FORMAT_VERSION_NUMBER.
        STRING_FORMAT_VERSION = 6,
        /// Checked by REGEX_FORMAT_ANY until setCustomFormat installs another pattern.
        STRING_FORMAT_CUSTOM = 7,
        /// Checked by REGEX_FORMAT_POINT_2D.
        STRING_POINT_2D = 8,
        /// Checked by REGEX_FORMAT_RECTANGLE_2D.
        STRING_RECTANGLE_2D = 9,
    };

    /// "<undefined>": the text of a value constructed without one.
    static const char* const UNDEFINED_VALUE;

    /// Holds "<undefined>" in `format`, with that format's shared check installed.
    explicit PropertyValueString(FormatType format = STRING_FORMAT_TEXT);
    /// Holds `value` unchecked in `format`, with that format's shared check installed.
    explicit PropertyValueString(const std::string& value, FormatType format = STRING_FORMAT_TEXT);
    /// A copy with the same text, format and check.
    PropertyValueString(const PropertyValueString&) = default;
    /// Takes `other`'s text, format and check, without checking the text.
    PropertyValueString& operator=(const PropertyValueString&) = default;

    /// The format given at construction.
    FormatType getFormatType() const {
        return m_format != nullptr ? m_format->type : STRING_FORMAT_TEXT;
    }
    /// Installs the shared compiled check of the current format, replacing any other check. For
    /// STRING_FORMAT_TEXT and numbers outside the enum the check stays as it is. The first call
    /// in the process compiles every format's pattern once; later calls only share them.
    void initFormatCheck();
    /// For a STRING_FORMAT_CUSTOM value only (false otherwise, nothing changed): an empty
    /// pattern drops the check; any other is compiled (once per process) and installed unless
    /// the current text fails it, in which case the earlier check stays and the result is
    /// false. A malformed pattern throws Poco::RegularExpressionException and the earlier check
    /// stays.
    bool setCustomFormat(const std::string& pattern);

    Poco::Dynamic::Var getGenericValue() const override { return m_value; }
    /// The stored text, without the round trip through a variant.
    std::string toString() const override { return m_value; }
    bool matches(const Poco::RegularExpression& re) const override { return re.match(m_value, 0); }
    /// True without check; else whether the check matches the whole of `value`.
    bool isValidValue(const std::string& value) const override;
    /// Checks and stores `text` as setValue does; text needs no parsing.
    bool setValueFromString(const std::string& text) override { return setValue(text); }
    /// Copies `text`; never fails.
    bool parseString(const std::string& text, std::string& out) const override;

    /// The text as a C string, valid until the text next changes.
    operator const char*() const { return m_value.c_str(); }

protected:
    /// Installs `pattern`, compiled once per process, whatever the current text; an empty
    /// pattern drops the check. A malformed pattern throws Poco::RegularExpressionException
    /// and leaves the check as it was.
    void replaceFormatCheck(const std::string& pattern);

private:
    // A format with its check (null when unconstrained), one per distinct pair in the process.
    struct Format {
        FormatType type;
        const Poco::RegularExpression* check;
    };

    static const Format* internFormat(FormatType type, const Poco::RegularExpression* check);
    const Poco::RegularExpression* check() const {
        return m_format != nullptr ? m_format->check : nullptr;
    }

    // Null for STRING_FORMAT_TEXT without check. Shared, never modified, never freed.
    const Format* m_format;
};

/// A string of the fixed format F.
template <PropertyValueString::FormatType F>
class PropertyValueFormatedString : public PropertyValueString {
public:
    /// Holds "<undefined>", unchecked.
    PropertyValueFormatedString() : PropertyValueString(F) {}
    /// Stores `value` unchecked, as every string constructor does.
    explicit PropertyValueFormatedString(const std::string& value)
        : PropertyValueString(value, F) {}
    /// A copy with the same text and check.
    PropertyValueFormatedString(const PropertyValueFormatedString&) = default;
    /// Takes `other`'s text and check, without checking the text.
    PropertyValueFormatedString& operator=(const PropertyValueFormatedString&) = default;
};

extern template class PropertyValueFormatedString<
    PropertyValueString::STRING_FORMAT_SERVICECATEGORY>;
extern template class PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_VERSION>;
extern template class PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_CUSTOM>;

/// A string checked by a pattern of the client's choice (see setCustomFormat); REGEX_FORMAT_ANY
/// until one is set, which refuses only the empty text.
class PropertyValueCustomString
    : public PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_CUSTOM> {
public:
    /// Holds "<undefined>", checked by REGEX_FORMAT_ANY until a pattern is set.
    PropertyValueCustomString() = default;
    /// Holds `value` unchecked, checked by REGEX_FORMAT_ANY until a pattern is set.
    explicit PropertyValueCustomString(const std::string& value)
        : PropertyValueFormatedString(value) {}
    /// Stores `value` unchecked, as every string constructor does, and installs `pattern`
    /// whether or not `value` satisfies it: the pattern governs every later write, and a value
    /// declared with the "<undefined>" placeholder keeps its pattern. An empty pattern leaves
    /// the value unconstrained; a malformed one throws Poco::RegularExpressionException.
    PropertyValueCustomString(const std::string& value, const std::string& pattern);
    /// A copy with the same text and pattern.
    PropertyValueCustomString(const PropertyValueCustomString&) = default;
    /// Takes `other`'s text and pattern, without checking the text.
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
