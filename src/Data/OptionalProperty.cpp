#include "Data/OptionalProperty.h"

#include <Poco/Bugcheck.h>

#include "Logging/Log.h"

namespace Kivo::Data {

OptionalPropertyBase::OptionalPropertyBase(const Base::PropertyKey& propertyKey,
                                           const std::type_info& propertyValueType,
                                           Element& parent)
    : key(propertyKey), valueType(propertyValueType), m_parent(parent), m_isInitialValue(true) {
    if (!m_parent.registerOptionalProperty(this)) {
        QES_LOG_WARNING("Self-registration of optional property "
                        << key << " for element " << m_parent.getType().identifier
                        << " has failed");
        poco_bugcheck_msg("Registration of optional property has failed");
    }
}

OptionalPropertyBase::~OptionalPropertyBase() {
    try {
        m_parent.unregisterOptionalProperty(this);
    } catch (...) {
        poco_unexpected();
    }
}

void OptionalPropertyBase::announceFirstValue() {
    m_parent.raiseDataChanged(IElementDataChangedSource::DataChangedEventPayload(m_parent, key));
}

}  // namespace Kivo::Data
