#include "Data/Base/PropertyUri.h"

#include <Poco/Exception.h>

#include "Logging/Log.h"

namespace Kivo::Data::Base {

template <>
bool PropertyValue<Poco::URI>::operator<(const PropertyValue<Poco::URI>& other) const {
    return m_value.getPath() < other.m_value.getPath();
}

template <>
bool PropertyValue<Poco::URI>::operator>(const PropertyValue<Poco::URI>& other) const {
    return m_value.getPath() > other.m_value.getPath();
}

template class PropertyValue<Poco::URI>;

bool PropertyValueUri::parseString(const std::string& text, Poco::URI& out) const {
    try {
        out = text;
    } catch (const Poco::SyntaxException& e) {
        QES_LOG_ERROR("Failed to parse value for PropertyValueUri: " << e.displayText());
        return false;
    }
    return true;
}

std::vector<std::string> PropertyValueUri::getPathSegments() const {
    std::vector<std::string> segments;
    m_value.getPathSegments(segments);
    return segments;
}

}  // namespace Kivo::Data::Base
