#include "Data/Base/PropertyEnum.h"

#include <Poco/Exception.h>

namespace Kivo::Data::Base {

PropertyValueEnum::PropertyValueEnum(const EnumValues& values)
    : PropertyValueString(std::string(), STRING_FORMAT_TEXT),
      m_enumValues(values.begin(), values.end()) {
    if (!values.empty()) m_value = values.front();
}

PropertyValueEnum::PropertyValueEnum(const value_type& value, const EnumValues& values)
    : PropertyValueString(value, STRING_FORMAT_TEXT), m_enumValues(values.begin(), values.end()) {
    if (!isValidValue(value)) {
        throw Poco::AssertionViolationException("Initialising Enum property with invalid value!");
    }
}

void PropertyValueEnum::setEnumValues(const EnumValues& values) {
    m_enumValues = EnumValueSet(values.begin(), values.end());
    // Virtual on purpose: a derived kind's stricter check decides what must be replaced.
    if (!isValidValue(m_value)) m_value = values.empty() ? UNDEFINED_VALUE : values.front();
}

bool PropertyValueEnum::isValidValue(const std::string& value) const {
    return m_enumValues.empty() || m_enumValues.count(value) > 0;
}

}  // namespace Kivo::Data::Base
