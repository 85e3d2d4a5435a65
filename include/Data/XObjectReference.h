#ifndef QESSERVICEDATALIB_DATA_XOBJECTREFERENCE_H
#define QESSERVICEDATALIB_DATA_XOBJECTREFERENCE_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Object.h>
#include <Poco/RegularExpression.h>
#include <Poco/SharedPtr.h>
#include <Poco/UUID.h>

#include "Data/Base/Object.h"
#include "Data/Base/Property.h"
#include "Data/Base/PropertyIndex.h"
#include "Data/Base/PropertyObjectReference.h"
#include "Data/XObject.h"

namespace Kivo::Data {

class IReferenceResolver;

/// A placeholder for an element that is not known (yet, or any more): it carries the element's
/// type, id and name, and its URI, and nothing else. Its type has the path
/// "/<service>/<resource>/", so a LocalReferenceResolver holding that resource finds the
/// element it stands for.
class DummyObject : public XObject {
public:
    /// A placeholder with `source`'s type, id, name and URI.
    explicit DummyObject(const XObject& source);
    /// A placeholder with `other`'s type, id, name and URI, and a lock of its own.
    DummyObject(const DummyObject& other) = default;
    DummyObject& operator=(const DummyObject&) = delete;

    /// A placeholder from an object's JSON form ({"id", "name", "uri"}, extra members ignored).
    /// Its type comes from the "uri" member as in createFromUri; every one of the three members
    /// is required. Throws what createFromUri throws for a missing or unsuitable URI,
    /// Poco::DataException("Failed to initialise XObject from JSON object!") for a missing or
    /// invalid id or name (after XObject's error line), and Poco::NullPointerException for a
    /// null `json`.
    static std::unique_ptr<DummyObject> createFromJSON(
        const Poco::SharedPtr<Poco::JSON::Object>& json);
    /// A placeholder from an element URI "/<service>/<resource>/<uuid>": exactly three path
    /// segments. The type is named after the resource segment, one trailing "s" removed and
    /// "Object" appended ("contacts" gives "contactObject"), with the identifier
    /// "<service>.<resource>.<type name>"; the name is "unidentified element". Any other number
    /// of segments logs "Error: Invalid XObject URI. Only Element URIs with 3 segments
    /// (service/resource/element-uuid) can be accepted" and throws
    /// Poco::InvalidArgumentException("Invalid XObject URI"). A third segment that is no UUID,
    /// or a text the URI library refuses, throws Poco::SyntaxException.
    static std::unique_ptr<DummyObject> createFromUri(const std::string& uri);

private:
    friend class ElementLocation;

    explicit DummyObject(const Type& type);
    DummyObject(const Type& type, const Poco::JSON::Object* json);

    // The path segments of the element URI `uri`; logs and throws as createFromUri.
    static std::vector<std::string> elementSegments(const Base::PropertyValueUri& uri);
    // The placeholder type for an element URI's segments.
    static Type typeOf(const std::vector<std::string>& segments);
};

/// The element an element URI "/<service>/<resource>/<uuid>" names, read without making its
/// placeholder: the type path "/<service>/<resource>/" (the path of the placeholder's type, and
/// the key under which a LocalReferenceResolver files that resource) and the id. Resolvers that
/// need the placeholder itself ask for it; it is made once, on the first request, and the
/// location owns it. The URI text is not copied and must outlive the location.
class ElementLocation {
public:
    /// Reads `uri` as DummyObject::createFromUri does, throwing and logging what it throws and
    /// logs for an unsuitable URI or a third segment that is no UUID. A null UUID is read as it
    /// is: only the placeholder refuses it.
    explicit ElementLocation(const std::string& uri);
    /// Refused: the text must outlive the location.
    explicit ElementLocation(std::string&&) = delete;
    /// Takes over `other`'s URI, type path, id and placeholder.
    ElementLocation(ElementLocation&& other) = default;
    ElementLocation(const ElementLocation&) = delete;
    ElementLocation& operator=(const ElementLocation&) = delete;
    ~ElementLocation();

