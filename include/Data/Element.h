#ifndef QESSERVICEDATALIB_DATA_ELEMENT_H
#define QESSERVICEDATALIB_DATA_ELEMENT_H

#include <functional>
#include <atomic>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <Poco/JSON/Object.h>
#include <Poco/UUID.h>

#include "Data/OperationResult.h"
#include "Data/XObject.h"

namespace Kivo::Data {

class AbstractResource;
class Element;
class OptionalPropertyBase;

/// Property keys, ordered byte-wise.
typedef std::set<std::string> KeyCollection;

/// The change events of an element.
///
/// DataChanged is delivered asynchronously on a thread of Poco's default thread pool, after the
/// writer has released the element's lock:
/// - every raise is delivered exactly once, also when the pool is busy (it is queued, never
///   refused), and the raises of one element arrive in the order they were made;
/// - all deliveries run one after another on one pool thread at a time, so a slow subscriber
///   delays the others;
/// - each raise goes to the subscribers the element had when it was raised (as with Poco's
///   notifyAsync): one that subscribes later does not receive it, so a resource that starts
///   observing an element after filling it sees none of the filling;
/// - the sender is the element's address, which may already be destroyed when a subscriber runs:
///   identify the element by the payload's id; raises still queued when the element is destroyed
///   are delivered all the same;
/// - an exception thrown by a subscriber is logged and swallowed;
/// - delivery ends where DataChangedDelivery says: the last Service to be destroyed waits for
///   the queue, and after DataChangedDelivery::shutdown(), which a process calls before main
///   returns, every raise is delivered synchronously on the raising thread instead.
/// A subscriber that removes its delegate is never called afterwards, so it may be destroyed as
/// soon as the removal returns.
///
/// OptionalPropertySet is raised synchronously on the writing thread, with the element's write
/// lock held, when an optional property receives its first value.
class IElementDataChangedSource {
public:
    /// Which element changed (its identification) and which of its properties.
    class DataChangedEventPayload {
    public:
        /// The element's id, and `key` in the key set when it is not empty.
        DataChangedEventPayload(const Element& element, const std::string& key);

        /// The element's id when the event was raised; identify the element by it.
        const Poco::UUID& getSourceElementId() const { return sourceElementId; }
        /// The keys of the changed properties, ascending; empty when the raise names none.
        const KeyCollection& getSourcePropertyKeys() const { return sourcePropertyKeys; }
        /// Replaces the key set with `keys`.
        void setSourcePropertyKeys(const KeyCollection& keys) { sourcePropertyKeys = keys; }
        /// Adds `keys` to the key set.
        void addSourcePropertyKeys(const KeyCollection& keys);

    private:
        Poco::UUID sourceElementId;
        KeyCollection sourcePropertyKeys;
    };

    /// The optional property that was set for the first time.
    class OptionalPropertySetEventPayload {
    public:
        /// The payload for `property`, the optional property's new property object.
        explicit OptionalPropertySetEventPayload(Base::PropertyBase& property)
            : sourceProperty(&property) {}
        /// The new property object, registered at the element; not owned.
        Base::PropertyBase* getSourceProperty() const { return sourceProperty; }

    private:
        Base::PropertyBase* sourceProperty;  // not owned
    };

    /// The event of DataChanged. Its current delegates can be copied out (copyDelegates), so
    /// that a queued delivery never touches the event (or its element) after taking that copy.
    class DataChangedEvent : public Util::Event<DataChangedEventPayload> {};

    virtual ~IElementDataChangedSource() = default;

