#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYUUID_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYUUID_H

#include <string>

#include <Poco/Dynamic/Var.h>
#include <Poco/UUID.h>

#include "Data/Base/PropertyValue.h"

namespace Kivo::Data::Base {

extern template class PropertyValue<Poco::UUID>;

// A UUID; the null UUID is refused. Ordering and equality are the UUID library's.
class PropertyValueUuid : public PropertyValue<Poco::UUID> {
public:
    // A new random UUID, so default values are distinct and valid.
    PropertyValueUuid();
    explicit PropertyValueUuid(const Poco::UUID& uuid) : PropertyValue<Poco::UUID>(uuid) {}
    // Throws Poco::SyntaxException for a malformed `text`.
    explicit PropertyValueUuid(const std::string& text)
        : PropertyValue<Poco::UUID>(Poco::UUID(text)) {}
    PropertyValueUuid(const PropertyValueUuid&) = default;
    PropertyValueUuid& operator=(const PropertyValueUuid&) = default;

    // The canonical lower-case text with hyphens (std::string).
    Poco::Dynamic::Var getGenericValue() const override { return m_value.toString(); }
    bool isValidValue(const Poco::UUID& uuid) const override { return uuid != Poco::UUID::null(); }
    // Logs nothing on failure.
    bool parseString(const std::string& text, Poco::UUID& out) const override {
        return out.tryParse(text);
    }
};

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYUUID_H