    /// "/<service>/<resource>/".
    const std::string& typePath() const { return m_typePath; }
    /// The element's id; null when the URI names the null UUID.
    const Poco::UUID& id() const { return m_id; }
    /// DummyObject::createFromUri of the URI, made on the first call and owned by the location.
    /// Throws what createFromUri throws (for a null id, after its error line).
    XObject* placeholder() const;
    /// The placeholder as placeholder() gives it, now owned by the caller; the next call makes
    /// another.
    std::unique_ptr<XObject> releasePlaceholder();

private:
    // Reads the id and the type path from the URI's segments.
    void locate(std::string_view service, std::string_view resource, std::string_view id);

    const std::string* m_uri;  // not owned
    std::string m_typePath;
    Poco::UUID m_id;
    mutable std::unique_ptr<XObject> m_placeholder;
};

/// A property value that points at another object (an XObject, usually an element) by type and
/// id. It holds either the live target (resolved) or, while the target is unknown or gone, a
/// placeholder (DummyObject) of it, or nothing (null). Reading a reference that holds only a
/// placeholder asks its resolver for the live target, on every read until that succeeds, and
/// otherwise answers the placeholder; a null reference reads as nothing.
///
/// Ownership and lifetime. The reference owns its placeholder and never its target. While it
/// holds a live target it is listed among the target's watchers: one hook (Util::EventHook) at
/// the target's Destroyed event per target, however many references watch it, so watching costs
/// one list slot. When Destroyed fires (on the destroying thread) each watching reference falls
/// back to a placeholder copied from the target, which resolves again on a later read. The
/// destructor leaves the list, so a target may outlive the reference. Copies copy the
/// placeholder and watch the same live target. A target must not begin its destruction while
/// another thread resolves, copies, assigns, writes or destroys a reference to it (the raise
/// calls the watchers listed when it began): destroy elements under their tree's write lock
/// and use references under its read lock. The resolver is not owned and must outlive the
/// reference and all its copies.
///
/// Allowed types. A non-empty set of type identifiers (Object::Type::identifier) restricts the
/// targets setValue accepts; the empty set allows any type. setAllowedTypes refuses a set that
/// would not allow the current target, the empty set included. References hold equal settings
/// (resolver and allowed set) as one shared record that is never changed: a reference changing
/// either takes another, so the settings of every other reference, its copies included, stay
/// as they were.
///
/// Locking. m_mutexValue (recursive) guards the target pointer, the placeholder, the allowed
/// types and the resolver. It is one word that a waiting thread spins on, then yields on:
/// held for one operation of the reference, it is seldom contended, and every index entry
/// over references holds a copy of the reference with its lock. Holding it, a read takes the
/// read side of the target's tree lock (comparisons, matches, toJSON) and resolution takes the
/// read side of the resource's lock.
/// The target's destructor, possibly holding its tree's write lock, takes m_mutexValue in
/// onReferenceDestroyed. The order is therefore: the target tree's lock, then m_mutexValue.
/// Whenever another thread may destroy targets, hold the target tree's lock (the read side
/// suffices) around any use of the reference that may resolve or read the target; reading a
/// property under its owner's read lock, as every property read requires, does that for a
/// reference into its owner's tree. Two references are locked in address order when compared
/// or assigned. The table of shared settings has a mutex of its own, taken under m_mutexValue
/// with nothing locked under it.
class XObjectReference : public Base::PropertyValueObjectReference<XObject> {
public:
    /// Type identifiers (Object::Type::identifier) a target may have; the empty set allows
    /// any type.
    typedef std::set<std::string> OneOf;

    /// A null reference without resolver, allowing any type.
    XObjectReference();
    /// A null reference resolving through `resolver` (not owned, may be null).
    explicit XObjectReference(IReferenceResolver* resolver, const OneOf& allowedTypes = OneOf());
    /// A reference to `other`'s live target (subscribed to in turn), with a copy of its
    /// placeholder and the same allowed types and resolver.
    XObjectReference(const XObjectReference& other);
    /// Drops the current target and placeholder, then takes `other`'s state as the copy
    /// constructor does. Both references are locked meanwhile, in address order.
    XObjectReference& operator=(const XObjectReference& other);
    /// Unsubscribes from a live target and deletes the placeholder.
    ~XObjectReference() override;

