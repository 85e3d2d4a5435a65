#include "Data/AbstractResource.h"

#include <algorithm>

#include <Poco/Exception.h>

#include "Data/Base/PropertyEnum.h"
#include "Data/Base/PropertyNumber.h"
#include "Data/OptionalProperty.h"
#include "Data/Service.h"
#include "ElementWatch.h"
#include "Logging/Log.h"

namespace Kivo::Data {

using Util::ScopedRecursiveWriteLock;

const std::string AbstractResource::KEY_DESCRIPTION = "description";

Poco::JSON::Object::Ptr IContainerObject::getSpecificationAsJSON() const {
    return new Poco::JSON::Object();
}

AbstractResource::AbstractResource(Service& service, const std::string& typeName)
    : XObject(Type(typeName, service)),
      m_service(service),
      m_description(KEY_DESCRIPTION, this, Base::PropertyValueString(std::string())),
      m_watch(std::make_shared<ElementWatch>(*this)) {
    registerOwnProperties();
}

AbstractResource::AbstractResource(Service& service, const std::string& typeName,
                                   const std::string& name, const Base::PropertyValueUuid& id)
    : XObject(Type(typeName, service), Base::PropertyValueString(name), id),
      m_service(service),
      m_description(KEY_DESCRIPTION, this, Base::PropertyValueString(std::string())),
      m_watch(std::make_shared<ElementWatch>(*this)) {
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
    // One lock guards the whole tree: service, resources and the elements they hold.
    adoptPropertyLock(m_service);
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

OperationResult AbstractResource::withdrawElement(const Poco::UUID&) {
    return OperationResult(OperationResult::INVALID_OPERATION);
}

OperationResult AbstractResource::findElements(const Base::PropertyIndexQuery&,
                                               ElementQueryResult&) const {
    return OperationResult(OperationResult::INVALID_OPERATION);
}

OperationResult AbstractResource::updateElementFromJSON(const Poco::UUID&,
                                                        const Poco::JSON::Object*) {
    return OperationResult(OperationResult::INVALID_OPERATION);
}

OperationResult AbstractResource::modifyElement(const Poco::UUID&, const Modification&) {
    return OperationResult(OperationResult::INVALID_OPERATION);
}

OperationResult AbstractResource::initResourceDataFromJSON(const Poco::JSON::Array*) {
    return OperationResult(OperationResult::INVALID_OPERATION);
}

AbstractResource::Ptr AbstractResource::createDetachedElement() const { return Ptr(); }

Poco::JSON::Object::Ptr AbstractResource::toJSON(int depth) const { return Object::toJSON(depth); }

Poco::JSON::Object::Ptr AbstractResource::toJSON(bool withElements, int depth) const {
    Poco::JSON::Object::Ptr json = toJSON(depth);
    if (withElements) json->set("elements", getDataAsJSON(depth)->getArray("elements"));
    return json;
}

Poco::JSON::Object::Ptr AbstractResource::elementsAsJSON(
    const std::function<Poco::JSON::Object::Ptr(const Element&)>& render) const {
    // Held until the listed Ptrs are gone: the container still holds every listed element, so
    // none of them is destroyed here, outside the write lock, while others read references to it.
    Util::ScopedRecursiveReadLock lock(lockRef());
    Poco::JSON::Array::Ptr elements = new Poco::JSON::Array();
    ElementQueryResult all;
    if (getElements(all, 0, static_cast<int>(size())).isSuccess()) {
        for (const Ptr& element : all) elements->add(render(*element));
    }
    Poco::JSON::Object::Ptr json = new Poco::JSON::Object();
    json->set("elements", elements);
    return json;
}

Poco::JSON::Object::Ptr AbstractResource::getDataAsJSON(int depth) const {
    return elementsAsJSON([depth](const Element& element) { return element.toJSON(depth); });
}

Poco::JSON::Object::Ptr AbstractResource::getDataAsJSON(
    const std::vector<std::string>& expand) const {
    return elementsAsJSON([&expand](const Element& element) { return element.toJSON(expand); });
}

OperationResult AbstractResource::initResourceFromJSON(const Poco::JSON::Object* json) {
    static const char* const FAILED = "Failed to initialise resource object from JSON: ";
    if (json == nullptr) {
        QES_LOG_ERROR(FAILED << " JSON object is null pointer");
        return OperationResult(OperationResult::PROCESSING_ERROR);
    }
    ScopedRecursiveWriteLock lock(lockRef());
    for (const Base::PropertyKey& key : getKnownPropertyKeys()) {
        Base::PropertyBase* property = findProperty(key);
        if (property == nullptr) {
            QES_LOG_ERROR(FAILED << " property " << key
                                 << " is not properly registered for Service " << getType().name);
            return OperationResult(OperationResult::PROCESSING_ERROR);
        }
        const OperationResult result = initPropertyFromJSON(json, *property);
        if (!result.isSuccess()) {
            QES_LOG_ERROR(FAILED << " could not initialise property " << key);
            return result;
        }
    }
    return OperationResult(OperationResult::OK);
}

void AbstractResource::onElementDataChanged(Element::DataChangedEventPayload&) {}

void AbstractResource::onDataChanged(Element::DataChangedEventPayload& payload) {
    onElementDataChanged(payload);
}

void AbstractResource::onOptionalPropertyChanged(
    Element::OptionalPropertySetEventPayload& payload) {
    const std::string& typeName = getType().name;
    QES_LOG_TRACE("Resource " << typeName << " onOptionalPropertyChanged");
    Base::PropertyBase* property = payload.getSourceProperty();
    if (property == nullptr || property->getParent() == nullptr) {
        QES_LOG_WARNING("Resource " << typeName
                                    << " received notification from an invalid optional property");
        return;
    }
    const Poco::UUID id = property->getParent()->getIdentification();
    QES_LOG_TRACE("Resource " << typeName << " received notification from element "
                              << id.toString());
    if (!hasElement(id)) {
        QES_LOG_WARNING("Resource " << typeName << " received notification from unknown element "
                                    << id.toString());
        return;
    }
    if (!indexNewProperty(*property)) {
        QES_LOG_WARNING("Resource " << typeName << ": Failed to register new element property "
                                    << property->getKey());
    }
}

std::vector<Base::PropertyKey> AbstractResource::getElementPropertyKeys() const {
    return PropertyIndexUser::getPropertyKeys();
}

AbstractResource::Ptr AbstractResource::buildElement(const Poco::JSON::Object& json,
                                                     const std::function<Element*()>& build) {
    Poco::UUID id;
    // The id member is read in place (get() would copy it). The members come ordered by key.
    const Poco::Dynamic::Var* member = nullptr;
    for (const auto& entry : json) {
        const int order = entry.first.compare(KEY_ID);
        if (order == 0) member = &entry.second;
        if (order >= 0) break;
    }
    const bool identified = member != nullptr && member->isString() &&
                            Base::PropertyValueUuid::parseText(member->extract<std::string>(), id) &&
                            !id.isNull();
    // Whatever `build` does, the preset ends with it.
    struct Preset {
        explicit Preset(const Poco::UUID* id) { Element::presetNextId(id); }
        Preset(const Preset&) = delete;
        Preset& operator=(const Preset&) = delete;
        ~Preset() { Element::presetNextId(nullptr); }
    } preset(identified ? &id : nullptr);
    return Ptr(build());
}

OperationResult AbstractResource::initElement(Element& element, const Poco::JSON::Object* json) {
    return element.initElementFromJSON(json);
}

namespace {

// getElementPropertyKeys lists the index keys in order: a search among them needs no set built
// for every element.
bool contains(const std::vector<std::string>& sortedKeys, const std::string& key) {
    return std::binary_search(sortedKeys.begin(), sortedKeys.end(), key);
}

}  // namespace

void AbstractResource::indexElementProperties(Element& element) {
    registerIndexedProperties(element.getProperties());
}

void AbstractResource::unindexElementProperties(Element& element) {
    const std::vector<std::string> indexed = getElementPropertyKeys();
    for (Base::PropertyBase* property : element.getProperties()) {
        if (contains(indexed, property->getKey())) unregisterPropertyAtIndex(property);
    }
}

bool AbstractResource::indexNewProperty(Base::PropertyBase& property) {
    const std::vector<std::string> keys = getElementPropertyKeys();
    if (std::find(keys.begin(), keys.end(), property.getKey()) == keys.end()) return true;
    return registerPropertyAtIndex(&property);
}

void AbstractResource::registerElementEvents(Element& element) {
    if (element.m_resource != this) {
        throw Poco::InvalidArgumentException("Element of another resource");
    }
    m_watch->observe(element);
}

void AbstractResource::unregisterElementEvents(Element& element) {
    if (element.m_resource != this) {
        throw Poco::InvalidArgumentException("Element of another resource");
    }
    m_watch->unobserve(element);
}

void AbstractResource::setHeldEntry(Element& element, const Ptr* entry) {
    element.m_heldEntry = entry;
}

const AbstractResource::Ptr* AbstractResource::heldEntry(const Element& element) const {
    return element.m_resource == this ? element.m_heldEntry : nullptr;
}

void AbstractResource::announceAdded(Element& element) {
    element.m_held = true;
    if (IElementObserver* observer = m_service.getElementObserver()) {
        observer->elementAdded(*this, element);
    }
}

void AbstractResource::announceRemoved(Element& element) {
    if (IElementObserver* observer = m_service.getElementObserver()) {
        observer->elementRemoved(*this, element);
    }
    element.m_held = false;
}

std::set<Base::PropertyKey> AbstractResource::getRequiredProperties() const { return {}; }

bool AbstractResource::isGetAllowed() const { return true; }

bool AbstractResource::isPostAllowed() const { return false; }

bool AbstractResource::isPostAllowed(const Base::PropertyKey&) const { return false; }

bool AbstractResource::isDeleteAllowed() const { return false; }

}  // namespace Kivo::Data

namespace Kivo::Data {

namespace {

const char* formatName(Base::PropertyValueString::FormatType format) {
    static const char* const NAMES[] = {"text",     "date",    "time",   "date-time",
                                        "language", "service-category", "version",
                                        "custom",   "point",   "rectangle"};
    const int index = static_cast<int>(format);
    return index >= 0 && index < 10 ? NAMES[index] : "text";
}

template <class T>
void setIfSet(Poco::JSON::Object& json, const std::string& name, const Poco::Nullable<T>& value) {
    if (!value.isNull()) json.set(name, value.value());
}

Poco::JSON::Object::Ptr describe(const Base::PropertyBase& property) {
    const Base::PropertyValueBase& value = property.getPropertyValueBase();
    Poco::JSON::Object::Ptr json = new Poco::JSON::Object;
    if (value.isReference()) {
        json->set("kind", "reference");
    } else if (value.isArray()) {
        json->set("kind", "array");
    } else if (dynamic_cast<const Base::PropertyValueBoolean*>(&value) != nullptr) {
        json->set("kind", "boolean");
    } else if (const auto* number =
                   dynamic_cast<const Base::PropertyValueNumberBase<long>*>(&value)) {
        json->set("kind", "integer");
        setIfSet(*json, "minimum", number->getMinValue());
        setIfSet(*json, "maximum", number->getMaxValue());
        setIfSet(*json, "resolution", number->getResolution());
    } else if (const auto* enumeration = dynamic_cast<const Base::PropertyValueEnum*>(&value)) {
        json->set("kind", "enum");
        Poco::JSON::Array::Ptr values = new Poco::JSON::Array;
        for (const std::string& word : enumeration->getEnumValues()) values->add(word);
        json->set("values", values);
    } else if (const auto* text = dynamic_cast<const Base::PropertyValueString*>(&value)) {
        json->set("kind", "string");
        json->set("format", formatName(text->getFormatType()));
    } else if (dynamic_cast<const Base::PropertyValueUri*>(&value) != nullptr) {
        json->set("kind", "uri");
    } else if (dynamic_cast<const Base::PropertyValueUuid*>(&value) != nullptr) {
        json->set("kind", "uuid");
    } else {
        json->set("kind", "value");
    }
    json->set("default", property.toJSON(0));
    return json;
}

}  // namespace

Poco::JSON::Object::Ptr AbstractResource::specificationOf(Element& prototype) const {
    Util::ScopedRecursiveWriteLock lock(*prototype.getLock());
    std::set<Base::PropertyKey> optional;
    for (OptionalPropertyBase* handle = prototype.m_optionalProperties; handle != nullptr;
         handle = handle->m_nextOptional) {
        handle->initPropertyValue();
        optional.insert(handle->key);
    }
    Poco::JSON::Object::Ptr properties = new Poco::JSON::Object;
    for (const Base::PropertyBase* property : prototype.getProperties()) {
        Poco::JSON::Object::Ptr json = describe(*property);
        json->set("optional", optional.count(property->getKey()) != 0);
        json->set("writable", prototype.isPostAllowed(property->getKey()));
        properties->set(property->getKey(), json);
    }
    Poco::JSON::Array::Ptr required = new Poco::JSON::Array;
    for (const Base::PropertyKey& key : getRequiredProperties()) required->add(key);
    Poco::JSON::Object::Ptr result = new Poco::JSON::Object;
    result->set("element", prototype.getType().name);
    result->set("required", required);
    result->set("properties", properties);
    return result;
}

}  // namespace Kivo::Data
