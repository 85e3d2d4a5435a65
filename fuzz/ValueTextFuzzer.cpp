// Text parsing of every value kind. Whatever the text: isValidStringValue answers what
// setValueFromString does, a refused text leaves the value as it was, and an accepted one is
// ordered consistently and reads back from its own text form as an equal value.
//
// Input: a byte naming the kind, the kind's settings one per line, then the text.
//   b<text>                            boolean
//   n<min>\n<max>\n<resolution>\n<text>  number; a setting that is no number stays unset
//   s<format byte><text>               string of format (byte % 12) - 1, unknown ones included
//   c<pattern>\n<text>                 custom string
//   e<word,word,...>\n<value>\n<text>    enum, from the words alone and with <value>
//   u<text>, i<text>                   URI, UUID
//   a<text>, g<text>, v<text>          arrays of strings, service categories, versions
//   r<allowed type>\n<text>            reference without resolver; an empty line allows any type
// Any other first byte picks one of these by its value.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <Poco/Exception.h>
#include <Poco/Nullable.h>
#include <Poco/NumberParser.h>
#include <Poco/RegularExpression.h>
#include <Poco/URI.h>

#include "Data/Base/PropertyEnum.h"
#include "Data/Base/PropertyNumber.h"
#include "Data/Base/PropertyString.h"
#include "Data/Base/PropertyUri.h"
#include "Data/Base/PropertyUuid.h"
#include "Data/Base/PropertyValue.h"
#include "Data/XObjectReference.h"
#include "FuzzSupport.h"