    /// toJSON(-1).
    Poco::Dynamic::Var getGenericValue() const override;
    /// The current target's (or placeholder's) toJSON(depth - 1) object; for a null reference
    /// the empty string.
    Poco::Dynamic::Var toJSON(int depth) const override;
    /// Whether `text` gives a placeholder (see parseString) that isValidValue accepts. Logs as
    /// parseString; stores nothing.
    bool isValidStringValue(const std::string& text) const override;
    /// Whether `re` matches the whole text of the current target's name, else its id, else its
    /// URI. False for a null reference.
    bool matches(const Poco::RegularExpression& re) const override;

    /// The live target if the reference holds or can resolve it, else the placeholder. Throws
    /// Poco::NullPointerException("Invalid XObject Reference without any value") for a null
    /// reference. The pointer stays valid while the reference is unchanged and the target lives.
    const value_type& getValue() const override;
    /// A placeholder (a DummyObject, by dynamic type) is copied and the caller keeps `target`;
    /// anything else becomes the live target, is subscribed to and replaces the placeholder.
    /// False, changing nothing, for a target isValidValue refuses (null included).
    bool setValue(const value_type& target) override;
    /// Parses `text` (see parseString) and stores the live target it resolves to, else the
    /// placeholder. False, changing nothing, when parsing fails or the target is refused. An
    /// element URI is looked up through the resolver's resolveLocation, so that no placeholder
    /// is made where the target resolves at once.
    bool setValueFromString(const std::string& text) override;
    /// False for null; otherwise whether the allowed set is empty or holds the target's type
    /// identifier.
    bool isValidValue(const value_type& target) const override;
    /// The current targets (placeholders for unresolved ones) ordered by XObject's ordering,
    /// a null reference after every other. A placeholder made from a URI is named
    /// "unidentified element", so it orders apart from the target it equals.
    bool operator<(const Base::PropertyValue<XObject*>& other) const override;
    /// The mirror of operator<, a null reference again after every other.
    bool operator>(const Base::PropertyValue<XObject*>& other) const override;
    /// The same object or equal ids; false where either side is null and the other is not.
    bool operator==(const Base::PropertyValue<XObject*>& other) const override;
    /// The negation of operator==.
    bool operator!=(const Base::PropertyValue<XObject*>& other) const override;
    /// Makes a new placeholder from `text`, which the caller then owns: an object's JSON form
    /// (DummyObject::createFromJSON) or, where `text` is no JSON, an element URI
    /// (DummyObject::createFromUri). On failure `out` is null, and the line "Warning: Failed to
    /// parse string representation for XObject refrence" is logged after trace lines naming
    /// the cause.
    bool parseString(const std::string& text, value_type& out) const override;

    /// getValue(); the base's conversion would bypass resolution and the lock.
    operator const value_type&() const { return getValue(); }

    /// Resolver for later reads; does not resolve now.
    void setReferenceResolver(IReferenceResolver* resolver);
    /// Neither a live target nor a placeholder.
    bool isNull() const;
    /// Holds the live target now. Does not try to resolve.
    bool isResolvedReference() const;
    /// Allows one more type identifier. Does not check the current target.
    void addAllowedType(const std::string& identifier);
    /// A copy of the allowed set; empty when any type is allowed.
    OneOf getAllowedTypes() const;
    /// Replaces the allowed set. Throws Poco::BugcheckException("New allowed type set would not
    /// allow current XObject reference"), keeping the old set, when the reference is not null
    /// and `types` lacks the current target's type identifier (so an empty set is refused).
    void setAllowedTypes(const OneOf& types);

    /// Handler of the live target's Destroyed event: falls back to a placeholder copied from
    /// `target`. Throws Poco::BugcheckException ("invalid reference - received event but holds
    /// no resolved reference", "invalid reference - received event from wrong xobject") when
    /// the reference holds no live target, or one with another id.
    void onReferenceDestroyed(const void* sender, const XObject& target);

private:
    class PairLock;
    class Settings;
    class Watchers;

    // A recursive lock of one word, for BasicLockable holders.
    class ValueLock {
    public:
        ValueLock() = default;
        ValueLock(const ValueLock&) = delete;
        ValueLock& operator=(const ValueLock&) = delete;

