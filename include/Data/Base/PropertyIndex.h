#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEX_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEX_H

#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include <Poco/RegularExpression.h>
#include <Poco/SharedPtr.h>
#include <Poco/UUID.h>

#include "Data/Base/Object.h"
#include "Data/Base/PropertyBase.h"
#include "Data/Base/PropertyIndexOwnerTable.h"
#include "Data/Base/PropertyNumber.h"
#include "Data/Base/PropertyString.h"
#include "Data/Base/PropertyUri.h"
#include "Data/Base/PropertyUuid.h"
#include "Data/Base/PropertyValue.h"
#include "Logging/Log.h"
#include "Util/Event.h"

namespace Kivo::Data::Base {

/// Answers, for one property key, which objects have a property under that key whose value
/// equals or matches a given one. The index keeps plain pointers to properties and their
/// objects and learns of their end through the properties' Destroyed events; it never keeps or
/// returns a property that has been destroyed. It has no lock of its own: its owner serialises
/// every call (PropertyIndexUser's mutex), while its event handlers run on the thread that
/// changes or destroys a property.
class PropertyIndexBase {
public:
    /// An empty index for the properties under `key`.
    explicit PropertyIndexBase(const PropertyKey& key) : m_key(key) {}
    PropertyIndexBase(const PropertyIndexBase&) = delete;
    PropertyIndexBase& operator=(const PropertyIndexBase&) = delete;
    virtual ~PropertyIndexBase() = default;

    /// Files `property` under its current value; false for a null property, one without
    /// parent, another key (compared exactly), another value type, an object filed already, or
    /// a property the index still holds.
    virtual bool insert(PropertyBase* property) = 0;
    /// Drops an entry of `object`'s property; false if `object` is not filed or no entry is
    /// found (see PropertyIndex::remove for which entry goes).
    virtual bool remove(Object* object) = 0;
    /// The owner of every entry, in ascending value order (equal values in filing order).
    virtual std::vector<Object*> get() const = 0;
    /// The property filed for `object`, or null.
    virtual PropertyBase* find(Object* object) const = 0;
    /// Owners of the entries whose value equals `text` parsed as the filed values' kind; none
    /// when the index is empty or the text does not parse.
    virtual std::vector<Object*> find(const std::string& text) const = 0;
    /// Owners of the entries whose value's text form `re` matches as a whole, in value order.
    /// Given a PrefixRegularExpression, an index ordered by text answers with a range.
    virtual std::vector<Object*> find(const Poco::RegularExpression& re) const = 0;

    /// The key given at construction.
    const PropertyKey& getKey() const { return m_key; }

protected:
    /// The key of the properties the index files.
    const PropertyKey m_key;
};

/// The expression of a query text whose one wildcard is trailing, in one of two modes:
/// - PREFIX_LINE: "^" + prefix + ".*$", the texts that begin with `prefix` and hold no line
///   break after it. The prefix must be free of expression syntax.
/// - PREFIX_TEXT: every text that begins with `prefix`, line breaks included: the prefix with
///   its expression syntax escaped, then ".*" under the dot-all option. Any prefix without NUL
///   is accepted, so a client's literal text can be searched as it is.
/// As Poco's whole-text match never matches the empty text, neither mode finds it.
/// It is an ordinary compiled expression (studied) and matches exactly that; it also tells an
/// index ordered by text its literal prefix and mode, so the index can answer with a range
/// instead of a scan. The expression class has no virtual functions, so indexes recognise it by
/// a registry of the live ones (PrefixRegularExpression::of), which any thread may use.
class PrefixRegularExpression : public Poco::RegularExpression {
public:
    /// What may follow the prefix, and which prefixes are accepted.
    enum Mode {
        /// Any text without line break; the prefix must be literal (isLiteral).
        PREFIX_LINE,
        /// Any text; the prefix may hold anything but NUL.
        PREFIX_TEXT,
    };

    /// Throws Poco::InvalidArgumentException for a NUL in `prefix` and, in PREFIX_LINE, for
    /// expression syntax (\\ ^ $ . | ? * + ( ) [ ] { }), where the pattern would not mean the
    /// literal prefix. A prefix too long for the expression library throws its
    /// Poco::RegularExpressionException.
    explicit PrefixRegularExpression(const std::string& prefix, Mode mode = PREFIX_LINE);
    PrefixRegularExpression(const PrefixRegularExpression&) = delete;
    PrefixRegularExpression& operator=(const PrefixRegularExpression&) = delete;
    ~PrefixRegularExpression();

    /// Whether `text` can be the prefix of a PREFIX_LINE expression.
    static bool isLiteral(const std::string& text);
    /// The PrefixRegularExpression that `re` is, or null for any other expression.
    static const PrefixRegularExpression* of(const Poco::RegularExpression& re);

