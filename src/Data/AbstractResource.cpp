#include "Data/AbstractResource.h"

#include <Poco/Exception.h>

#include "Data/Service.h"
#include "Logging/Log.h"

namespace Kivo::Data {

const std::string AbstractResource::KEY_DESCRIPTION = "description";

Poco::JSON::Object::Ptr IContainerObject::getSpecificationAsJSON() const {
    return new Poco::JSON::Object();
}

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

std::size_t AbstractResource::size() const { return 0; }

void AbstractResource::clear() {}

OperationResult AbstractResource::addElement(const Poco::JSON::Object*) {
    return OperationResult(OperationResult::INVALID_OPERATION);
}

bool AbstractResource::hasElement(const Poco::UUID&) const { return false; }

OperationResult AbstractResource::getElement(const Poco::UUID&, Ptr&) const {
    return OperationResult(OperationResult::INVALID_OPERATION);
}

OperationResult AbstractResource::getElements(ElementQueryResult&, int, int) const {
    return OperationResult(OperationResult::INVALID_OPERATION);
}

OperationResult AbstractResource::removeElement(const Poco::UUID&) {
    return OperationResult(OperationResult::INVALID_OPERATION);
}

OperationResult AbstractResource::updateElementFromJSON(const Poco::UUID&,
                                                        const Poco::JSON::Object*) {
    return OperationResult(OperationResult::INVALID_OPERATION);
}

OperationResult AbstractResource::initResourceDataFromJSON(const Poco::JSON::Array*) {
    return OperationResult(OperationResult::INVALID_OPERATION);
}

Poco::JSON::Object::Ptr AbstractResource::getDataAsJSON(int depth) const {
    Poco::JSON::Array::Ptr elements = new Poco::JSON::Array();
    ElementQueryResult all;
    if (getElements(all, 0, static_cast<int>(size())).isSuccess()) {
        for (const Ptr& element : all) elements->add(element->toJSON(depth));
    }
    Poco::JSON::Object::Ptr json = new Poco::JSON::Object();
    json->set("elements", elements);
    return json;
}

std::set<Base::PropertyKey> AbstractResource::getRequiredProperties() const { return {}; }

bool AbstractResource::isGetAllowed() const { return true; }

bool AbstractResource::isPostAllowed() const { return false; }

bool AbstractResource::isPostAllowed(const Base::PropertyKey&) const { return false; }

bool AbstractResource::isDeleteAllowed() const { return false; }

}  // namespace Kivo::Data
