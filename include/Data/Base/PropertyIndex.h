#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEX_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEX_H

#include <map>
#include <string>
#include <vector>

#include <Poco/RegularExpression.h>
#include <Poco/SharedPtr.h>

#include "Data/Base/Object.h"

namespace Kivo::Data::Base {

// Answers, for one property key, which objects have a property under that key whose value
// equals or matches a given one. The index keeps plain pointers to properties and their
// objects and learns of their end through the properties' Destroyed events. It has no lock of
// its own: its owner serialises every call.
class PropertyIndexBase {
public:
    explicit PropertyIndexBase(const PropertyKey& key) : m_key(key) {}
    PropertyIndexBase(const PropertyIndexBase&) = delete;
    PropertyIndexBase& operator=(const PropertyIndexBase&) = delete;
    virtual ~PropertyIndexBase() = default;

    // Files `property` under its current value; false for a null property, one without
    // parent, another key, another value type, or an object already filed.
    virtual bool insert(PropertyBase* property) = 0;
    // Drops the entry of `object`; false if it has none.
    virtual bool remove(Object* object) = 0;
    // Every filed object, in ascending value order.
    virtual std::vector<Object*> get() const = 0;
    // The property filed for `object`, or null.
    virtual PropertyBase* find(Object* object) const = 0;
    // Objects whose value equals `text` parsed as the filed values' kind.
    virtual std::vector<Object*> find(const std::string& text) const = 0;
    // Objects whose value's text form `re` matches as a whole, in value order.
    virtual std::vector<Object*> find(const Poco::RegularExpression& re) const = 0;

    const PropertyKey& getKey() const { return m_key; }

protected:
    const PropertyKey m_key;
};

typedef Poco::SharedPtr<PropertyIndexBase> PropertyIndexBasePtr;

// Property key to index, keys compared case-sensitively.
class PropertyIndexReferenceMap : public std::map<std::string, PropertyIndexBasePtr> {};

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEX_H