    /// Raised for every change of the element's properties; delivered asynchronously, as the
    /// class comment describes.
    DataChangedEvent DataChanged;
    /// Raised synchronously when an optional property receives its first value.
    Util::Event<OptionalPropertySetEventPayload> OptionalPropertySet;
};

/// One data record of a resource: an XObject whose further properties are declared by the
/// concrete element class (as members, or as optional properties that exist only once set).
///
/// Clients write through setProperty and updateByJSON, gated per key by isPostAllowed (false
/// unless the concrete class allows a key); removeProperty and JSON initialisation are
/// owner-side and not gated. Every change raises DataChanged (see IElementDataChangedSource).
///
/// The element keeps a non-owning pointer to its resource, which must outlive it. Reads take
/// the element's read lock, writes its write lock; containers make it share theirs. Not
/// copy-assignable: its properties are registered by address.
class Element : public XObject, public IElementDataChangedSource {
public:
    /// Key to optional property handle; the handles are not owned.
    typedef std::map<Base::PropertyKey, OptionalPropertyBase*> OptionalPropertyMap;

    Element& operator=(const Element&) = delete;
    /// Detaches every property (each raises DataChanged for its key), then raises Destroyed.
    ~Element() override;

    /// Negative depth: the compact {"id", "name", "uri"} form; otherwise every present property
    /// at that depth.
    Poco::JSON::Object::Ptr toJSON(int depth) const override;
    /// Whether clients may read the element. Base answer true.
    virtual bool isGetAllowed() const;
    /// Whether a client may write `key`. Base answer false: nothing is writable.
    virtual bool isPostAllowed(const Base::PropertyKey& key) const;

    /// A client write of one property from text: FORBIDDEN, UNKNOWN_PROPERTY, INVALID_VALUE or
    /// OK. An unset optional property is created by the write.
    OperationResult setProperty(const Base::PropertyKey& key, const std::string& value);
    /// Clears an optional property or empties a clearable one: OK, UNKNOWN_PROPERTY,
    /// NOT_FOUND (known key without property) or PROCESSING_ERROR (cannot be cleared).
    OperationResult removeProperty(const Base::PropertyKey& key);
    /// Applies a partial update all or nothing. Every key is checked first (known, allowed,
    /// valid); the first failure returns NOT_FOUND, FORBIDDEN, INVALID_VALUE or
    /// UNKNOWN_PROPERTY with nothing changed. Then every key whose text differs from the
    /// current value is written, and one DataChanged lists all of them: OK, or NO_UPDATE when
    /// nothing differed (no event). PROCESSING_ERROR for a null `json`. Throws
    /// Poco::InvalidAccessException for a null member (it has no text), and
    /// Poco::BugcheckException if a checked write fails after all.
    OperationResult updateByJSON(const Poco::JSON::Object* json);
    /// Every present property; those whose key is in `expand` at depth 1, the others at 0.
    Poco::JSON::Object::Ptr toJSON(const std::vector<std::string>& expand) const;
    /// Runs `changes` with the write lock held and raises the DataChanged events they cause
    /// as one, listing every key those events named, once `changes` returns; nothing when they
    /// caused none. Writes, updates and removals made inside count alike, so a caller makes
    /// several of them one change. When `changes` throws, what it changed so far is raised as
    /// one and the exception passes. A nested call folds into the outermost.
    void changeAsOne(const std::function<void()>& changes);
    /// The declaration of the optional property `key`, or null when `key` is not optional.
    /// REQUIRES: the read lock, held while the answer is used.
    const OptionalPropertyBase* getOptionalProperty(const Base::PropertyKey& key) const {
        return findOptional(key);
    }

    /// The resource the element belongs to; not owned, never null.
    AbstractResource* getResource() const { return m_resource; }

protected:
    /// Type `typeName` under the resource's type, empty name and a fresh random id (the URI is
    /// the type path followed by that id until initElementFromJSON adjusts it). A container
    /// building the element from JSON that carries an id gives it that id instead.
    Element(const std::string& typeName, AbstractResource& resource);
    /// The given name and id, with the URI adjusted to the resource's. Throws
    /// Poco::DataException("Failed to initalise Element!") when that fails.
    Element(const std::string& typeName, AbstractResource& resource,
            const Base::PropertyValueString& name, const Base::PropertyValueUuid& id);
    /// Copies the identity and the resource; the concrete class copies its own properties.
    Element(const Element& other);

