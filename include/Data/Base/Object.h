#ifndef QESSERVICEDATALIB_DATA_BASE_OBJECT_H
#define QESSERVICEDATALIB_DATA_BASE_OBJECT_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Object.h>
#include <Poco/UUID.h>

#include "Data/Base/PropertyRegistry.h"
#include "Util/RecursiveRWLock.h"

/// Values, properties, objects, indexes and queries: the layer the resource model is built on.
namespace Kivo::Data::Base {

class PropertyBase;
class PropertyValueBase;

/// The key of a property within its object; never empty.
typedef std::string PropertyKey;

/// Registry of an object: key to property, in byte-wise key order. The pointers do not own;
/// a null pointer marks a key that is known but has no property at the moment.
typedef std::map<PropertyKey, PropertyBase*> PropertyReferenceMap;

/// What a property event reports: its source, what happened, and for value changes the value
/// before the change in generic form (empty otherwise).
struct PropertyEventPayload {
    /// What happened to the source property.
    enum Event {
        /// Its value changed (Updated and ValueChanged).
        PROPERTY_VALUE_CHANGED = 0,
        /// It moved to another owner, or lost its owner (Updated).
        PROPERTY_OWNER_CHANGED = 1,
        /// It is being destroyed (Destroyed).
        PROPERTY_DESTROYED = 2,
    };

    /// A payload without previous value: owner changes, destruction, typed value changes.
    PropertyEventPayload(PropertyBase* source, Event event)
        : m_source(source), m_event(event) {}
    /// A payload carrying the value before the change.
    PropertyEventPayload(PropertyBase* source, Event event, const Poco::Dynamic::Var& previous)
        : m_source(source), m_event(event), m_previousValue(previous) {}
    /// A payload carrying the value before the change as the value object `previous`, whose
    /// generic form is written when first asked for: most changes reach nobody who reads it.
    /// `previous` must outlive the payload; a copy of the payload holds the generic form
    /// itself.
    PropertyEventPayload(PropertyBase* source, Event event, const PropertyValueBase& previous)
        : m_source(source), m_event(event), m_pendingPrevious(&previous) {}
    /// A copy of `other` that holds the previous value's generic form itself.
    PropertyEventPayload(const PropertyEventPayload& other)
        : m_source(other.m_source),
          m_event(other.m_event),
          m_previousValue(other.getPreviousValue()) {}
    /// Takes `other`'s source, event and previous value, the latter in generic form.
    PropertyEventPayload& operator=(const PropertyEventPayload& other);
    ~PropertyEventPayload() = default;

    /// The property the event is about; not owned. Handlers of PROPERTY_DESTROYED may use it
    /// only while they run.
    PropertyBase* getSourceProperty() const { return m_source; }
    /// What happened.
    Event getEvent() const { return m_event; }
    /// The value before the change, in generic form, for a value change raised by Updated;
    /// empty otherwise.
    const Poco::Dynamic::Var& getPreviousValue() const {
        if (m_pendingPrevious != nullptr) writePreviousValue();
        return m_previousValue;
    }

    /// The property the event is about. Not owned.
    PropertyBase* m_source;
    /// What happened.
    Event m_event;
    /// The previous value in generic form, or empty. Read it through getPreviousValue(): it
    /// is written there for a payload made from a value object.
    mutable Poco::Dynamic::Var m_previousValue;

private:
    // Writes the pending previous value's generic form into m_previousValue.
    void writePreviousValue() const;