namespace {

using Kivo::Data::XObjectReference;
using Kivo::Data::Base::PropertyValueArray;
using Kivo::Data::Base::PropertyValueBoolean;
using Kivo::Data::Base::PropertyValueCustomString;
using Kivo::Data::Base::PropertyValueEnum;
using Kivo::Data::Base::PropertyValueFormatedString;
using Kivo::Data::Base::PropertyValueNumberBase;
using Kivo::Data::Base::PropertyValueString;
using Kivo::Data::Base::PropertyValueUri;
using Kivo::Data::Base::PropertyValueUuid;
using Kivo::Fuzz::InputReader;

typedef PropertyValueNumberBase<long> Number;
typedef PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_SERVICECATEGORY> Category;
typedef PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_VERSION> Version;

// compare() orders: antisymmetric, and in line with the typed operators.
template <class V>
void checkOrdering(const V& a, const V& b) {
    const int ab = a.compare(b);
    QES_FUZZ_CHECK(ab == -b.compare(a), "compare is not antisymmetric");
    QES_FUZZ_CHECK((ab < 0) == (a < b), "compare disagrees with operator<");
    QES_FUZZ_CHECK((ab > 0) == (a > b), "compare disagrees with operator>");
    QES_FUZZ_CHECK(a.compare(a) == 0, "a value does not compare equal to itself");
}

template <class V>
void checkReadsBack(const V& prototype, const V& value) {
    const std::string text = value.toString();
    V again(prototype);
    QES_FUZZ_CHECK(again.setValueFromString(text), "a value's own text is refused: " + text);
    QES_FUZZ_CHECK(again == value, "a value's own text reads back as another value: " + text);
}

// A URI's text is the URI library's print, which need not read back: it prints "http://h?q"
// as another URI, "http://h/?q", and "\x99p://" as "\x99p:", which its parser refuses. The
// text is read again all the same, for whatever the library does with it.
void checkReadsBack(const PropertyValueUri& prototype, const PropertyValueUri& value) {
    PropertyValueUri again(prototype);
    again.setValueFromString(value.toString());
}

// Whether the URI library reads its print of `uri` back as the same URI. It does not for
// every URI: one with an empty scheme and a colon in its path (":a:/b") prints as "a:/b", whose
// scheme is "a".
bool uriReadsBack(const Poco::URI& uri) {
    try {
        return Poco::URI(uri.toString()) == uri;
    } catch (const Poco::SyntaxException&) {
        return false;
    }
}

// A reference's text is its target's JSON. The JSON library prints a string's bytes as they
// are and its parser refuses what is not UTF-8, so a placeholder made from a URI holding such
// bytes has a text that does not read back, nor does one whose URI's print does not read back
// (see above); any other text does.
void checkReadsBack(const XObjectReference& prototype, const XObjectReference& value) {
    const std::string text = value.toString();
    if (Kivo::Fuzz::parseJson(text).isEmpty()) return;
    const Kivo::Data::XObject* target = value.getValue();
    if (target != nullptr && !uriReadsBack(target->getUri().getValue())) return;
    XObjectReference again(prototype);
    QES_FUZZ_CHECK(again.setValueFromString(text), "a reference's own text is refused: " + text);
    QES_FUZZ_CHECK(again == value, "a reference's own text reads back as another: " + text);
}

template <class V>
void checkText(const V& prototype, const std::string& text) {
    const bool valid = prototype.isValidStringValue(text);
    V value(prototype);
    const bool accepted = value.setValueFromString(text);
    QES_FUZZ_CHECK(valid == accepted, "isValidStringValue and setValueFromString disagree");
    if (!accepted) {
        QES_FUZZ_CHECK(value == prototype, "a refused text changed the value");
        return;
    }
    static const Poco::RegularExpression anyText(".+", 0, true);
    value.matches(anyText);
    value.toJSON(1);
    checkOrdering(value, prototype);
    checkReadsBack(prototype, value);
}

Poco::Nullable<long> setting(const std::string& line) {
    Poco::Int64 value = 0;
    if (!Poco::NumberParser::tryParse64(line, value)) return Poco::Nullable<long>();
    return Poco::Nullable<long>(value);
}

// setValue stores a multiple of the resolution (rounded to the nearest one, or toward zero
// where away from zero would overflow) that lies within the limits; or it refuses and keeps
// the old value.
void checkRounding(const Number& prototype, long given) {
    Number value(prototype);
    if (!value.setValue(given)) {
        QES_FUZZ_CHECK(value == prototype, "a refused number changed the value");
        return;
    }
    const long stored = value.getValue();
    QES_FUZZ_CHECK(prototype.isValidValue(stored), "a stored number breaks the limits");
    const Poco::Nullable<long>& resolution = prototype.getResolution();
    if (resolution.isNull() || resolution.value() == -1) {
        QES_FUZZ_CHECK(stored == given, "a number without rounding changed");
        return;
    }
    const long step = resolution.value();
    if (step == 0) {
        QES_FUZZ_CHECK(stored == 0, "a resolution of 0 did not give 0");
        return;
    }
    QES_FUZZ_CHECK(stored % step == 0, "a stored number is no multiple of the resolution");
    if (step > 0) {
        const unsigned long distance = stored >= given ? static_cast<unsigned long>(stored) - given
                                                       : static_cast<unsigned long>(given) - stored;
        QES_FUZZ_CHECK(distance < static_cast<unsigned long>(step),
                       "a number was rounded past the nearest multiples");
    }
}

void checkNumber(InputReader& input) {
    const Poco::Nullable<long> minimum = setting(input.line());
    const Poco::Nullable<long> maximum = setting(input.line());
    const Poco::Nullable<long> resolution = setting(input.line());
    const Number prototype(0, minimum, maximum, resolution);
    const std::string text = input.rest();
    checkText(prototype, text);
    Poco::Int64 given = 0;
    if (Poco::NumberParser::tryParse64(text, given, ',')) checkRounding(prototype, given);
}

void checkCustom(InputReader& input) {
    const std::string pattern = input.line();
    const std::string text = input.rest();
    try {
        checkText(PropertyValueCustomString(PropertyValueString::UNDEFINED_VALUE, pattern), text);
        PropertyValueCustomString custom(text);
        if (custom.setCustomFormat(pattern)) {
            QES_FUZZ_CHECK(custom.isValidValue(text), "a pattern was installed its value fails");
            checkText(custom, text);
        } else {
            QES_FUZZ_CHECK(
                custom.isValidValue(text) == PropertyValueCustomString().isValidValue(text),
                "a refused pattern changed the check in force");
        }
    } catch (const Poco::RegularExpressionException&) {
        // A malformed pattern, or a match the expression library gave up on: both are the
        // expression library's answers and pass through.
    }
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    if (text.empty()) return parts;
    std::size_t start = 0;
    for (std::size_t end = text.find(separator); end != std::string::npos;
         end = text.find(separator, start)) {
        parts.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    parts.push_back(text.substr(start));
    return parts;
}

bool contains(const std::vector<std::string>& words, const std::string& word) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

void checkEnum(InputReader& input) {
    const PropertyValueEnum::EnumValues words = split(input.line(), ',');
    const std::string initial = input.line();
    const std::string text = input.rest();
    const PropertyValueEnum listed(words);
    QES_FUZZ_CHECK(listed.getValue() == (words.empty() ? std::string() : words.front()),
                   "an enum does not start with its first word");
    checkText(listed, text);
    try {
        checkText(PropertyValueEnum(initial, words), text);
        QES_FUZZ_CHECK(words.empty() || contains(words, initial),
                       "an enum was built holding a word it does not allow");
    } catch (const Poco::AssertionViolationException&) {
        QES_FUZZ_CHECK(!words.empty() && !contains(words, initial),
                       "an enum refused to be built with an allowed word");
    }
    PropertyValueEnum changed(listed);
    const PropertyValueEnum::EnumValues others = split(text, ',');
    changed.setEnumValues(others);
    QES_FUZZ_CHECK(changed.isValidValue(changed.getValue()) || others.empty(),
                   "an enum kept a word it no longer allows");
}

// Beyond the text: every element of a parsed array is found, removing each takes exactly one,
// and adding the texts back one by one gives the same array.
template <class E>
void checkArray(const E& prototypeElement, const std::string& text) {
    const PropertyValueArray<E> prototype(prototypeElement);
    checkText(prototype, text);
    PropertyValueArray<E> array(prototype);
    if (!array.setValueFromString(text)) return;
    const PropertyValueArray<E> parsed(array);
    const std::vector<E> elements = array;
    for (const E& element : elements) {
        QES_FUZZ_CHECK(array.hasElement(element), "an element of the array is not found");
        const std::size_t size = array.size();
        QES_FUZZ_CHECK(array.removeElement(element) && array.size() == size - 1,
                       "removing an element did not take exactly one");
    }
    for (const E& element : elements) {
        QES_FUZZ_CHECK(array.addElement(element.getValue()),
                       "an element text accepted in JSON is refused alone");
    }
    QES_FUZZ_CHECK(array == parsed, "adding the elements back gave another array");
}

void checkReference(InputReader& input) {
    const std::string allowed = input.line();
    XObjectReference::OneOf types;
    if (!allowed.empty()) types.insert(allowed);
    checkText(XObjectReference(nullptr, types), input.rest());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    Kivo::Fuzz::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const char KINDS[] = "bnsceuiagvr";
    InputReader input(data, size);
    const char kind = input.choice(KINDS);
    switch (kind) {
        case 'b':
            checkText(PropertyValueBoolean(false), input.rest());
            break;
        case 'n':
            checkNumber(input);
            break;
        case 's': {
            const auto format = PropertyValueString::FormatType(input.byte() % 12 - 1);
            checkText(PropertyValueString(format), input.rest());
            break;
        }
        case 'c':
            checkCustom(input);
            break;
        case 'e':
            checkEnum(input);
            break;
        case 'u':
            checkText(PropertyValueUri(), input.rest());
            break;
        case 'i':
            checkText(PropertyValueUuid(Poco::UUID("2c9a4f1e-7b3d-4e8a-9c61-5d2f0b7e8a14")),
                      input.rest());
            break;
        case 'a':
            checkArray(PropertyValueString(""), input.rest());
            break;
        case 'g':
            checkArray(Category(), input.rest());
            break;
        case 'v':
            checkArray(Version(), input.rest());
            break;
        default:
            checkReference(input);
            break;
    }
    return 0;
}
