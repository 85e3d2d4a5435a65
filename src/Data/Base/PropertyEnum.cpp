#include "Data/Base/PropertyEnum.h"

#include <Poco/Exception.h>

#include "InternTable.h"

namespace Kivo::Data::Base {

// The words in use, one shared copy per declared list, keyed by that list: lists a service
// changes at run time do not pile up.
struct PropertyValueEnum::SharedWordsKey {
    typedef EnumValues key_type;
    static const EnumValues& keyOf(const SharedWords& words) { return words.declared; }
    static bool less(const EnumValues& a, const EnumValues& b) { return a < b; }
};

std::shared_ptr<const PropertyValueEnum::SharedWords> PropertyValueEnum::wordsOf(
    const EnumValues& values) {
    EnumValues declared;
    EnumValueSet seen;
    for (const std::string& word : values) {
        if (seen.insert(word).second) declared.push_back(word);
    }
    // Never destroyed: values of static storage may go after any static table would.
    static auto* const table = new InternTable<SharedWords, SharedWordsKey>;
    return table->intern(declared, [&declared] {
        return new SharedWords{EnumValueSet(declared.begin(), declared.end()), declared};
    });
}

PropertyValueEnum::PropertyValueEnum(const EnumValues& values)
    : PropertyValueString(std::string(), STRING_FORMAT_TEXT), m_words(wordsOf(values)) {
    if (!values.empty()) m_value = values.front();
}

PropertyValueEnum::PropertyValueEnum(const value_type& value, const EnumValues& values)
    : PropertyValueString(value, STRING_FORMAT_TEXT), m_words(wordsOf(values)) {
    if (!isValidValue(value)) {
        throw Poco::AssertionViolationException("Initialising Enum property with invalid value!");
    }
}

void PropertyValueEnum::setEnumValues(const EnumValues& values) {
    m_words = wordsOf(values);
    // Virtual on purpose: a derived kind's stricter check decides what must be replaced.
    if (!isValidValue(m_value)) m_value = values.empty() ? UNDEFINED_VALUE : values.front();
}

void PropertyValueEnum::addEnumValue(const value_type& word) {
    if (m_words->set.count(word) != 0) return;
    EnumValues declared = m_words->declared;
    declared.push_back(word);
    m_words = wordsOf(declared);
}

bool PropertyValueEnum::isValidValue(const std::string& value) const {
    return m_words->set.empty() || m_words->set.count(value) > 0;
}

}  // namespace Kivo::Data::Base