    /// Sets every known property whose key has a non-null member in `json` (unknown keys
    /// refuse the whole object with UNKNOWN_PROPERTY before anything is set; a bad value stops
    /// with INVALID_VALUE, keeping what was set before), then adjusts the URI.
    OperationResult initElementFromJSON(const Poco::JSON::Object* json);
    /// Called by OptionalPropertyBase's constructor: false if the key is taken.
    bool registerOptionalProperty(OptionalPropertyBase* optional);
    /// Called by OptionalPropertyBase's destructor: the element no longer finds `optional`.
    void unregisterOptionalProperty(const OptionalPropertyBase* optional);
    /// The owner-side write of `text` into a present property of the element, as in XObject.
    using XObject::setOwnPropertyValueFromString;
    /// An owner-side write of an optional property (creating it if needed).
    bool setOwnPropertyValueFromString(const std::string& text, OptionalPropertyBase& optional);
    /// Sets the URI to the resource's URI, "/", and the id.
    bool adjustElementUri();

    /// The owner's own write, else isPostAllowed.
    bool checkWriteAccess(const Base::PropertyKey& key) const override;
    /// Turns value and owner changes into DataChanged, and first values of optional
    /// properties into OptionalPropertySet.
    void onPropertyUpdate(const Base::PropertyEventPayload& payload) override;
    /// Raises DataChanged for the destroyed property's key.
    void onPropertyDestroyed(const Base::PropertyEventPayload& payload) override;

private:
    friend class AbstractResource;
    friend class ElementWatch;
    friend class OptionalPropertyBase;

    // Makes the next element constructed on this thread start with `id` (not owned; it must
    // live until then) instead of drawing a random one; null ends that. See
    // AbstractResource::buildElement.
    static void presetNextId(const Poco::UUID* id);

    OperationResult validateUpdate(const Poco::JSON::Object& json, KeyCollection& changed) const;
    void applyUpdate(const Poco::JSON::Object& json, const KeyCollection& changed);
    // The result code alone: building a whole OperationResult per member costs a string.
    OperationResult::Value initPropertyFromMember(const Base::PropertyKey& key,
                                                  Base::PropertyBase* property,
                                                  const std::string& text);
    OptionalPropertyBase* findOptional(const Base::PropertyKey& key) const;
    void raiseDataChanged(const DataChangedEventPayload& payload);
    void raiseCombined();
    // Tells the service's element observer, if any, about a raise of a held element.
    void announceChanged(const KeyCollection& keys) const;

    AbstractResource* m_resource;             // not owned; outlives the element
    // The first of the element's optional property handles, in key order, each linking to the
    // next: the handles are members of the element and few, so a list through them costs no
    // allocation. Guarded by the write lock; not owned.
    OptionalPropertyBase* m_optionalProperties = nullptr;
    // What the changes of one changeAsOne raised: the keys, and whether any raise happened.
    struct Combined {
        KeyCollection keys;
        bool raised = false;
    };
    // While changeAsOne runs, its record on its own stack, else null. Guarded by the write
    // lock, which changeAsOne holds throughout.
    Combined* m_combined = nullptr;
    // Whether a container holds the element, so that its changes go to the service's element
    // observer. Set and cleared by AbstractResource under the write lock.
    bool m_held = false;
    // Whether the resource observes the element's events (ElementWatch); written under the
    // watch's mutex, read there or as a hint.
    std::atomic<bool> m_observed{false};
    // The holding container's Ptr to the element, or null. Set under the write lock.
    const Poco::SharedPtr<Element>* m_heldEntry = nullptr;
};

}  // namespace Kivo::Data

#endif  // QESSERVICEDATALIB_DATA_ELEMENT_H