    /// The literal prefix.
    const std::string& getPrefix() const { return m_prefix; }
    /// The mode given at construction.
    Mode getMode() const { return m_mode; }

private:
    const std::string m_prefix;
    const Mode m_mode;
};

/// An index, shared: a PropertyIndexUser's map and property factories (createIndex) hand
/// indexes out by it.
typedef Poco::SharedPtr<PropertyIndexBase> PropertyIndexBasePtr;

/// Property key to index, keys compared case-sensitively.
class PropertyIndexReferenceMap : public std::map<std::string, PropertyIndexBasePtr> {};

/// Orders index keys by their value's typed operator<. For string kinds it also compares with
/// a plain text, and for URIs with a path, so a range can be looked up without building a value.
template <class V, bool = std::is_base_of_v<PropertyValue<std::string>, V>,
          bool = std::is_base_of_v<PropertyValue<Poco::URI>, V>>
struct PropertyIndexKeyLess {
    /// Whether `a` orders before `b` by V's typed operator<.
    bool operator()(const V& a, const V& b) const { return a < b; }
};

/// The ordering of URIs: by decoded path, byte-wise, whatever their class, also between a
/// value and a plain path. Compared inline, a descent makes no call per step.
template <class V>
struct PropertyIndexKeyLess<V, false, true> {
    /// Lets ordered containers look paths up.
    typedef void is_transparent;
    /// Whether `a`'s path orders before `b`'s.
    bool operator()(const V& a, const V& b) const { return a.orderingPath() < b.orderingPath(); }
    /// Whether `a`'s path orders before the path `b`.
    bool operator()(const V& a, std::string_view b) const { return a.orderingPath() < b; }
    /// Whether the path `a` orders before `b`'s path.
    bool operator()(std::string_view a, const V& b) const { return a < b.orderingPath(); }
};

/// The ordering of string kinds: by text, byte-wise, also between a value and a plain text.
//
// The keys are stored by value, so their dynamic type is V: the qualified calls spare the
// virtual dispatch on the hottest path of every lookup.
template <class V>
struct PropertyIndexKeyLess<V, true, false> {
    /// Lets ordered containers look plain texts up.
    typedef void is_transparent;
    /// Whether `a`'s text orders before `b`'s.
    bool operator()(const V& a, const V& b) const { return a.V::getValue() < b.V::getValue(); }
    /// Whether `a`'s text orders before the text `b`.
    bool operator()(const V& a, const std::string& b) const { return a.V::getValue() < b; }
    /// Whether the text `a` orders before `b`'s text.
    bool operator()(const std::string& a, const V& b) const { return a < b.V::getValue(); }
};

/// Whether an index of V's properties keys its entries by their plain text: the string kinds
/// whose check of a text is fixed by their format (but for STRING_FORMAT_CUSTOM, whose values
/// may each carry their own pattern).
template <class V>
struct PropertyIndexKeysByText : std::is_same<V, PropertyValueString> {};

/// The fixed-format string kinds are keyed by text too.
template <PropertyValueString::FormatType F>
struct PropertyIndexKeysByText<PropertyValueFormatedString<F>> : std::true_type {};

/// Whether an index of V's properties keys its entries by their plain value (V's value_type):
/// the kinds whose order is their plain value's and whose check of a text needs no more than
/// the kind itself (UUIDs) or its limits (integers, whose index keeps those as a prototype).
template <class V>
struct PropertyIndexKeysByValue : std::false_type {};

/// UUIDs are keyed by the UUID, held as a UuidKey.
template <>
struct PropertyIndexKeysByValue<PropertyValueUuid> : std::true_type {};

/// Integers are keyed by the integer.
template <class T>
struct PropertyIndexKeysByValue<PropertyValueNumberBase<T>> : std::is_integral<T> {};

/// The index of the properties of type TProperty (a Property<V>) filed under key m_key.
///
/// Each property is filed for the object that owns it when it is filed, under a copy of its
/// value at that time, and moves when the property raises ValueChanged. Which entry an
/// operation touches is decided by a walk over the entries of one value, taking the first whose
/// property's current owner is the object in question:
/// - remove(object) walks the entries of the current value of the property filed for
///   `object`, looking for that property's current owner. When none of them belongs to it and
///   the range is not at the end of the index, the entry just after the range goes instead:
///   that entry is dropped and its property's events unregistered, while the key of the
///   property's owner leaves the object map. This can only happen to an object filed under a
///   value its property no longer has (its ValueChanged disabled while the value changed). The
///   consequence is kept on purpose: the object stays listed by get() and found under its
///   stale value, the other object is no longer found by value but is still filed (find(Object*)
///   answers its property, a second insert for it is refused, remove(it) walks again).
/// - ValueChanged re-files the first entry of the old value whose property belongs to the
///   changed property's owner, whichever property that entry holds.
/// Where one owner holds two entries (a filed property moved with setParent onto another filed
/// object), both therefore act on the first of them.
///
/// Each entry's position is kept, so re-filing and removal cost a logarithmic lookup however
/// many objects share a value. The kept position stands in for the walk only where it is the
/// same answer: while every filed property has exactly one entry, is filed under its owner and
/// has not moved to another (PropertyBase::getOwnerMoves tells when one may have). Otherwise
/// the walk decides.
///
/// Whatever the walk leaves behind, the index keeps watching the Destroyed event of every
/// property it still points at, so a destroyed property never stays in it.
///
/// Memory: string kinds with a fixed-format check (PropertyIndexKeysByText) key their entries by
/// the plain text and keep one copy of the value per format as the prototype find(text) reads with,
/// one per value for custom patterns; UUIDs and integers (PropertyIndexKeysByValue) are keyed by
/// the plain value (a UUID as its UuidKey), integers with one prototype per set of limits and
/// resolution. The index's
/// record of a property (its object, its state, both watches) lives in the node of the entry the
/// property was filed with, so a filed property costs one allocation, and its object is found
/// through a table of pointers to those records. When the walk takes that entry while the record
/// must live on, the node is set aside and comes back as the property's entry when it is filed
/// again; a property with a second entry gets a node of its own for it. A value filed more than
/// once also has a small record of where its entries end (m_shared), so filing one more entry
/// under it takes a descent through the distinct shared values only; a value filed once has none.
template <class TProperty>
class PropertyIndex : public PropertyIndexBase {
    struct Filing;
    typedef typename TProperty::property_value value_kind;
    static constexpr bool BY_TEXT = PropertyIndexKeysByText<value_kind>::value;
    static constexpr bool BY_VALUE = PropertyIndexKeysByValue<value_kind>::value;
    // Whether nodes keep a prototype for find(text): a UUID's check is the kind's alone.
    static constexpr bool IS_UUID = std::is_same_v<value_kind, PropertyValueUuid>;
    static constexpr bool PROTOTYPED = BY_TEXT || (BY_VALUE && !IS_UUID);
    // Whether values shared by several entries are listed in m_shared: for keys whose order
    // never changes once filed (a reference's order follows its target, which may go away).
    static constexpr bool LISTS_SHARED =
        BY_TEXT || BY_VALUE || std::is_base_of_v<PropertyValue<Poco::URI>, value_kind>;
    // UUIDs are keyed by UuidKey: the UUID library's ordering, compared inline.
    typedef std::conditional_t<
        IS_UUID, UuidKey,
        std::conditional_t<BY_TEXT || BY_VALUE, typename value_kind::value_type, value_kind>>
        map_key;
    typedef std::conditional_t<BY_TEXT || BY_VALUE, std::less<>, PropertyIndexKeyLess<value_kind>>
        map_less;

public:
    /// The property class the index files, TProperty.
    typedef TProperty property_type;
    /// A filed property; not owned.
    typedef property_type* property_ptr;
    /// The value class entries are ordered by; each entry holds a copy of its property's value
    /// (its plain value, for the kinds PropertyIndexKeysByText and PropertyIndexKeysByValue
    /// name; a UUID's as its UuidKey).
    typedef typename TProperty::property_value key_type;
    /// The entries, value to the index's record of the property filed there, equal values in
    /// filing order.
    typedef std::multimap<map_key, Filing, map_less> value_map;
    /// The payload of TProperty's ValueChanged event.
    typedef typename property_type::ValueChangedEventPayload ValueChangedEventPayload;

