#include "Data/XObject.h"

#include <exception>
#include <string>
#include <typeinfo>
#include <utility>

#include <Poco/Exception.h>

#include "Logging/Log.h"

namespace Kivo::Data {

using Base::PropertyValueString;
using Base::PropertyValueUri;
using Base::PropertyValueUuid;
using Util::ScopedRecursiveReadLock;
using Util::ScopedRecursiveWriteLock;

const std::string XObject::KEY_ID = "id";
const std::string XObject::KEY_NAME = "name";
const std::string XObject::KEY_URI = "uri";

XObject::OwnerWrite::OwnerWrite(XObject& object, const Base::PropertyKey& key) : m_object(object) {
    m_object.m_toBeModified = &key;
}

XObject::OwnerWrite::~OwnerWrite() { m_object.m_toBeModified = nullptr; }

namespace {

// The URI text of an object of `type` with `id`: the type's path, then the id.
std::string pathOf(const Base::Object::Type& type, const PropertyValueUuid& id) {
    std::string path;
    path.reserve(type.path.size() + 36);
    path += type.path;
    PropertyValueUuid::appendTextOf(id.getValue(), path);
    return path;
}

}  // namespace

XObject::XObject(const Type& type)
    : Object(type, Kivo::RecursiveRWLockPtr(new Util::RecursiveRWLock)),
      m_uuid(KEY_ID, this, PropertyValueUuid(Poco::UUID::null())),
      m_name(KEY_NAME, this, PropertyValueString(std::string())),
      // The empty URI read from its text, which needs no URI library to read or write it.
      m_uri(KEY_URI, this, PropertyValueUri(std::string())) {
    registerOwnProperties();
}

XObject::XObject(const Type& type, const PropertyValueString& name, const PropertyValueUuid& id)
    : XObject(internType(type), name, id) {}

XObject::XObject(std::shared_ptr<const Type> type, const PropertyValueString& name,
                 const PropertyValueUuid& id)
    : Object(std::move(type), Kivo::RecursiveRWLockPtr(new Util::RecursiveRWLock)),
      m_uuid(KEY_ID, this, id),
      m_name(KEY_NAME, this, name),
      m_uri(KEY_URI, this, PropertyValueUri(pathOf(getType(), id))) {
    registerOwnProperties();
}

XObject::XObject(const Type& type, const Poco::JSON::Object* json) : XObject(type) {
    if (!initXObjectFromJSON(json).isSuccess()) {
        throw Poco::DataException("Failed to initialise XObject from JSON object!");
    }
}

XObject::XObject(const XObject& other)
    : Object(other, Kivo::RecursiveRWLockPtr(new Util::RecursiveRWLock)),
      m_uuid(other.m_uuid, this),
      m_name(other.m_name, this),
      m_uri(other.m_uri, this) {
    registerOwnProperties();
}

XObject::~XObject() {
    try {
        Destroyed.notify(this, *this);
    } catch (...) {
        poco_unexpected();
    }
}

void XObject::registerOwnProperties() {
    // One hold for the three: each registration would take the lock itself otherwise.
    ScopedRecursiveWriteLock lock(lockRef());
    registerProperty(KEY_ID, &m_uuid);
    registerProperty(KEY_NAME, &m_name);
    registerProperty(KEY_URI, &m_uri);
}

Poco::UUID XObject::getIdentification() const {
    ScopedRecursiveReadLock lock(lockRef());
    return m_uuid.getValue();
}

Poco::JSON::Object::Ptr XObject::toJSON(int) const {
    ScopedRecursiveReadLock lock(lockRef());
    Poco::JSON::Object::Ptr json = new Poco::JSON::Object();
    json->set(m_uuid.getKey(), m_uuid.toJSON(0));
    json->set(m_name.getKey(), m_name.toJSON(0));
    json->set(m_uri.getKey(), m_uri.toJSON(0));
    return json;
}

bool XObject::operator==(const XObject& other) const {
    ScopedRecursiveReadLock lock(lockRef());
    return m_uuid.getValue() == other.m_uuid.getValue();
}

bool XObject::operator!=(const XObject& other) const { return !(*this == other); }

bool XObject::operator<(const XObject& other) const {
    ScopedRecursiveReadLock lock(lockRef());
    const int byName = m_name.getValue().compare(other.m_name.getValue());
    if (byName != 0) return byName < 0;
    return m_uuid.getValue() < other.m_uuid.getValue();
}

bool XObject::operator>(const XObject& other) const {
    ScopedRecursiveReadLock lock(lockRef());
    const int byName = m_name.getValue().compare(other.m_name.getValue());
    if (byName != 0) return byName > 0;
    return m_uuid.getValue() > other.m_uuid.getValue();
}

bool XObject::checkWriteAccess(const Base::PropertyKey& key) const { return isChangedByOwner(key); }

bool XObject::isChangedByOwner(const Base::PropertyKey& key) const {
    // The read lock waits out any owner write in progress on another thread, so an outside
    // writer can never observe the key of someone else's owner write.
    ScopedRecursiveReadLock lock(lockRef());
    // Keys are pooled, so the owner's write names the very key a property asks with.
    return m_toBeModified != nullptr && (&key == m_toBeModified || key == *m_toBeModified);
}

bool XObject::setId(const PropertyValueUuid& id) { return setOwnPropertyValue(id, m_uuid); }

bool XObject::setName(const PropertyValueString& name) {
    return setOwnPropertyValue(name, m_name);
}

bool XObject::setUri(const PropertyValueUri& uri) { return setOwnPropertyValue(uri, m_uri); }

bool XObject::setOwnPropertyValueFromString(const std::string& text,
                                            Base::PropertyBase& property) {
    ScopedRecursiveWriteLock lock(lockRef());
    OwnerWrite ownerWrite(*this, property.getKey());
    // An element built from JSON holds the id its JSON names already: writing that id again
    // needs no parse of the text. The write itself stays, with its events.
    if (&property == &m_uuid && PropertyValueUuid::isTextOf(text, m_uuid.getValue())) {
        const Poco::UUID id = m_uuid.getValue();
        return m_uuid.setValue(id);
    }
    return property.setValueFromString(text);
}

OperationResult XObject::initXObjectFromJSON(const Poco::JSON::Object* json) {
    if (json == nullptr) {
        QES_LOG_ERROR("Tried to initialise XObject properties from NULL-Pointer");
        return OperationResult(OperationResult::PROCESSING_ERROR);
    }
    ScopedRecursiveWriteLock lock(lockRef());
    OperationResult result(OperationResult::OK);
    for (Base::PropertyBase* property : {static_cast<Base::PropertyBase*>(&m_uuid),
                                         static_cast<Base::PropertyBase*>(&m_name),
                                         static_cast<Base::PropertyBase*>(&m_uri)}) {
        result = initPropertyFromJSON(json, *property);
        if (!result.isSuccess()) break;
    }
    return result;
}

OperationResult XObject::initPropertyFromJSON(const Poco::JSON::Object* json,
                                              Base::PropertyBase& property) {
    ScopedRecursiveWriteLock lock(lockRef());
    const Base::PropertyKey& key = property.getKey();
    try {
        if (!json->has(key) || json->get(key).isEmpty()) {
            QES_LOG_ERROR("Failed to init property " << key << " for " << getType().name
                                                     << ": not found in JSON Object.");
            return OperationResult(OperationResult::UNKNOWN_PROPERTY);
        }
        if (!setOwnPropertyValueFromString(memberText(json->get(key)), property)) {
            QES_LOG_ERROR("Failed to init property " << key << " for " << getType().name
                                                     << ": invalid value");
            return OperationResult(OperationResult::INVALID_VALUE);
        }
        return OperationResult(OperationResult::OK);
    } catch (const std::exception& error) {
        QES_LOG_ERROR("Failed to init property " << key << error.what());
        throw;
    }
}

std::string XObject::memberText(const Poco::Dynamic::Var& member) {
    if (member.isString()) return member.extract<std::string>();
    // The variant writes an integer as std::to_string does, through a formatter of its own.
    if (member.type() == typeid(long)) return std::to_string(member.extract<long>());
    return member.convert<std::string>();
}

}  // namespace Kivo::Data
