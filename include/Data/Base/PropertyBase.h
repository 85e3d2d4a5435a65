#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYBASE_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYBASE_H

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include <Poco/Dynamic/Var.h>
#include <Poco/RegularExpression.h>
#include <Poco/SharedPtr.h>

#include "Data/Base/Object.h"
#include "Data/Base/PropertyValue.h"
#include "Util/Event.h"
#include "Util/RecursiveRWLock.h"

namespace Kivo::Data::Base {

class PropertyIndexBase;
typedef Poco::SharedPtr<PropertyIndexBase> PropertyIndexBasePtr;

/// The two generic events of a property. Both are synchronous: delegates run on the raising
/// thread, in subscription order; each event's own lock is held only while its delegate list
/// is copied.
///
/// The owner's registry and the indexes that file the property watch it without subscribing
/// (Object::registerPropertyEvents, Util::EventHook): while an event is enabled they are called
/// first, the owner before the indexes, and they are neither counted by empty() nor removed by
/// clear(). Disabling an event stops them as it stops every delegate.
class IPropertyEventSource {
public:
    virtual ~IPropertyEventSource() = default;

    /// Raised once, when the property is destroyed (PROPERTY_DESTROYED).
    Util::Event<PropertyEventPayload> Destroyed;
    /// Raised on every value change (PROPERTY_VALUE_CHANGED with the previous value) and on
    /// every change of owner (PROPERTY_OWNER_CHANGED).
    Util::Event<PropertyEventPayload> Updated;
};

/// A named slot holding one value, belonging to at most one Object (its parent), guarded by
/// the parent's lock, announcing value changes, owner changes and its destruction.
///
/// The parent pointer does not own; the property never deletes its parent and the parent never
/// deletes it. A property without parent takes no lock and is always modifiable.
class PropertyBase : public IPropertyEventSource {
public:
    /// Throws Poco::AssertionViolationException("Properties must not have an empty key").
    /// Does not register at `parent`.
    PropertyBase(const PropertyKey& key, Object* parent);
    PropertyBase(const PropertyBase&) = delete;
    PropertyBase& operator=(const PropertyBase&) = delete;
    /// Raises Destroyed unless a derived destructor already did.
    ~PropertyBase() override;

    /// The value object, untyped. Takes no lock: hold the owner's read lock where other
    /// threads may write.
    virtual const PropertyValueBase& getPropertyValueBase() const = 0;
    /// Empties the value where the kind has an empty state; false where it has none.
    virtual bool clear() = 0;
    /// Parses, validates and stores `text` through the change sequence; false (no event) when
    /// the owner denies writing or the text is refused.
    virtual bool setValueFromString(const std::string& text) = 0;
    /// Whether the value is an array kind (PropertyArray).
    virtual bool isArray() const = 0;
    /// Whether the value is a reference kind (PropertyXObjectReference).
    virtual bool isReference() const = 0;
    /// Whole-text match of the value's text form. Takes no lock.
    virtual bool matches(const Poco::RegularExpression& re) const = 0;
    /// A new, empty index suited to this property's value type, or an empty pointer where the
    /// type is not indexable. Takes no lock.
    virtual PropertyIndexBasePtr createIndex() const = 0;
    /// The value's JSON form under the owner's read lock.
    virtual Poco::Dynamic::Var toJSON(int depth) const = 0;

    /// The key given at construction; never empty.
    const PropertyKey& getKey() const {
        const std::uintptr_t word = m_keyAndFlags.load(std::memory_order_relaxed);
        return *reinterpret_cast<const PropertyKey*>(word & ~FLAGS);
    }
    /// The owner, or null; not owned.
    Object* getParent() const { return m_parent; }
    /// Makes `parent` the owner and raises Updated (PROPERTY_OWNER_CHANGED) unless it already
    /// is. The new owner is stored before the event, so handlers see it; the old owner, still
    /// subscribed, forgets the property there.
    void setParent(Object* parent);
    /// True without parent; else the parent's checkWriteAccess for this key.
    bool isModifiable() const;

    /// Takes the read side of the parent's lock; without parent it does nothing. Prefer
    /// PropertyLockGuard, which releases the very lock it took even if the parent adopts
    /// another lock meanwhile.
    void readLock() const;
    /// Takes the write side of the parent's lock; without parent it does nothing.
    void writeLock() const;
    /// Releases the read side of the parent's current lock; without parent it does nothing.
    /// Throws Poco::IllegalStateException if this thread does not read that lock.
    void readUnlock() const;
    /// Releases the write side of the parent's current lock; without parent it does nothing.
    /// Throws Poco::IllegalStateException if this thread does not write that lock.
    void writeUnlock() const;
    /// The parent's lock, or a null pointer without parent.
    Kivo::RecursiveRWLockPtr getLock() const;
    /// Registers at the parent under this key; does nothing without parent.
    void registerAtOwner();

    /// How many times, process-wide, a property has been given an owner after it had one
    /// (moved between objects, or detached and attached again). Indexes compare it with what
    /// they saw last to learn cheaply whether a filed property may have changed hands.
    static std::uint64_t getOwnerMoves();

protected:
    /// Raises Destroyed the first time it is called. Derived destructors call it while their
    /// value still exists, so subscribers may read it.
    void notifyDestroyed();
    /// Raises Updated with `payload`, the watching owner's registry first.
    void notifyUpdated(PropertyEventPayload& payload);

private:
    friend class Object;

    // The key's address and two flags in the low bits its alignment leaves free: whether the
    // property ever had an owner, and whether Destroyed was raised. The key is pooled, one copy
    // per distinct key in the process, and never changes; the flags are set by the property's
    // writer (under its owner's write lock, or while it is destroyed), and the word is atomic so
    // that readers of the key on other threads never race with that.
    std::atomic<std::uintptr_t> m_keyAndFlags;
    Object* m_parent;  // not owned
    // The object whose registry watches the property's Updated and Destroyed events; not owned.
    // It is the parent, except between a move's event and the old owner's reaction to it.
    std::atomic<Object*> m_watcher{nullptr};

    static constexpr std::uintptr_t HAD_PARENT = 1;
    static constexpr std::uintptr_t DESTROYED_RAISED = 2;
    static constexpr std::uintptr_t FLAGS = HAD_PARENT | DESTROYED_RAISED;
    static_assert(alignof(PropertyKey) > FLAGS, "the flags need the key's low bits");

    // Sets `flag`, answering whether it was set before.
    bool testAndSet(std::uintptr_t flag);
};

/// Holds one side of a property's owner lock for a scope, or nothing when the property has no
/// owner. Keeps the lock alive even if the owner adopts another lock meanwhile.
class PropertyLockGuard {
public:
    /// Takes the write side of the owner's lock if `write`, else the read side; takes nothing
    /// when `property` has no owner. The side is released when the guard is destroyed.
    PropertyLockGuard(const PropertyBase& property, bool write);
    PropertyLockGuard(const PropertyLockGuard&) = delete;
    PropertyLockGuard& operator=(const PropertyLockGuard&) = delete;

private:
    Kivo::RecursiveRWLockPtr m_lock;
    std::optional<Util::ScopedRecursiveRWLock> m_holder;
};

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYBASE_H