    /// An empty index for the properties under `key`.
    explicit PropertyIndex(const PropertyKey& key)
        : PropertyIndexBase(key), m_movesSeen(PropertyBase::getOwnerMoves()) {}
    /// Unsubscribes from every property it holds.
    ~PropertyIndex() override { clear(); }

    bool insert(PropertyBase* property) override;
    /// The typed form of insert(PropertyBase*), with the same answers.
    bool insert(const property_ptr& property);
    bool remove(Object* object) override;
    /// remove(Object*) for the property's current parent; false for null.
    bool remove(const property_ptr& property);
    /// remove(Object*) for the property's current parent.
    bool remove(const property_type& property);
    /// Unfiles everything and unsubscribes from every property it holds.
    void clear();

    std::vector<Object*> get() const override;
    /// The property filed for `object`, typed, or null.
    property_ptr get(Object* object) const;
    PropertyBase* find(Object* object) const override { return get(object); }
    /// Owners of the entries whose value equals `value` by the index's ordering, in filing
    /// order.
    std::vector<Object*> find(const key_type& value) const;
    std::vector<Object*> find(const std::string& text) const override;
    std::vector<Object*> find(const Poco::RegularExpression& re) const override;

    /// Makes the index's handlers watch `property`'s Destroyed and ValueChanged events, where
    /// the index files it. The watch is a hook in the index's record of the property
    /// (Util::EventHook), so it allocates nothing and is called before the events' delegates.
    void registerPropertyEvents(property_type* property);
    /// Ends both watches registerPropertyEvents began.
    void unregisterPropertyEvents(property_type* property);
    /// Destroyed: drops the property's object, then anything else that still holds the property.
    void onPropertyRemoved(const void* sender, PropertyEventPayload& payload);
    /// ValueChanged: re-files an entry of the property's owner under the new value.
    void onPropertyDataChanged(const void* sender, ValueChangedEventPayload& payload);

private:
    static constexpr bool IS_TEXT = std::is_base_of_v<PropertyValue<std::string>, key_type>;
    typedef typename value_map::iterator position;
    typedef typename value_map::node_type parked_node;

    // What the index holds of one property, in the node of the entry it was filed with (its
    // home). A filing lives while the property's events are registered (`observed`) or the
    // property is referenced by an entry or the object table; while it lives, the index
    // watches the property's Destroyed event. Both watches are this record: the hooks find it
    // without a lookup. A node made for a property's second entry holds a `secondary` record,
    // of which only `property` counts.
    struct Filing final : Util::EventHook<PropertyEventPayload>,
                          Util::EventHook<ValueChangedEventPayload> {
        Filing(PropertyIndex* owner, property_ptr filed, Object* filedFor, bool extra)
            : index(owner),
              property(filed),
              key(filedFor),
              located(true),
              observed(true),
              parked(false),
              secondary(extra),
              stray(false),
              shared(false),
              bound(false),
              prototype(0) {}
        void onEvent(const void*, PropertyEventPayload& payload) override {
            index->onDestroyed(*this, payload);
        }
        void onEvent(const void*, ValueChangedEventPayload& payload) override {
            index->onChanged(*this, payload);
        }

        PropertyIndex* index;
        property_ptr property;
        Object* key;                // the object the table files it under, or null
        position entry;             // its one entry, when `located`
        std::uint32_t entries = 1;  // how many entries of m_index hold it
        std::uint32_t located : 1;
        std::uint32_t observed : 1;
        std::uint32_t parked : 1;      // its home node is out of m_index, in m_parked
        std::uint32_t secondary : 1;   // not a filing: the node is another entry of `property`
        std::uint32_t stray : 1;       // listed in m_strays
        std::uint32_t shared : 1;      // the node is an entry of a value listed in m_shared
        std::uint32_t bound : 1;       // the node is the bound of a value listed in m_shared
        std::uint32_t prototype : 25;  // the node's value in m_prototypes, when PROTOTYPED
    };
    // A value kept for the check find(text) applies, and how many nodes use it.
    struct Prototype {
        key_type value;
        std::uint32_t users;
    };