    // The value object whose generic form m_previousValue is to hold; null once written, or
    // for a payload given the generic form. Not owned.
    mutable const PropertyValueBase* m_pendingPrevious = nullptr;
};

/// The common base of every data-model object: a registry of named properties that live
/// elsewhere (members of the subclass, or optional properties), one recursive read/write lock
/// guarding the registry and every registered property's value, and the object's JSON form.
///
/// The object never owns its properties. It subscribes to each registered property's Updated
/// and Destroyed events, which run synchronously on the thread that raises them, and turns
/// the entry of a property that is destroyed or moved to another owner into a known-but-absent
/// key. Objects of one tree share one lock object (adoptPropertyLock); readers take its read
/// side, writers its write side, and handlers re-enter it on the same thread.
///
/// Not copyable except through the (other, lock) constructor; subclasses register their own
/// properties. Every registry operation throws Poco::NullPointerException if the lock pointer
/// is null.
class Object {
public:
    /// Name, dotted identifier (the prefix of log lines) and slash path of a type's parent
    /// chain (always ending in "/"). A type "Media" under a root type "Service" has the
    /// identifier "Service.Media" and the path "/Service/".
    struct Type {
        /// A root type: the identifier is `typeName`, the path "/".
        explicit Type(const std::string& typeName);
        /// A type under the type of `parent`, as Type(typeName, parent.getType()).
        Type(const std::string& typeName, const Object& parent);
        /// A type under `parentType`: the identifier is the parent's identifier, "." and
        /// `typeName`; the path is the parent's path, the parent's name and "/".
        Type(const std::string& typeName, const Type& parentType);
        /// A copy of name, identifier and path.
        Type(const Type&) = default;
        /// Takes `other`'s name, identifier and path.
        Type& operator=(const Type&) = default;

        /// The type's own name, as given.
        std::string name;
        /// The type names from the root down, joined by ".": "Service.Media". Log lines begin
        /// with it, and XObjectReference's allowed types name it.
        std::string identifier;
        /// "/" followed by each ancestor's name and "/": "/Service/". An element's type path is
        /// its resource's URI followed by "/", which resolvers look up.
        std::string path;
    };

    /// Throws Poco::NullPointerException("Every Object requires a RWLock!") for a null lock.
    /// Objects of equal types (name, identifier and path alike) share one copy of the type for
    /// as long as any of them lives.
    Object(const Type& type, const Kivo::RecursiveRWLockPtr& lock);
    /// Shares `other`'s type: the registry starts empty and the lock is `lock`.
    Object(const Object& other, const Kivo::RecursiveRWLockPtr& lock);
    /// Copies neither registry entries nor the lock; subclasses assign their own values.
    Object& operator=(const Object& other);
    /// Detaches every registered property (unregisterAllProperties).
    virtual ~Object();

    /// The UUID that identifies the object (an XObject answers its "id"). Indexes, resolvers
    /// and DataChanged payloads identify objects by it.
    virtual Poco::UUID getIdentification() const = 0;
    /// The property under `key`, or null. An unknown key logs a warning, a known key without
    /// property a trace line.
    virtual PropertyBase* getProperty(const PropertyKey& key) const;
    /// A new JSON object with one member per present property, in key order, each set to the
    /// property's toJSON(depth). Known-but-absent keys are left out.
    virtual Poco::JSON::Object::Ptr toJSON(int depth) const;

    /// The type given at construction; it never changes.
    const Type& getType() const { return *m_type; }
    /// True when `key` has a property now.
    bool hasProperty(const PropertyKey& key) const;
    /// True when `key` is registered at all, with or without property.
    bool knowsProperty(const PropertyKey& key) const;
    /// Keys of the present properties, ascending.
    std::vector<PropertyKey> getPropertyKeys() const;
    /// The present properties, in key order.
    std::vector<PropertyBase*> getProperties() const;

    /// Registers `property` under `key` and makes this object its parent. A null property
    /// makes the key known but absent. Returns false, changing nothing, if the key already has
    /// a property (the first registration wins); a known-but-absent key is filled. The
    /// property's previous owner receives its owner-changed event; this object subscribes only
    /// afterwards, so it never sees the event of its own registration.
    bool registerProperty(const PropertyKey& key, PropertyBase* property);