        /// Waits until no other thread holds the lock, then holds it once more.
        void lock();
        /// Releases one hold. REQUIRES: the calling thread holds the lock.
        void unlock();

    private:
        // The holder's thread number (see lock()) in the upper half, 0 for none, and its count
        // of holds in the lower half; only the holder changes the count.
        std::atomic<std::uint64_t> m_state{0};
    };

    // The live target, resolving the placeholder if need be, else the placeholder, else null.
    // REQUIRES: m_mutexValue.
    const value_type& getValuePriv() const;
    // What the resolver answers for `placeholder`; false without placeholder or resolver. An
    // exception from the resolver is logged and answers false.
    bool resolveReference(XObject* const& placeholder, XObject*& result) const;
    // What the resolver answers for `location`, as resolveReference does for a placeholder.
    bool resolveLocation(const ElementLocation& location, XObject*& result) const;
    // Stores the target or placeholder an element URI gives, as setValueFromString does for a
    // text that is no JSON. REQUIRES: m_mutexValue.
    bool setValueFromLocation(ElementLocation& location);
    // Join and leave the live target's watchers. REQUIRES: m_mutexValue.
    void observe(XObject& target) const;
    void forget(XObject& target) const;
    // The resolver, or null. REQUIRES: m_mutexValue.
    IReferenceResolver* resolver() const;
    // A copy of the allowed set. REQUIRES: m_mutexValue.
    OneOf getAllowedTypesPriv() const;
    // Takes the shared record of `resolver` and `types` in place of the current one.
    // REQUIRES: m_mutexValue.
    void configure(IReferenceResolver* resolver, const OneOf& types);
    // Copies `other`'s state into this reference, which holds no target or placeholder.
    // REQUIRES: both mutexes.
    void copyFrom(const XObjectReference& other);
    // Drops the live target and the placeholder. REQUIRES: m_mutexValue.
    void release();

    mutable ValueLock m_mutexValue;
    // m_value (the base's) is the live target, not owned; guarded by m_mutexValue.
    XObject* m_valueDummy = nullptr;           // owned; guarded by m_mutexValue
    // Resolver and allowed types, shared and counted; null for no resolver and any type.
    // Guarded by m_mutexValue.
    const Settings* m_settings = nullptr;
};

/// The property holding an XObjectReference. Its value is written through the change sequence
/// of every property; the resolver and allowed types are settings of the value, changed under
/// its own mutex without events. Indexes over it order by the references' targets.
class PropertyXObjectReference : public Base::Property<XObjectReference> {
public:
    /// Does not register at `parent`.
    PropertyXObjectReference(const Base::PropertyKey& key, Base::Object* parent,
                             const XObjectReference& value = XObjectReference());
    /// Copies key and value under `parent` (not registered there).
    PropertyXObjectReference(const PropertyXObjectReference& other, Base::Object* parent);
    /// Assigns the other property's value through the change sequence.
    PropertyXObjectReference& operator=(const PropertyXObjectReference& other);

    /// The resolver for later reads of the value (not owned); does not resolve now.
    void setReferenceResolver(IReferenceResolver* resolver) {
        m_value.setReferenceResolver(resolver);
    }
    /// Whether the value holds neither a live target nor a placeholder.
    bool isNull() const { return m_value.isNull(); }
    /// Whether the value holds the live target now; does not try to resolve.
    bool isResolvedReference() const { return m_value.isResolvedReference(); }
    /// Allows one more type identifier for later writes; the current target is not checked.
    void addAllowedType(const std::string& identifier) { m_value.addAllowedType(identifier); }
    /// The value's allowed set (XObjectReference::getAllowedTypes).
    XObjectReference::OneOf getAllowedTypes() const { return m_value.getAllowedTypes(); }
    /// Throws as XObjectReference::setAllowedTypes.
    void setAllowedTypes(const XObjectReference::OneOf& types) { m_value.setAllowedTypes(types); }
};

}  // namespace Kivo::Data

namespace Kivo::Data::Base {

extern template class PropertyValue<XObject*>;
extern template class Property<XObjectReference>;
extern template class PropertyIndex<Property<XObjectReference>>;

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_XOBJECTREFERENCE_H
