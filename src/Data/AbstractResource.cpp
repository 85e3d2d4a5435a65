#include "Data/AbstractResource.h"

#include <Poco/Exception.h>

#include "Data/Service.h"
#include "Logging/Log.h"

namespace Kivo::Data {

const std::string AbstractResource::KEY_DESCRIPTION = "description";

AbstractResource::AbstractResource(Service& service, const std::string& typeName)
    : XObject(Type(typeName, service)),
      m_service(service),
      m_description(KEY_DESCRIPTION, this, Base::PropertyValueString(std::string())) {
    registerOwnProperties();
}

AbstractResource::AbstractResource(Service& service, const std::string& typeName,
                                   const std::string& name, const Base::PropertyValueUuid& id)
    : XObject(Type(typeName, service), Base::PropertyValueString(name), id),
      m_service(service),
      m_description(KEY_DESCRIPTION, this, Base::PropertyValueString(std::string())) {
    registerOwnProperties();
}

AbstractResource::~AbstractResource() {
    if (!m_service.unregisterResource(this)) {
        QES_LOG_ERROR("Failed to unregister resource " << getName().getValue()
                                                       << " from parent service "
                                                       << m_service.getName().getValue());
    }
}

void AbstractResource::registerOwnProperties() {
    registerProperty(KEY_DESCRIPTION, &m_description);
    setUri(Base::PropertyValueUri(getType().path + getType().name));
}

void AbstractResource::init() {
    if (!m_service.registerResource(this)) {
        throw Poco::AssertionViolationException("Failed to register resource " +
                                                getName().getValue() + " to parent service " +
                                                m_service.getName().getValue());
    }
}

}  // namespace Kivo::Data