    // A reference to the stored key for every kind but UUIDs, whose key is made.
    static decltype(auto) keyOf(const key_type& value) {
        if constexpr (BY_TEXT) {
            return value.key_type::getValue();
        } else if constexpr (IS_UUID) {
            return UuidKey(value.key_type::getValue());
        } else if constexpr (BY_VALUE) {
            // The stored value itself, which the kind's typed operator< compares.
            return static_cast<const map_key&>(value);
        } else {
            return value;
        }
    }
    template <class Key>
    static const std::string& textOf(const Key& key) {
        if constexpr (BY_TEXT) {
            return key;
        } else {
            return key.key_type::getValue();
        }
    }
    // The text form of a plain key, as its value's toString() gives it.
    template <class Key>
    static std::string textOfValue(const Key& key) {
        if constexpr (IS_UUID) {
            return key_type(key.toUuid()).toString();
        } else {
            return key_type(key, {}, {}, {}).toString();
        }
    }
    // Whether values of `value`'s check may share one prototype, and whether two share it.
    template <class Value>
    static bool isSharedCheck(const Value& value) {
        if constexpr (BY_TEXT) {
            return value.getFormatType() != PropertyValueString::STRING_FORMAT_CUSTOM;
        } else {
            return true;
        }
    }
    template <class Value>
    static bool isSameCheck(const Value& a, const Value& b) {
        if constexpr (BY_TEXT) {
            return a.getFormatType() == b.getFormatType();
        } else {
            return a.getMinValue() == b.getMinValue() && a.getMaxValue() == b.getMaxValue() &&
                   a.getResolution() == b.getResolution();
        }
    }
    // A node's share of a prototype with `value`'s check; nothing unless PROTOTYPED.
    std::uint32_t acquirePrototype(const key_type& value);
    void releasePrototype(std::uint32_t prototype);

    static Object* ownerOf(position entry) { return entry->second.property->getParent(); }
    static bool isRegular(const Filing& filing) {
        return filing.observed && filing.key != nullptr && filing.entries == 1 && filing.located;
    }
    bool inRangeOf(position entry, const key_type& value) const;
    // Counts the filings whose property has moved since the owner-move count last changed,
    // and lists them as strays.
    void refreshMoves();
    // Whether no two entries can share an owner, so a kept position is what the walk finds.
    bool ownersAreDistinct();
    // Whether `filing`'s kept position is the entry the walk over `value`'s entries finds for
    // `owner`.
    bool isKeptAnswer(const Filing& filing, const Object* owner, const key_type& value);
    // The first entry of `range` whose property belongs to `owner`, or the end of the range.
    static position walk(const Object* owner, std::pair<position, position> range);
    std::vector<Object*> findPrefix(const PrefixRegularExpression& re) const;
    static std::vector<Object*> owners(typename value_map::const_iterator first,
                                       typename value_map::const_iterator last);

    // Calls `visit` with every filing, in no particular order.
    template <class Visit>
    void forEachFiling(Visit&& visit);
    // The filing of `property`, or null: by its owner, else among the strays; a property
    // without owner is looked for everywhere.
    Filing* filingOf(const PropertyBase* property);
    // The filing of `property` among the strays, or null.
    Filing* strayFilingOf(const PropertyBase* property);
    Filing* filingOf(position entry) {
        return entry->second.secondary ? filingOf(entry->second.property) : &entry->second;
    }
    // A value filed more than once: the entry just after its entries (the first of a greater
    // value, or the end), and how many entries it has.
    struct Shared {
        position bound;
        std::size_t entries;
    };
    // Files a node after every entry of `key`'s value; `place(hint)` inserts it with that hint.
    template <class Place>
    position fileEntry(const map_key& key, Place&& place);
    // Keeps m_shared true before `entry`, an entry of a listed value or a bound, is erased.
    void unlistEntry(position entry);
    void addEntry(Filing& filing);
    void eraseEntry(Filing& filing, position entry);
    void unfile(Filing& filing);
    void unobserve(Filing& filing);
    void listStray(Filing& filing);
    // Ends a filing that is neither observed nor referenced any longer.
    void release(Filing& filing);
    // Drops every trace of the property of `filing`: its entries, its object, its events.
    void forget(Filing& filing);
    // Ends a filing without entry, with its home node.
    void erase(Filing& filing);
    // Takes `filing`'s home node out of m_parked.
    parked_node unpark(const Filing& filing);
    void onDestroyed(Filing& filing, PropertyEventPayload& payload);
    void onChanged(Filing& filing, ValueChangedEventPayload& payload);

