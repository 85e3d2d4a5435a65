#include "Client/ResourceDescription.h"

#include <string>
#include <typeinfo>

#include <Poco/JSON/Array.h>

#include "Data/AbstractResource.h"
#include "Data/Base/PropertyEnum.h"
#include "Data/OptionalProperty.h"
#include "Data/XObjectReference.h"
#include "Util/RecursiveRWLock.h"

namespace Kivo::Client {

using Data::Base::PropertyValueBase;

namespace {

template <class Words>
Poco::JSON::Array::Ptr arrayOf(const Words& words) {
    Poco::JSON::Array::Ptr result = new Poco::JSON::Array;
    for (const std::string& word : words) result->add(word);
    return result;
}

// The value a fresh element holds under `key`, or the prototype of an optional property
// (unset in a fresh element); null when there is neither. REQUIRES: the element's read lock.
const PropertyValueBase* valueOf(const Data::Element& element, const std::string& key) {
    if (const Data::OptionalPropertyBase* optional = element.getOptionalProperty(key)) {
        return optional->getPrototype();
    }
    const Data::Base::PropertyBase* property = element.getProperty(key);
    return property == nullptr ? nullptr : &property->getPropertyValueBase();
}

void amend(Poco::JSON::Object& description, const std::string& key,
           const PropertyValueBase& value) {
    if (key == Data::XObject::KEY_ID || key == Data::XObject::KEY_URI) {
        description.remove("default");
    }
    description.set("searchable", value.type() != typeid(bool));
    if (const auto* enumeration = dynamic_cast<const Data::Base::PropertyValueEnum*>(&value)) {
        description.set("values", arrayOf(enumeration->getDeclaredEnumValues()));
    }
    if (const auto* reference = dynamic_cast<const Data::XObjectReference*>(&value)) {
        description.set("targets", arrayOf(reference->getAllowedTypes()));
    }
}

}  // namespace

Poco::JSON::Object::Ptr ResourceDescription::of(const Data::AbstractResource& resource) {
    const Poco::JSON::Object::Ptr description = resource.getSpecificationAsJSON();
    const Poco::JSON::Object::Ptr properties = description->getObject("properties");
    const Data::AbstractResource::Ptr element = resource.createDetachedElement();
    if (properties.isNull() || element.isNull()) return description;
    // Nobody else knows the fresh element; its lock is taken for the contract's sake.
    Util::ScopedRecursiveReadLock lock(*element->getLock());
    for (const std::string& key : properties->getNames()) {
        Poco::JSON::Object::Ptr property = properties->getObject(key);
        const PropertyValueBase* value = valueOf(*element, key);
        if (!property.isNull() && value != nullptr) amend(*property, key, *value);
    }
    return description;
}

}  // namespace Kivo::Client
