#ifndef QESSERVICEDATALIB_DATA_XOBJECT_H
#define QESSERVICEDATALIB_DATA_XOBJECT_H

#include <string>

#include <Poco/JSON/Object.h>
#include <Poco/UUID.h>

#include "Data/Base/Object.h"
#include "Data/Base/Property.h"
#include "Data/OperationResult.h"
#include "Util/Event.h"

/// The resource model (services, resources, elements and the results clients see) and the
/// references between elements.
namespace Kivo::Data {

/// An identified object: every service, resource and element is one. It owns three
/// properties, "id" (a UUID), "name" (a text) and "uri", which only the object itself may
/// change: checkWriteAccess allows a key only while the object's own setter is writing it, so
/// any write that reaches these properties from outside is refused.
///
/// Each XObject starts with a lock of its own; containers make their children share theirs
/// with adoptPropertyLock. Reads take the read side, owner writes and JSON initialisation the
/// write side; comparisons lock only the left-hand object.
///
/// Destroyed is raised synchronously from the destructor while the object is still an XObject
/// with its three properties, as the last thing observers receive from it.
class XObject : public Base::Object {
public:
    /// "id": the key of the UUID that identifies the object.
    static const std::string KEY_ID;
    /// "name": the key of the object's name.
    static const std::string KEY_NAME;
    /// "uri": the key of the object's URI.
    static const std::string KEY_URI;

    /// The null id, an empty name and an empty URI.
    explicit XObject(const Type& type);
    /// The given name and id; the URI is the type's path followed by the id's text.
    XObject(const Type& type, const Base::PropertyValueString& name,
            const Base::PropertyValueUuid& id);
    /// Defaults as XObject(type), then initXObjectFromJSON. Throws
    /// Poco::DataException("Failed to initialise XObject from JSON object!") when that fails,
    /// and lets exceptions of the JSON and value libraries pass.
    XObject(const Type& type, const Poco::JSON::Object* json);
    /// A copy with a lock of its own and copies of the three properties.
    XObject(const XObject& other);
    XObject& operator=(const XObject&) = delete;
    ~XObject() override;

    /// Raised once, from the destructor on the destroying thread, with the object still
    /// whole; no subscriber may delete the object.
    Util::Event<const XObject> Destroyed;

    /// The id's UUID.
    Poco::UUID getIdentification() const override;
    /// {"id": ..., "name": ..., "uri": ...} whatever the depth.
    Poco::JSON::Object::Ptr toJSON(int depth) const override;

    /// The "id" property (null for an XObject(type) until set). Read it under the object's
    /// read lock where other threads may write.
    const Base::PropertyUuid& getId() const { return m_uuid; }
    /// The "name" property, which may be empty. Read it under the object's read lock where
    /// other threads may write.
    const Base::PropertyString& getName() const { return m_name; }
    /// The "uri" property (empty for an XObject(type) until set). Read it under the object's
    /// read lock where other threads may write.
    const Base::PropertyUri& getUri() const { return m_uri; }

    /// Equal ids.
    bool operator==(const XObject& other) const;
    /// Different ids.
    bool operator!=(const XObject& other) const;
    /// By name, and by id where the names are equal.
    bool operator<(const XObject& other) const;
    /// The mirror of operator<: by name, and by id where the names are equal.
    bool operator>(const XObject& other) const;

protected:
    /// Allows exactly the key the object is writing itself at this moment.
    bool checkWriteAccess(const Base::PropertyKey& key) const override;
    /// Whether the object's own setter is writing `key` now. Takes the read lock, so it waits
    /// for an owner write in progress on another thread.
    bool isChangedByOwner(const Base::PropertyKey& key) const;

    /// The owner-side write of "id". Owner-side writes take the write lock. The typed forms
    /// store the value object when it differs from the current one (raising the property's
    /// change events) and answer whether the value is in place; the text form answers the
    /// property's setValueFromString.
    bool setId(const Base::PropertyValueUuid& id);
    /// The owner-side write of "name", as setId.
    bool setName(const Base::PropertyValueString& name);
    /// The owner-side write of "uri", as setId.
    bool setUri(const Base::PropertyValueUri& uri);
    /// The owner-side write of `value` into `property`, one of this object's properties:
    /// stores it when it differs from the current value object, and answers whether the
    /// value is in place.
    template <class V>
    bool setOwnPropertyValue(const V& value, Base::Property<V>& property);
    /// The owner-side write of `text` into `property`, one of this object's properties: the
    /// property's setValueFromString answer.
    bool setOwnPropertyValueFromString(const std::string& text, Base::PropertyBase& property);

    /// Sets id, name and uri from `json`, in that order, stopping at the first failure (what
    /// was set before it stays set). Every key is required.
    OperationResult initXObjectFromJSON(const Poco::JSON::Object* json);
    /// Sets `property` from the member under its key: UNKNOWN_PROPERTY when the member is
    /// missing or null, INVALID_VALUE when the property refuses its text, else OK. An exception
    /// while applying is logged and rethrown.
    OperationResult initPropertyFromJSON(const Poco::JSON::Object* json,
                                         Base::PropertyBase& property);

    /// The text a JSON member stands for: a string as it is, anything else in its JSON text.
    static std::string memberText(const Poco::Dynamic::Var& member);

    /// Marks `key` as written by the owner for its lifetime. REQUIRES: the write lock.
    class OwnerWrite {
    public:
        /// Marks `key` of `object`; the destructor clears the mark. `key` must outlive the
        /// mark (a property's own key does), hence no temporaries.
        OwnerWrite(XObject& object, const Base::PropertyKey& key);
        OwnerWrite(XObject& object, Base::PropertyKey&& key) = delete;
        OwnerWrite(const OwnerWrite&) = delete;
        OwnerWrite& operator=(const OwnerWrite&) = delete;
        ~OwnerWrite();

    private:
        XObject& m_object;
    };

protected:
    /// As XObject(type, name, id), for a type already shared (Object::internType or
    /// Object::childType).
    XObject(std::shared_ptr<const Type> type, const Base::PropertyValueString& name,
            const Base::PropertyValueUuid& id);

private:
    void registerOwnProperties();

    // The key the owner is writing now, or null; not owned. Guarded by the write lock.
    const Base::PropertyKey* m_toBeModified = nullptr;
    Base::PropertyUuid m_uuid;
    Base::PropertyString m_name;
    Base::PropertyUri m_uri;
};

template <class V>
bool XObject::setOwnPropertyValue(const V& value, Base::Property<V>& property) {
    Util::ScopedRecursiveWriteLock lock(lockRef());
    OwnerWrite ownerWrite(*this, property.getKey());
    if (!property.isModifiable()) return false;
    if (!(property.getPropertyValue() != value)) return true;
    return property.setPropertyValue(value);
}

}  // namespace Kivo::Data

#endif  // QESSERVICEDATALIB_DATA_XOBJECT_H