    value_map m_index;
    // The values filed more than once, for LISTS_SHARED kinds. A value that many entries share
    // is filed by a descent through these few keys and an insertion just before its bound,
    // instead of a descent through all the entries; a value filed once costs nothing here. A
    // value is listed from its second entry until it has none, so a value that is not listed
    // has at most one.
    std::map<map_key, Shared, map_less> m_shared;
    // Values with the checks of the filed ones, for PROTOTYPED kinds; unused slots are listed
    // free.
    std::vector<Prototype> m_prototypes;
    std::vector<std::uint32_t> m_freePrototypes;
    // Those shared by every value of one check (a fixed format, limits), at most
    // MAX_SHARED_PROTOTYPES of them: further checks get a prototype per node, so filing stays
    // cheap whatever limits the values carry.
    std::vector<std::uint32_t> m_sharedPrototypes;
    static constexpr std::size_t MAX_SHARED_PROTOTYPES = 16;
    PropertyIndexOwnerTable<Filing> m_objects;
    // Home nodes of filings without entry.
    std::vector<parked_node> m_parked;
    // Filings that m_objects does not find by their property's owner: unfiled or moved ones
    // (some may have moved back).
    std::vector<Filing*> m_strays;
    std::size_t m_irregular = 0;  // filings that are not isRegular
    // What refreshMoves saw: the owner-move count and how many filings had moved then.
    std::uint64_t m_movesSeen;
    std::size_t m_moved = 0;
    bool m_movedStale = false;
    // The filing whose Destroyed event is being handled, until it ends.
    Filing* m_dying = nullptr;
};

template <class TProperty>
bool PropertyIndex<TProperty>::insert(PropertyBase* property) {
    if (property == nullptr || property->getParent() == nullptr || property->getKey() != m_key) {
        return false;
    }
    // Properties are mostly exactly TProperty: comparing the type spares the general cast.
    property_ptr typed = typeid(*property) == typeid(property_type)
                             ? static_cast<property_ptr>(property)
                             : dynamic_cast<property_ptr>(property);
    return typed != nullptr && insert(typed);
}

template <class TProperty>
bool PropertyIndex<TProperty>::insert(const property_ptr& property) {
    if (property == nullptr || property->getParent() == nullptr) return false;
    if (property->getKey() != m_key) return false;
    Object* owner = property->getParent();
    // Not under its owner, which no filing may hold: a filing of the property is a stray.
    if (m_objects.find(owner) != nullptr || strayFilingOf(property) != nullptr) return false;
    const std::uint32_t prototype = acquirePrototype(property->getPropertyValue());
    const auto& key = keyOf(property->getPropertyValue());
    const position entry = fileEntry(key, [&](position hint) {
        return m_index.emplace_hint(hint, std::piecewise_construct, std::forward_as_tuple(key),
                                    std::forward_as_tuple(this, property, owner, false));
    });
    Filing& filing = entry->second;
    filing.prototype = prototype;
    filing.entry = entry;
    m_objects.insert(&filing);
    property->Destroyed.attach(filing);
    property->ValueChanged.attach(filing);
    return true;
}

template <class TProperty>
bool PropertyIndex<TProperty>::inRangeOf(position entry, const key_type& value) const {
    const map_less less;
    if (entry == m_index.end()) return false;
    const auto& key = keyOf(value);
    return !less(entry->first, key) && !less(key, entry->first);
}

template <class TProperty>
template <class Visit>
void PropertyIndex<TProperty>::forEachFiling(Visit&& visit) {
    for (auto& entry : m_index) {
        if (!entry.second.secondary) visit(entry.second);
    }
    for (parked_node& node : m_parked) visit(node.mapped());
}

template <class TProperty>
void PropertyIndex<TProperty>::refreshMoves() {
    const std::uint64_t moves = PropertyBase::getOwnerMoves();
    if (moves == m_movesSeen && !m_movedStale) return;
    m_movesSeen = moves;
    m_movedStale = false;
    m_moved = 0;
    forEachFiling([this](Filing& held) {
        const Object* owner = held.property->getParent();
        if (owner != nullptr && owner != held.key) {
            ++m_moved;
            listStray(held);
        }
    });
}

template <class TProperty>
bool PropertyIndex<TProperty>::ownersAreDistinct() {
    if (m_irregular != 0) return false;
    refreshMoves();
    return m_moved == 0;
}

template <class TProperty>
typename PropertyIndex<TProperty>::position PropertyIndex<TProperty>::walk(
    const Object* owner, std::pair<position, position> range) {
    position entry = range.first;
    while (entry != range.second && ownerOf(entry) != owner) ++entry;
    return entry;
}

template <class TProperty>
bool PropertyIndex<TProperty>::isKeptAnswer(const Filing& filing, const Object* owner,
                                            const key_type& value) {
    return owner != nullptr && filing.located && inRangeOf(filing.entry, value) &&
           ownerOf(filing.entry) == owner && ownersAreDistinct();
}

template <class TProperty>
typename PropertyIndex<TProperty>::Filing* PropertyIndex<TProperty>::strayFilingOf(
    const PropertyBase* property) {
    refreshMoves();
    for (Filing* stray : m_strays) {
        if (stray->property == property) return stray;
    }
    return nullptr;
}

template <class TProperty>
typename PropertyIndex<TProperty>::Filing* PropertyIndex<TProperty>::filingOf(
    const PropertyBase* property) {
    if (const Object* owner = property->getParent()) {
        // Filed under its owner, unfiled, or moved (which changes the owner-move count).
        Filing* filed = m_objects.find(owner);
        if (filed != nullptr && filed->property == property) return filed;
        return strayFilingOf(property);
    }
    Filing* found = nullptr;
    forEachFiling([&found, property](Filing& held) {
        if (held.property == property) found = &held;
    });
    return found;
}

template <class TProperty>
bool PropertyIndex<TProperty>::remove(Object* object) {
    Filing* const own = m_objects.find(object);
    if (own == nullptr) return false;
    property_ptr property = own->property;
    if (property->getKey() != m_key) return false;
    const key_type& value = property->getPropertyValue();
    Object* owner = property->getParent();
    position entry = own->entry;
    if (!isKeptAnswer(*own, owner, value)) {
        const auto range = m_index.equal_range(keyOf(value));
        if (range.first == range.second) return false;
        // Past a range without the object's entry, the entry after the range is the one taken.
        entry = walk(owner, range);
        if (entry == m_index.end()) return false;
    }
    Filing* const taken = entry->second.property == property ? own : filingOf(entry);
    unobserve(*taken);
    Filing* const keyed = owner == own->key ? own : m_objects.find(owner);
    if (keyed != nullptr) unfile(*keyed);
    eraseEntry(*taken, entry);
    if (keyed != nullptr && keyed != taken) release(*keyed);
    release(*taken);
    return true;
}

template <class TProperty>
bool PropertyIndex<TProperty>::remove(const property_ptr& property) {
    return property != nullptr && remove(property->getParent());
}

template <class TProperty>
bool PropertyIndex<TProperty>::remove(const property_type& property) {
    return remove(property.getParent());
}

template <class TProperty>
template <class Place>
typename PropertyIndex<TProperty>::position PropertyIndex<TProperty>::fileEntry(const map_key& key,
                                                                                Place&& place) {
    if constexpr (!LISTS_SHARED) return place(m_index.end());
    const auto listed = m_shared.find(key);
    if (listed != m_shared.end()) {
        const position entry = place(listed->second.bound);
        entry->second.shared = true;
        ++listed->second.entries;
        return entry;
    }
    // The hint at the end is taken past the greatest key, else it is a descent to the end of the
    // value's entries.
    const position entry = place(m_index.end());
    const map_less less;
    if (entry != m_index.begin()) {
        const position before = std::prev(entry);
        if (!less(before->first, entry->first)) {
            const position bound = std::next(entry);
            m_shared.emplace(entry->first, Shared{bound, 2});
            before->second.shared = true;
            entry->second.shared = true;
            if (bound != m_index.end()) bound->second.bound = true;
            return entry;
        }
    }
    // A new value: it bounds the listed value just below it when nothing came between them.
    auto below = m_shared.lower_bound(entry->first);
    if (below != m_shared.begin()) {
        Shared& shared = (--below)->second;
        if (shared.bound == m_index.end() || less(entry->first, shared.bound->first)) {
            if (shared.bound != m_index.end()) shared.bound->second.bound = false;
            shared.bound = entry;
            entry->second.bound = true;
        }
    }
    return entry;
}

template <class TProperty>
void PropertyIndex<TProperty>::unlistEntry(position entry) {
    // The value's own listing first: when it ends, the entry after goes on bounding the listed
    // value below.
    if (entry->second.shared) {
        entry->second.shared = false;
        const auto listed = m_shared.find(entry->first);
        if (--listed->second.entries == 0) {
            if (listed->second.bound != m_index.end()) listed->second.bound->second.bound = false;
            m_shared.erase(listed);
        }
    }
    if (entry->second.bound) {
        entry->second.bound = false;
        auto below = m_shared.lower_bound(entry->first);
        const position next = std::next(entry);
        (--below)->second.bound = next;
        if (next != m_index.end()) next->second.bound = true;
    }
}

template <class TProperty>
void PropertyIndex<TProperty>::addEntry(Filing& filing) {
    if (!isRegular(filing)) --m_irregular;
    position entry;
    if (filing.parked) {
        // The home node comes back, under the property's current value.
        parked_node node = unpark(filing);
        const key_type& value = filing.property->getPropertyValue();
        const std::uint32_t prototype = acquirePrototype(value);
        releasePrototype(filing.prototype);
        filing.prototype = prototype;
        node.key() = keyOf(value);
        entry = fileEntry(node.key(),
                          [&](position hint) { return m_index.insert(hint, std::move(node)); });
        filing.parked = false;
    } else {
        const key_type& value = filing.property->getPropertyValue();
        const std::uint32_t prototype = acquirePrototype(value);
        const auto& key = keyOf(value);
        entry = fileEntry(key, [&](position hint) {
            return m_index.emplace_hint(hint, std::piecewise_construct, std::forward_as_tuple(key),
                                        std::forward_as_tuple(this, filing.property, nullptr, true));
        });
        entry->second.prototype = prototype;
    }
    filing.located = ++filing.entries == 1;
    filing.entry = entry;
    if (!isRegular(filing)) ++m_irregular;
}

template <class TProperty>
void PropertyIndex<TProperty>::eraseEntry(Filing& filing, position entry) {
    if (!isRegular(filing)) --m_irregular;
    if (filing.located && filing.entry == entry) filing.located = false;
    --filing.entries;
    if (entry->second.shared || entry->second.bound) unlistEntry(entry);
    if (&entry->second == &filing) {
        m_parked.push_back(m_index.extract(entry));
        filing.parked = true;
    } else {
        releasePrototype(entry->second.prototype);
        m_index.erase(entry);
    }
    if (!isRegular(filing)) ++m_irregular;
}

template <class TProperty>
void PropertyIndex<TProperty>::listStray(Filing& filing) {
    if (filing.stray) return;
    filing.stray = true;
    m_strays.push_back(&filing);
}

template <class TProperty>
void PropertyIndex<TProperty>::unfile(Filing& filing) {
    if (!isRegular(filing)) --m_irregular;
    m_objects.erase(filing.key);
    filing.key = nullptr;
    listStray(filing);
    ++m_irregular;
}

template <class TProperty>
void PropertyIndex<TProperty>::unobserve(Filing& filing) {
    if (!filing.observed) return;
    if (!isRegular(filing)) --m_irregular;
    filing.property->ValueChanged.detach(filing);
    filing.observed = false;
    ++m_irregular;
}

template <class TProperty>
void PropertyIndex<TProperty>::release(Filing& filing) {
    if (!filing.observed && filing.key == nullptr && filing.entries == 0) erase(filing);
}

template <class TProperty>
void PropertyIndex<TProperty>::erase(Filing& filing) {
    filing.property->Destroyed.detach(filing);
    if (filing.observed) filing.property->ValueChanged.detach(filing);
    if (!isRegular(filing)) --m_irregular;
    if (m_moved != 0) m_movedStale = true;
    if (&filing == m_dying) m_dying = nullptr;
    if (filing.stray) {
        auto listed = m_strays.begin();
        while (*listed != &filing) ++listed;
        *listed = m_strays.back();
        m_strays.pop_back();
    }
    releasePrototype(filing.prototype);
    unpark(filing);
}

template <class TProperty>
std::uint32_t PropertyIndex<TProperty>::acquirePrototype(const key_type& value) {
    if constexpr (PROTOTYPED) {
        // A fixed format's values share one check; a custom pattern may be any value's own.
        bool shared = isSharedCheck(value);
        if (shared) {
            for (const std::uint32_t kept : m_sharedPrototypes) {
                Prototype& prototype = m_prototypes[kept];
                if (isSameCheck(prototype.value, value)) {
                    ++prototype.users;
                    return kept;
                }
            }
            shared = m_sharedPrototypes.size() < MAX_SHARED_PROTOTYPES;
        }
        std::uint32_t made;
        if (m_freePrototypes.empty()) {
            made = static_cast<std::uint32_t>(m_prototypes.size());
            m_prototypes.push_back(Prototype{value, 1});
        } else {
            made = m_freePrototypes.back();
            m_freePrototypes.pop_back();
            m_prototypes[made] = Prototype{value, 1};
        }
        if (shared) m_sharedPrototypes.push_back(made);
        return made;
    } else {
        return 0;
    }
}

template <class TProperty>
void PropertyIndex<TProperty>::releasePrototype(std::uint32_t prototype) {
    if constexpr (PROTOTYPED) {
        if (--m_prototypes[prototype].users != 0) return;
        m_freePrototypes.push_back(prototype);
        for (auto shared = m_sharedPrototypes.begin(); shared != m_sharedPrototypes.end();
             ++shared) {
            if (*shared == prototype) {
                m_sharedPrototypes.erase(shared);
                break;
            }
        }
    }
}

template <class TProperty>
typename PropertyIndex<TProperty>::parked_node PropertyIndex<TProperty>::unpark(
    const Filing& filing) {
    auto home = m_parked.end();
    do {
        --home;
    } while (&home->mapped() != &filing);
    parked_node node = std::move(*home);
    if (home != m_parked.end() - 1) *home = std::move(m_parked.back());
    m_parked.pop_back();
    return node;
}

template <class TProperty>
void PropertyIndex<TProperty>::forget(Filing& filing) {
    if (filing.key != nullptr) unfile(filing);
    if (filing.located && filing.entries == 1) {
        eraseEntry(filing, filing.entry);
    }
    for (auto entry = m_index.begin(); filing.entries != 0 && entry != m_index.end();) {
        const position next = std::next(entry);
        if (entry->second.property == filing.property) eraseEntry(filing, entry);
        entry = next;
    }
    erase(filing);
}

template <class TProperty>
void PropertyIndex<TProperty>::clear() {
    forEachFiling([](Filing& held) {
        held.property->Destroyed.detach(held);
        if (held.observed) held.property->ValueChanged.detach(held);
    });
    m_index.clear();
    m_shared.clear();
    m_parked.clear();
    m_objects.clear();
    m_strays.clear();
    m_prototypes.clear();
    m_freePrototypes.clear();
    m_sharedPrototypes.clear();
    m_irregular = 0;
    m_moved = 0;
    m_movedStale = false;
}

template <class TProperty>
std::vector<Object*> PropertyIndex<TProperty>::owners(typename value_map::const_iterator first,
                                                      typename value_map::const_iterator last) {
    std::vector<Object*> result;
    for (; first != last; ++first) result.push_back(first->second.property->getParent());
    return result;
}

template <class TProperty>
std::vector<Object*> PropertyIndex<TProperty>::get() const {
    std::vector<Object*> result;
    result.reserve(m_index.size());
    for (const auto& entry : m_index) result.push_back(entry.second.property->getParent());
    return result;
}

template <class TProperty>
typename PropertyIndex<TProperty>::property_ptr PropertyIndex<TProperty>::get(
    Object* object) const {
    const Filing* filed = m_objects.find(object);
    return filed == nullptr ? nullptr : filed->property;
}

template <class TProperty>
std::vector<Object*> PropertyIndex<TProperty>::find(const key_type& value) const {
    const auto range = m_index.equal_range(keyOf(value));
    return owners(range.first, range.second);
}

template <class TProperty>
std::vector<Object*> PropertyIndex<TProperty>::find(const std::string& text) const {
    if (m_index.empty()) return {};
    // The smallest value as prototype: the text is read with the filed values' own kind,
    // format and limits. A string kind stores its text as given, so checking it is enough.
    if constexpr (BY_TEXT) {
        const Prototype& prototype = m_prototypes[m_index.begin()->second.prototype];
        if (!prototype.value.isValidValue(text)) return {};
        const auto range = m_index.equal_range(text);
        return owners(range.first, range.second);
    } else if constexpr (IS_TEXT) {
        if (!m_index.begin()->first.isValidValue(text)) return {};
        const auto range = m_index.equal_range(text);
        return owners(range.first, range.second);
    } else if constexpr (PROTOTYPED) {
        key_type prototype(m_prototypes[m_index.begin()->second.prototype].value);
        if (!prototype.setValueFromString(text)) return {};
        return find(prototype);
    } else if constexpr (BY_VALUE) {
        key_type prototype(Poco::UUID::null());
        if (!prototype.setValueFromString(text)) return {};
        return find(prototype);
    } else if constexpr (std::is_base_of_v<PropertyValue<Poco::URI>, key_type>) {
        // Read and checked as setValueFromString would (its log line included), then looked
        // up by the path that orders URIs: storing the text would read it twice more.
        const key_type& prototype = m_index.begin()->first;
        Poco::URI parsed;
        if (!prototype.parseString(text, parsed) || !prototype.isValidValue(parsed)) return {};
        const auto range = m_index.equal_range(std::string_view(parsed.getPath()));
        return owners(range.first, range.second);
    } else {
        key_type prototype(m_index.begin()->first);
        if (!prototype.setValueFromString(text)) return {};
        return find(prototype);
    }
}

template <class TProperty>
std::vector<Object*> PropertyIndex<TProperty>::find(const Poco::RegularExpression& re) const {
    std::vector<Object*> result;
    if constexpr (IS_TEXT) {
        if (const PrefixRegularExpression* prefixed = PrefixRegularExpression::of(re)) {
            return findPrefix(*prefixed);
        }
        for (const auto& entry : m_index) {
            if (re.match(textOf(entry.first), 0)) {
                result.push_back(entry.second.property->getParent());
            }
        }
    } else if constexpr (BY_VALUE) {
        for (const auto& entry : m_index) {
            if (re.match(textOfValue(entry.first), 0)) {
                result.push_back(entry.second.property->getParent());
            }
        }
    } else {
        for (const auto& entry : m_index) {
            if (re.match(entry.first.toString(), 0)) {
                result.push_back(entry.second.property->getParent());
            }
        }
    }
    return result;
}

template <class TProperty>
std::vector<Object*> PropertyIndex<TProperty>::findPrefix(const PrefixRegularExpression& re) const {
    std::vector<Object*> result;
    if constexpr (IS_TEXT) {
        const std::string& prefix = re.getPrefix();
        const bool anyTail = re.getMode() == PrefixRegularExpression::PREFIX_TEXT;
        for (auto entry = m_index.lower_bound(prefix); entry != m_index.end(); ++entry) {
            const std::string& text = textOf(entry->first);
            if (text.compare(0, prefix.size(), prefix) != 0) break;
            // Without dot-all, ".*" stops at a line break; a match never covers the empty text.
            if (!text.empty() && (anyTail || text.find('\n', prefix.size()) == std::string::npos)) {
                result.push_back(entry->second.property->getParent());
            }
        }
    }
    return result;
}

template <class TProperty>
void PropertyIndex<TProperty>::registerPropertyEvents(property_type* property) {
    Filing* filing = filingOf(property);
    if (filing == nullptr) return;
    property->Destroyed.attach(*filing);
    property->ValueChanged.attach(*filing);
}

template <class TProperty>
void PropertyIndex<TProperty>::unregisterPropertyEvents(property_type* property) {
    Filing* filing = filingOf(property);
    if (filing == nullptr) return;
    property->Destroyed.detach(*filing);
    property->ValueChanged.detach(*filing);
}

template <class TProperty>
void PropertyIndex<TProperty>::onPropertyRemoved(const void*, PropertyEventPayload& payload) {
    if (Filing* filing = filingOf(payload.getSourceProperty())) onDestroyed(*filing, payload);
}

template <class TProperty>
void PropertyIndex<TProperty>::onDestroyed(Filing& filing, PropertyEventPayload& payload) {
    Filing* held = &filing;
    if (held->observed) {
        const PropertyBase* source = payload.getSourceProperty();
        Object* parent = source->getParent();
        m_dying = held;
        if (parent == nullptr) {
            QES_LOG_WARNING("ProperyIndex: Received event from a property with key "
                            << m_key << " but without parent");
        } else if (remove(parent)) {
            QES_LOG_DEBUG("ProperyIndex: property " << m_key << " from "
                                                    << parent->getType().identifier
                                                    << " has been removed");
        } else {
            QES_LOG_WARNING("ProperyIndex: Received event from unknown property "
                            << m_key << " from " << parent->getType().identifier);
        }
        held = m_dying;
        m_dying = nullptr;
    }
    // The property is going away all the same: nothing may keep pointing at it.
    if (held != nullptr) forget(*held);
}

template <class TProperty>
void PropertyIndex<TProperty>::onPropertyDataChanged(const void*,
                                                     ValueChangedEventPayload& payload) {
    if (Filing* filing = filingOf(payload.concreteSource)) onChanged(*filing, payload);
}

template <class TProperty>
void PropertyIndex<TProperty>::onChanged(Filing& filing, ValueChangedEventPayload& payload) {
    property_ptr property = filing.property;
    const Object* owner = property->getParent();
    position entry = filing.entry;
    if (!isKeptAnswer(filing, owner, payload.oldValue)) {
        const auto range = m_index.equal_range(keyOf(payload.oldValue));
        entry = walk(owner, range);
        if (entry == range.second) return;
    }
    Filing* const taken = entry->second.property == property ? &filing : filingOf(entry);
    eraseEntry(*taken, entry);
    addEntry(filing);
    if (taken != &filing) release(*taken);
}

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEX_H
