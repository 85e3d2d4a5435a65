#include "Data/Base/PropertyEnum.h"

#include <Poco/Exception.h>

namespace Kivo::Data::Base {

PropertyValueEnum::PropertyValueEnum(const EnumValues& values)
    : PropertyValueString(std::string(), STRING_FORMAT_TEXT),
      m_enumValues(values.begin(), values.end()),
      m_declaredValues(withoutRepeats(values)) {
    if (!values.empty()) m_value = values.front();
}

PropertyValueEnum::PropertyValueEnum(const value_type& value, const EnumValues& values)
    : PropertyValueString(value, STRING_FORMAT_TEXT),
      m_enumValues(values.begin(), values.end()),
      m_declaredValues(withoutRepeats(values)) {
    if (!isValidValue(value)) {
        throw Poco::AssertionViolationException("Initialising Enum property with invalid value!");
    }
}

void PropertyValueEnum::setEnumValues(const EnumValues& values) {
    m_enumValues = EnumValueSet(values.begin(), values.end());
    m_declaredValues = withoutRepeats(values);
    // Virtual on purpose: a derived kind's stricter check decides what must be replaced.
    if (!isValidValue(m_value)) m_value = values.empty() ? UNDEFINED_VALUE : values.front();
}

void PropertyValueEnum::addEnumValue(const value_type& word) {
    if (m_enumValues.insert(word).second) m_declaredValues.push_back(word);
}

PropertyValueEnum::EnumValues PropertyValueEnum::withoutRepeats(const EnumValues& values) {
    EnumValues kept;
    EnumValueSet seen;
    for (const std::string& word : values) {
        if (seen.insert(word).second) kept.push_back(word);
    }
    return kept;
}

bool PropertyValueEnum::isValidValue(const std::string& value) const {
    return m_enumValues.empty() || m_enumValues.count(value) > 0;
}

}  // namespace Kivo::Data::Base
