#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYURI_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYURI_H

#include <string>
#include <vector>

#include <Poco/Dynamic/Var.h>
#include <Poco/URI.h>

#include "Data/Base/PropertyValue.h"

namespace Kivo::Data::Base {

// Doxygen would list these specializations as members of every value class; the class
// comment of PropertyValueUri carries their contract into the reference.
/// \cond
// URIs order by their path texts alone, byte-wise; scheme, authority, query and fragment play
// no part. Equality stays the URI library's comparison of whole URIs, so two URIs with the
// same path on different hosts are unequal, yet neither is less than the other, compare()
// yields 0, and an ordered container treats them as one key.
template <>
bool PropertyValue<Poco::URI>::operator<(const PropertyValue<Poco::URI>& other) const;
template <>
bool PropertyValue<Poco::URI>::operator>(const PropertyValue<Poco::URI>& other) const;
/// \endcond

extern template class PropertyValue<Poco::URI>;

/// A URI; the empty URI is refused. Its text is the URI library's.
///
/// URIs order by their path texts alone, byte-wise; scheme, authority, query and fragment play
/// no part. Equality stays the URI library's comparison of whole URIs, so two URIs with the
/// same path on different hosts are unequal, yet neither is less than the other, compare()
/// yields 0, and an ordered container treats them as one key.
class PropertyValueUri : public PropertyValue<Poco::URI> {
public:
    /// The empty URI.
    PropertyValueUri() : PropertyValue<Poco::URI>(Poco::URI()) {}
    /// Holds `uri`, unchecked (so possibly the empty URI).
    explicit PropertyValueUri(const Poco::URI& uri) : PropertyValue<Poco::URI>(uri) {}
    /// Throws Poco::SyntaxException when the URI library rejects `text`.
    explicit PropertyValueUri(const std::string& text)
        : PropertyValue<Poco::URI>(Poco::URI(text)) {}
    /// A copy holding the same URI.
    PropertyValueUri(const PropertyValueUri&) = default;
    /// Takes `other`'s URI, unchecked.
    PropertyValueUri& operator=(const PropertyValueUri&) = default;

    /// The URI's text (std::string).
    Poco::Dynamic::Var getGenericValue() const override { return m_value.toString(); }
    /// Whether `uri` is not the empty URI.
    bool isValidValue(const Poco::URI& uri) const override { return !uri.empty(); }
    /// A syntax error of the URI library logs "Error: Failed to parse value for
    /// PropertyValueUri: " and the error's text, and returns false; other exceptions pass.
    bool parseString(const std::string& text, Poco::URI& out) const override;

    /// The path split into its segments by the URI library.
    std::vector<std::string> getPathSegments() const;
};

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYURI_H
