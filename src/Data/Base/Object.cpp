#include "Data/Base/Object.h"

#include <algorithm>
#include <utility>

#include <Poco/Delegate.h>
#include <Poco/Exception.h>

#include "Data/Base/PropertyBase.h"
#include "InternTable.h"
#include "KeyPool.h"
#include "Logging/Log.h"

namespace Kivo::Data::Base {

using Util::ScopedRecursiveReadLock;
using Util::ScopedRecursiveWriteLock;

namespace {

// The types live objects use, one copy of each: an element's type is the same for every
// element of its resource, and so is a reference placeholder's for every placeholder of one
// target resource. Types made up from texts clients send leave with their last object.
struct TypeKey {
    typedef Object::Type key_type;
    static const Object::Type& keyOf(const Object::Type& type) { return type; }
    static bool less(const Object::Type& a, const Object::Type& b) {
        if (a.identifier != b.identifier) return a.identifier < b.identifier;
        if (a.path != b.path) return a.path < b.path;
        return a.name < b.name;
    }
};

}  // namespace

void PropertyEventPayload::writePreviousValue() const {
    m_previousValue = m_pendingPrevious->getGenericValue();
    m_pendingPrevious = nullptr;
}

PropertyEventPayload& PropertyEventPayload::operator=(const PropertyEventPayload& other) {
    if (this != &other) {
        m_source = other.m_source;
        m_event = other.m_event;
        m_previousValue = other.getPreviousValue();
        m_pendingPrevious = nullptr;
    }
    return *this;
}

Object::Type::Type(const std::string& typeName)
    : name(typeName), identifier(typeName), path("/") {}

Object::Type::Type(const std::string& typeName, const Object& parent)
    : Type(typeName, parent.getType()) {}

Object::Type::Type(const std::string& typeName, const Type& parentType)
    : name(typeName),
      identifier(parentType.identifier + "." + typeName),
      path(parentType.path + parentType.name + "/") {}

Object::Object(const Type& type, const Kivo::RecursiveRWLockPtr& lock)
    : Object(internType(type), lock) {}

std::shared_ptr<const Object::Type> Object::internType(const Type& type) {
    // Never destroyed: objects of static storage may go after any static table would.
    static auto* const table = new InternTable<Type, TypeKey>;
    return table->intern(type, [&type] { return new Type(type); });
}

std::shared_ptr<const Object::Type> Object::childType(const Object& parent,
                                                      const std::string& typeName) {
    // Weak: the memory keeps no type alive. The parent's type is recognised by its control
    // block, which the weak pointer keeps from being reused while it is remembered.
    struct Last {
        std::weak_ptr<const Type> parentType;
        std::string typeName;
        std::weak_ptr<const Type> type;
    };
    thread_local Last last;
    const bool sameParent = !last.parentType.owner_before(parent.m_type) &&
                            !parent.m_type.owner_before(last.parentType);
    if (sameParent && last.typeName == typeName) {
        if (std::shared_ptr<const Type> type = last.type.lock()) return type;
    }
    std::shared_ptr<const Type> type = internType(Type(typeName, parent.getType()));
    last.parentType = parent.m_type;
    last.typeName = typeName;
    last.type = type;
    return type;
}

Object::Object(std::shared_ptr<const Type> type, const Kivo::RecursiveRWLockPtr& lock)
    : m_propertyLock(lock), m_type(std::move(type)) {
    if (!m_propertyLock) throw Poco::NullPointerException("Every Object requires a RWLock!");
}

Object::Object(const Object& other, const Kivo::RecursiveRWLockPtr& lock)
    : Object(other.m_type, lock) {}

Object& Object::operator=(const Object&) { return *this; }

Object::~Object() {
    try {
        if (m_propertyLock) unregisterAllProperties();
    } catch (...) {
        poco_unexpected();
    }
}

Util::RecursiveRWLock& Object::lockRef() const {
    if (!m_propertyLock) throw Poco::NullPointerException();
    return *m_propertyLock;
}

PropertyBase* Object::getProperty(const PropertyKey& key) const {
    ScopedRecursiveReadLock lock(lockRef());
    const std::size_t at = m_ownProperties.find(key);
    if (at == PropertyRegistry::npos) {
        QES_LOG_WARNING(getType().identifier << "::getProperty: property " << key << " is unknown");
        return nullptr;
    }
    PropertyBase* property = m_ownProperties.propertyAt(*this, at);
    if (property == nullptr) {
        QES_LOG_TRACE(getType().identifier << "::getProperty: property " << key
                                           << " is not available");
    }
    return property;
}

PropertyBase* Object::findProperty(const PropertyKey& key) const {
    ScopedRecursiveReadLock lock(lockRef());
    const std::size_t at = m_ownProperties.find(key);
    return at == PropertyRegistry::npos ? nullptr : m_ownProperties.propertyAt(*this, at);
}

std::size_t Object::findKnownKey(const PropertyKey& key) const { return m_ownProperties.find(key); }

PropertyBase* Object::findKnownProperty(const PropertyKey& key, std::size_t at) const {
    // Keys are never taken out of the registry, only added: a key is where it was, or after.
    if (at >= m_ownProperties.size() || m_ownProperties.keyAt(at) != key) {
        at = m_ownProperties.find(key);
        if (at == PropertyRegistry::npos) return nullptr;
    }
    return m_ownProperties.propertyAt(*this, at);
}

std::vector<PropertyKey> Object::getKnownPropertyKeys() const {
    ScopedRecursiveReadLock lock(lockRef());
    std::vector<PropertyKey> keys;
    keys.reserve(m_ownProperties.size());
    for (std::size_t at = 0; at < m_ownProperties.size(); ++at) {
        keys.push_back(m_ownProperties.keyAt(at));
    }
    return keys;
}

Poco::JSON::Object::Ptr Object::toJSON(int depth) const {
    ScopedRecursiveReadLock lock(lockRef());
    Poco::JSON::Object::Ptr json = new Poco::JSON::Object();
    for (std::size_t at = 0; at < m_ownProperties.size(); ++at) {
        if (const PropertyBase* property = m_ownProperties.propertyAt(*this, at)) {
            json->set(property->getKey(), property->toJSON(depth));
        }
    }
    return json;
}

bool Object::hasProperty(const PropertyKey& key) const {
    return findProperty(key) != nullptr;
}

bool Object::knowsProperty(const PropertyKey& key) const {
    ScopedRecursiveReadLock lock(lockRef());
    return m_ownProperties.find(key) != PropertyRegistry::npos;
}

std::vector<PropertyKey> Object::getPropertyKeys() const {
    ScopedRecursiveReadLock lock(lockRef());
    std::vector<PropertyKey> keys;
    keys.reserve(m_ownProperties.size());
    for (std::size_t at = 0; at < m_ownProperties.size(); ++at) {
        if (m_ownProperties.propertyAt(*this, at) != nullptr) {
            keys.push_back(m_ownProperties.keyAt(at));
        }
    }
    return keys;
}

std::vector<PropertyBase*> Object::getProperties() const {
    ScopedRecursiveReadLock lock(lockRef());
    std::vector<PropertyBase*> properties;
    properties.reserve(m_ownProperties.size());
    for (std::size_t at = 0; at < m_ownProperties.size(); ++at) {
        if (PropertyBase* property = m_ownProperties.propertyAt(*this, at)) {
            properties.push_back(property);
        }
    }
    return properties;
}

bool Object::registerProperty(const PropertyKey& key, PropertyBase* property) {
    ScopedRecursiveWriteLock lock(lockRef());
    const std::size_t at = m_ownProperties.find(key);
    if (at == PropertyRegistry::npos) {
        // A property's own key is pooled already: the pool's look-up (a lock and a search)
        // is needed only for other keys.
        const PropertyKey& pooled =
            property != nullptr && property->getKey() == key ? property->getKey()
                                                             : KeyPool::intern(key);
        m_ownProperties.set(*this, pooled, property);
    } else {
        if (m_ownProperties.propertyAt(*this, at) != nullptr) return false;
        if (property != nullptr) m_ownProperties.set(*this, m_ownProperties.keyAt(at), property);
    }
    onRegisterProperty(key, property);
    if (property != nullptr) {
        // The owner-changed event goes to the previous owner only: subscribe afterwards.
        property->setParent(this);
        registerPropertyEvents(property);
    }
    return true;
}

void Object::registerPropertyEvents(PropertyBase* property) {
    if (property == nullptr) return;
    Object* watcher = nullptr;
    if (property->m_watcher.compare_exchange_strong(watcher, this) || watcher == this) return;
    // Another object still watches it (its Updated event was disabled while the property
    // moved): this one subscribes as any client would.
    property->Updated += Poco::delegate(this, &Object::onPropertyUpdatePriv);
    property->Destroyed += Poco::delegate(this, &Object::onPropertyDestroyedPriv);
}

void Object::unregisterPropertyEvents(PropertyBase* property) {
    if (property == nullptr) return;
    Object* watcher = this;
    if (property->m_watcher.compare_exchange_strong(watcher, nullptr)) return;
    property->Updated -= Poco::delegate(this, &Object::onPropertyUpdatePriv);
    property->Destroyed -= Poco::delegate(this, &Object::onPropertyDestroyedPriv);
}

void Object::onPropertyUpdatePriv(const void*, PropertyEventPayload& payload) {
    PropertyBase* source = payload.getSourceProperty();
    QES_LOG_TRACE("Property " << source->getKey() << " has changed");
    onPropertyUpdate(payload);
    ScopedRecursiveWriteLock lock(lockRef());
    if (source->getParent() == this) return;
    forgetKey(source->getKey());
    unregisterPropertyEvents(source);
}

void Object::onPropertyDestroyedPriv(const void*, PropertyEventPayload& payload) {
    PropertyBase* source = payload.getSourceProperty();
    QES_LOG_TRACE("Property " << source->getKey() << " was destroyed");
    onPropertyDestroyed(payload);
    ScopedRecursiveWriteLock lock(lockRef());
    forgetKey(source->getKey());
    unregisterPropertyEvents(source);
}

void Object::forgetKey(const PropertyKey& key) {
    const std::size_t at = m_ownProperties.find(key);
    if (at != PropertyRegistry::npos && m_ownProperties.propertyAt(*this, at) != nullptr) {
        m_ownProperties.set(*this, m_ownProperties.keyAt(at), nullptr);
    }
}

void Object::unregisterAllProperties() {
    ScopedRecursiveWriteLock lock(lockRef());
    // By position: the hooks run inside may register keys, which moves the entries.
    for (std::size_t at = 0; at < m_ownProperties.size(); ++at) {
        PropertyBase* detached = m_ownProperties.propertyAt(*this, at);
        if (detached == nullptr) continue;
        const PropertyKey& key = m_ownProperties.keyAt(at);
        onUnregisterProperty(key, detached);
        // Our own onPropertyUpdatePriv runs inside and nulls the entry we are visiting.
        detached->setParent(nullptr);
        unregisterPropertyEvents(detached);
    }
    m_ownProperties.clear();
}

void Object::adoptPropertyLock(const Object& other) const {
    // The copy keeps the old lock alive until it is released below.
    const Kivo::RecursiveRWLockPtr previous = m_propertyLock;
    ScopedRecursiveWriteLock lock(lockRef());
    if (&other != this) m_propertyLock = other.m_propertyLock;
}

void Object::resetPropertyLock() const {
    const Kivo::RecursiveRWLockPtr previous = m_propertyLock;
    ScopedRecursiveWriteLock lock(lockRef());
    m_propertyLock = new Util::RecursiveRWLock;
}

}  // namespace Kivo::Data::Base