    /// Makes this object share `other`'s lock (and so do all its properties). Takes the old
    /// lock's write side while switching.
    void adoptPropertyLock(const Object& other) const;
    /// Gives this object a new lock of its own, as when it leaves a parent whose lock it
    /// shared.
    void resetPropertyLock() const;
    /// The lock, shared.
    Kivo::RecursiveRWLockPtr getLock() const { return m_propertyLock; }

protected:
    /// Takes `type` as it is, which must be the shared copy internType or childType gave;
    /// throws as Object(type, lock) does.
    Object(std::shared_ptr<const Type> type, const Kivo::RecursiveRWLockPtr& lock);
    /// The copy of a type equal to `type` that every live object of that type shares.
    static std::shared_ptr<const Type> internType(const Type& type);
    /// internType(Type(typeName, parent)), remembered per thread for the last parent and name
    /// asked for: the elements of one resource are built one after another, each with the
    /// same type.
    static std::shared_ptr<const Type> childType(const Object& parent,
                                                 const std::string& typeName);

    /// Whether a client may write the property under `key`; PropertyBase::isModifiable asks.
    virtual bool checkWriteAccess(const PropertyKey& key) const = 0;
    /// Called for every Updated event (value and owner changes) of a registered property,
    /// on the raising thread, before the registry reacts.
    virtual void onPropertyUpdate(const PropertyEventPayload&) {}
    /// Called when a registered property is destroyed, before its entry is cleared.
    virtual void onPropertyDestroyed(const PropertyEventPayload&) {}
    /// Called under the write lock once a key has been stored, before the property is
    /// attached.
    virtual void onRegisterProperty(const PropertyKey&, PropertyBase*) {}
    /// Called under the write lock for each present property that unregisterAllProperties
    /// detaches.
    virtual void onUnregisterProperty(const PropertyKey&, PropertyBase*) {}
    /// Handler of a registered property's Destroyed event: runs the hook, then turns the
    /// entry into a known-but-absent key and unsubscribes.
    virtual void onPropertyDestroyedPriv(const void* sender, PropertyEventPayload& payload);

    /// Handler of a registered property's Updated event: runs the hook, then forgets the
    /// property if it has moved to another owner.
    void onPropertyUpdatePriv(const void* sender, PropertyEventPayload& payload);
    /// Makes the registry's handlers watch `property`'s Updated and Destroyed events; does
    /// nothing for null or a property this object watches already. The watch costs nothing per
    /// property: the property calls its watching object before its events' delegates. Where
    /// another object still watches the property (an old owner that has not yet heard of a
    /// move), this one subscribes delegates instead.
    void registerPropertyEvents(PropertyBase* property);
    /// Ends what registerPropertyEvents began; does nothing for null.
    void unregisterPropertyEvents(PropertyBase* property);
    /// Detaches every present property (hook, then setParent(nullptr)) and empties the
    /// registry, known-but-absent keys included.
    void unregisterAllProperties();

    /// The lock after a null check; throws Poco::NullPointerException for a null lock.
    Util::RecursiveRWLock& lockRef() const;
    /// The property under `key`, or null for an unknown or absent key; logs nothing.
    PropertyBase* findProperty(const PropertyKey& key) const;
    /// The position of `key` among the known keys (ascending), or PropertyRegistry::npos for an
    /// unknown key. REQUIRES: the caller holds the lock, either side.
    std::size_t findKnownKey(const PropertyKey& key) const;
    /// The property under `key`, or null, as findProperty answers; `at` is the position
    /// findKnownKey gave for it, where it is found again without a search unless keys were
    /// added since. REQUIRES: the caller holds the lock, either side.
    PropertyBase* findKnownProperty(const PropertyKey& key, std::size_t at) const;
    /// Every registered key, present or not, ascending.
    std::vector<PropertyKey> getKnownPropertyKeys() const;

private:
    friend class PropertyBase;

    // Makes `key`, if known, a known-but-absent key.
    void forgetKey(const PropertyKey& key);

    // Key to property in byte-wise key order, as PropertyReferenceMap orders them. The keys are
    // pooled (one copy per distinct key in the process).
    PropertyRegistry m_ownProperties;  // guarded by *m_propertyLock
    // Mutable because adopting or resetting the lock does not change the object's value.
    mutable Kivo::RecursiveRWLockPtr m_propertyLock;
    // Never null; shared with every live object of an equal type.
    std::shared_ptr<const Type> m_type;
};

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_OBJECT_H
