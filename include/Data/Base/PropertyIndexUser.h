#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEXUSER_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEXUSER_H

#include <string>
#include <vector>

#include <Poco/Mutex.h>

#include "Data/Base/PropertyBase.h"
#include "Data/Base/PropertyIndex.h"
#include "Data/Base/PropertyIndexQuery.h"

namespace Kivo::Data::Base {

/// Keeps one property index per key for the properties of many objects (a resource's
/// elements), creates each index when the first property of its key is registered, and runs
/// queries over them. Every operation holds the recursive index mutex, which guards the map and
/// every index in it; index event handlers (value changes, destruction) do not take it.
class PropertyIndexUser {
public:
    PropertyIndexUser() = default;
    PropertyIndexUser(const PropertyIndexUser&) = delete;
    PropertyIndexUser& operator=(const PropertyIndexUser&) = delete;
    virtual ~PropertyIndexUser() = default;

    /// Files `property` at the index of its key, creating the index (property->createIndex())
    /// for a new key. False, with an error line, for a null or parentless property, and the
    /// index's answer otherwise (false for a second property of the same object, ...). A key
    /// whose property yields no index throws Poco::NullPointerException: register only
    /// indexable properties.
    bool registerPropertyAtIndex(PropertyBase* property);
    /// Files each of `properties` whose key has an index, or that yields one for its key (which
    /// creates the index), as registerPropertyAtIndex files it; the others are left out. One
    /// hold of the index mutex for all of them: an element's properties are filed together.
    void registerIndexedProperties(const std::vector<PropertyBase*>& properties);
    /// Drops the property's object from the index of its key. True, with a warning, when there
    /// is no index for the key; false for a null or parentless property.
    bool unregisterPropertyAtIndex(PropertyBase* property);
    /// Runs `query` over the indexes; exceptions of the query pass through.
    std::vector<Object*> find(const PropertyIndexQuery& query) const;
    /// Every key that ever had an index, ascending.
    std::vector<std::string> getPropertyKeys() const;

private:
    PropertyIndexReferenceMap m_indexes;  // guarded by m_mutexIndexes
    mutable Poco::Mutex m_mutexIndexes;
};

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEXUSER_H
