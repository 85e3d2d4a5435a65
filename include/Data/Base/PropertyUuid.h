#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYUUID_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYUUID_H

#include <string>

#include <Poco/Dynamic/Var.h>
#include <Poco/UUID.h>

#include "Data/Base/PropertyValue.h"

namespace Kivo::Data::Base {

extern template class PropertyValue<Poco::UUID>;

/// A UUID; the null UUID is refused. Ordering and equality are the UUID library's.
class PropertyValueUuid : public PropertyValue<Poco::UUID> {
public:
    /// A new random UUID, so default values are distinct and valid.
    PropertyValueUuid();
    /// Holds `uuid`, unchecked (so possibly the null UUID).
    explicit PropertyValueUuid(const Poco::UUID& uuid) : PropertyValue<Poco::UUID>(uuid) {}
    /// Throws Poco::SyntaxException for a malformed `text`.
    explicit PropertyValueUuid(const std::string& text)
        : PropertyValue<Poco::UUID>(Poco::UUID(text)) {}
    /// A copy holding the same UUID.
    PropertyValueUuid(const PropertyValueUuid&) = default;
    /// Takes `other`'s UUID, unchecked.
    PropertyValueUuid& operator=(const PropertyValueUuid&) = default;

    /// The canonical lower-case text with hyphens (std::string).
    Poco::Dynamic::Var getGenericValue() const override { return textOf(m_value); }
    /// Whether `uuid` is not the null UUID.
    bool isValidValue(const Poco::UUID& uuid) const override { return uuid != Poco::UUID::null(); }
    /// Reads a UUID in the UUID library's text forms; false for any other text. Logs nothing on
    /// failure.
    bool parseString(const std::string& text, Poco::UUID& out) const override {
        return out.tryParse(text);
    }

    /// The text of `uuid` as Poco::UUID::toString() writes it (lower-case hex, 8-4-4-4-12),
    /// written without its per-digit appends: ids are written out on every element added.
    static std::string textOf(const Poco::UUID& uuid);
};

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYUUID_H
