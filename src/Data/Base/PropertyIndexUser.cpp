#include "Data/Base/PropertyIndexUser.h"

#include <Poco/Exception.h>

#include "Logging/Log.h"

namespace Kivo::Data::Base {

namespace {

PropertyIndexBase& dereference(PropertyIndexBasePtr& index) {
    if (index.isNull()) throw Poco::NullPointerException();
    return *index;
}

}  // namespace

bool PropertyIndexUser::registerPropertyAtIndex(PropertyBase* property) {
    if (property == nullptr || property->getParent() == nullptr) {
        QES_LOG_ERROR("AbstractResource: Tried to register invalid element property.");
        return false;
    }
    Poco::Mutex::ScopedLock lock(m_mutexIndexes);
    const PropertyKey& key = property->getKey();
    auto entry = m_indexes.find(key);
    if (entry == m_indexes.end()) {
        QES_LOG_TRACE("Register Property " << key << " of "
                                           << property->getParent()->getType().identifier);
        entry = m_indexes.emplace(key, property->createIndex()).first;
    }
    return dereference(entry->second).insert(property);
}

void PropertyIndexUser::registerIndexedProperties(const std::vector<PropertyBase*>& properties) {
    Poco::Mutex::ScopedLock lock(m_mutexIndexes);
    for (PropertyBase* property : properties) {
        const auto entry = m_indexes.find(property->getKey());
        if (entry != m_indexes.end() && property->getParent() != nullptr) {
            dereference(entry->second).insert(property);
        } else if (entry != m_indexes.end() || !property->createIndex().isNull()) {
            registerPropertyAtIndex(property);
        }
    }
}

bool PropertyIndexUser::unregisterPropertyAtIndex(PropertyBase* property) {
    if (property == nullptr || property->getParent() == nullptr) {
        QES_LOG_ERROR("AbstractResource: Tried to unregister invalid element property.");
        return false;
    }
    Poco::Mutex::ScopedLock lock(m_mutexIndexes);
    const PropertyKey& key = property->getKey();
    const auto entry = m_indexes.find(key);
    if (entry == m_indexes.end()) {
        QES_LOG_WARNING("Found no index for property "
                        << key << " of " << property->getParent()->getType().identifier);
        return true;
    }
    return dereference(entry->second).remove(property->getParent());
}

std::vector<Object*> PropertyIndexUser::find(const PropertyIndexQuery& query) const {
    Poco::Mutex::ScopedLock lock(m_mutexIndexes);
    return query(m_indexes);
}

std::vector<std::string> PropertyIndexUser::getPropertyKeys() const {
    Poco::Mutex::ScopedLock lock(m_mutexIndexes);
    std::vector<std::string> keys;
    keys.reserve(m_indexes.size());
    for (const auto& entry : m_indexes) keys.push_back(entry.first);
    return keys;
}

}  // namespace Kivo::Data::Base
