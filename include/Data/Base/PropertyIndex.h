#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEX_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEX_H

#include <cstdint>
#include <iterator>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

#include <Poco/RegularExpression.h>
#include <Poco/SharedPtr.h>

#include "Data/Base/Object.h"
#include "Data/Base/PropertyBase.h"
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
/// a plain text, so a range of texts can be looked up without building a value.
template <class V, bool = std::is_base_of_v<PropertyValue<std::string>, V>>
struct PropertyIndexKeyLess {
    /// Whether `a` orders before `b` by V's typed operator<.
    bool operator()(const V& a, const V& b) const { return a < b; }
};

/// The ordering of string kinds: by text, byte-wise, also between a value and a plain text.
//
// The keys are stored by value, so their dynamic type is V: the qualified calls spare the
// virtual dispatch on the hottest path of every lookup.
template <class V>
struct PropertyIndexKeyLess<V, true> {
    /// Lets ordered containers look plain texts up.
    typedef void is_transparent;
    /// Whether `a`'s text orders before `b`'s.
    bool operator()(const V& a, const V& b) const { return a.V::getValue() < b.V::getValue(); }
    /// Whether `a`'s text orders before the text `b`.
    bool operator()(const V& a, const std::string& b) const { return a.V::getValue() < b; }
    /// Whether the text `a` orders before `b`'s text.
    bool operator()(const std::string& a, const V& b) const { return a < b.V::getValue(); }
};

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
template <class TProperty>
class PropertyIndex : public PropertyIndexBase {
public:
    /// The property class the index files, TProperty.
    typedef TProperty property_type;
    /// A filed property; not owned.
    typedef property_type* property_ptr;
    /// The value class entries are ordered by; each entry holds a copy of its property's value.
    typedef typename TProperty::property_value key_type;
    /// The entries, value to property, equal values in filing order.
    typedef std::multimap<key_type, property_ptr, PropertyIndexKeyLess<key_type>> value_map;
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

    // The index's watch of one event of a filed property.
    template <class TArgs, void (PropertyIndex::*HANDLER)(const void*, TArgs&)>
    class Watch : public Util::EventHook<TArgs> {
    public:
        explicit Watch(PropertyIndex* index) : m_index(index) {}
        void onEvent(const void* sender, TArgs& args) override { (m_index->*HANDLER)(sender, args); }

    private:
        PropertyIndex* m_index;
    };

    // What the index holds of one property. A filing lives while the property's events are
    // registered (`observed`) or the property is referenced by an entry or the object map;
    // while it lives, the index watches the property's Destroyed event.
    struct Filing {
        Filing(PropertyIndex* index, property_ptr filed, Object* owner, position at)
            : property(filed), key(owner), entry(at), destroyedWatch(index), valueWatch(index) {}

        property_ptr property;
        Object* key;             // the object m_objectMap files it under, or null
        position entry;          // its one entry, when `located`
        unsigned entries = 1;    // how many entries of m_index hold it
        bool located = true;
        bool observed = true;
        Watch<PropertyEventPayload, &PropertyIndex::onPropertyRemoved> destroyedWatch;
        Watch<ValueChangedEventPayload, &PropertyIndex::onPropertyDataChanged> valueWatch;
    };
    typedef std::map<const PropertyBase*, Filing> filing_map;
    typedef typename filing_map::iterator filing_ptr;

    static Object* ownerOf(position entry) { return entry->second->getParent(); }
    static bool isRegular(const Filing& filing) {
        return filing.observed && filing.key != nullptr && filing.entries == 1 && filing.located;
    }
    bool inRangeOf(position entry, const key_type& value) const;
    // Whether no two entries can share an owner, so a kept position is what the walk finds.
    bool ownersAreDistinct() const;
    // Whether `filing`'s kept position is the entry the walk over `value`'s entries finds for
    // `owner`.
    bool isKeptAnswer(const Filing& filing, const Object* owner, const key_type& value) const;
    // The first entry of `range` whose property belongs to `owner`, or the end of the range.
    static position walk(const Object* owner, std::pair<position, position> range);
    std::vector<Object*> findPrefix(const PrefixRegularExpression& re) const;
    static std::vector<Object*> owners(typename value_map::const_iterator first,
                                       typename value_map::const_iterator last);

    filing_ptr filingOf(position entry) { return m_filings.find(entry->second); }
    void addEntry(filing_ptr filing);
    void eraseEntry(filing_ptr filing, position entry);
    void unfile(filing_ptr filing);
    void unobserve(filing_ptr filing);
    // Ends a filing that is neither observed nor referenced any longer.
    void release(filing_ptr filing);
    // Drops every trace of the property of `filing`: its entries, its object, its events.
    void forget(filing_ptr filing);
    void erase(filing_ptr filing);

    value_map m_index;
    std::map<Object*, filing_ptr> m_objectMap;
    filing_map m_filings;
    std::size_t m_irregular = 0;  // filings that are not isRegular
    // What ownersAreDistinct saw: the owner-move count and how many filings had moved then.
    mutable std::uint64_t m_movesSeen;
    mutable std::size_t m_moved = 0;
    mutable bool m_movedStale = false;
};

template <class TProperty>
bool PropertyIndex<TProperty>::insert(PropertyBase* property) {
    if (property == nullptr || property->getParent() == nullptr || property->getKey() != m_key) {
        return false;
    }
    property_ptr typed = dynamic_cast<property_ptr>(property);
    return typed != nullptr && insert(typed);
}

template <class TProperty>
bool PropertyIndex<TProperty>::insert(const property_ptr& property) {
    if (property == nullptr || property->getParent() == nullptr) return false;
    if (property->getKey() != m_key) return false;
    Object* owner = property->getParent();
    const auto [filed, isNewObject] = m_objectMap.try_emplace(owner, m_filings.end());
    if (!isNewObject) return false;
    const position entry = m_index.end();
    const auto [filing, isNewProperty] = m_filings.try_emplace(property, this, property, owner, entry);
    if (!isNewProperty) {
        m_objectMap.erase(filed);
        return false;
    }
    filing->second.entry = m_index.emplace(property->getPropertyValue(), property);
    filed->second = filing;
    registerPropertyEvents(property);
    return true;
}

template <class TProperty>
bool PropertyIndex<TProperty>::inRangeOf(position entry, const key_type& value) const {
    const PropertyIndexKeyLess<key_type> less;
    return entry != m_index.end() && !less(entry->first, value) && !less(value, entry->first);
}

template <class TProperty>
bool PropertyIndex<TProperty>::ownersAreDistinct() const {
    if (m_irregular != 0) return false;
    const std::uint64_t moves = PropertyBase::getOwnerMoves();
    if (moves != m_movesSeen || m_movedStale) {
        m_movesSeen = moves;
        m_movedStale = false;
        m_moved = 0;
        for (const auto& held : m_filings) {
            const Object* owner = held.second.property->getParent();
            if (owner != nullptr && owner != held.second.key) ++m_moved;
        }
    }
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
                                            const key_type& value) const {
    return owner != nullptr && filing.located && inRangeOf(filing.entry, value) &&
           ownerOf(filing.entry) == owner && ownersAreDistinct();
}

template <class TProperty>
bool PropertyIndex<TProperty>::remove(Object* object) {
    const auto filed = m_objectMap.find(object);
    if (filed == m_objectMap.end()) return false;
    const Filing& filing = filed->second->second;
    property_ptr property = filing.property;
    if (property->getKey() != m_key) return false;
    const key_type& value = property->getPropertyValue();
    Object* owner = property->getParent();
    position entry = filing.entry;
    if (!isKeptAnswer(filing, owner, value)) {
        const auto range = m_index.equal_range(value);
        if (range.first == range.second) return false;
        // Past a range without the object's entry, the entry after the range is the one taken.
        entry = walk(owner, range);
        if (entry == m_index.end()) return false;
    }
    const filing_ptr own = filed->second;
    const filing_ptr taken = entry->second == property ? own : filingOf(entry);
    unobserve(taken);
    filing_ptr keyed = own;
    if (owner != own->second.key) {
        const auto ownerFiled = m_objectMap.find(owner);
        keyed = ownerFiled == m_objectMap.end() ? m_filings.end() : ownerFiled->second;
    }
    if (keyed != m_filings.end()) unfile(keyed);
    eraseEntry(taken, entry);
    if (keyed != m_filings.end() && keyed != taken) release(keyed);
    release(taken);
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
void PropertyIndex<TProperty>::addEntry(filing_ptr filing) {
    Filing& held = filing->second;
    if (!isRegular(held)) --m_irregular;
    const position entry = m_index.emplace(held.property->getPropertyValue(), held.property);
    held.located = ++held.entries == 1;
    held.entry = entry;
    if (!isRegular(held)) ++m_irregular;
}

template <class TProperty>
void PropertyIndex<TProperty>::eraseEntry(filing_ptr filing, position entry) {
    Filing& held = filing->second;
    if (!isRegular(held)) --m_irregular;
    if (held.located && held.entry == entry) held.located = false;
    --held.entries;
    m_index.erase(entry);
    if (!isRegular(held)) ++m_irregular;
}

template <class TProperty>
void PropertyIndex<TProperty>::unfile(filing_ptr filing) {
    Filing& held = filing->second;
    if (!isRegular(held)) --m_irregular;
    m_objectMap.erase(held.key);
    held.key = nullptr;
    ++m_irregular;
}

template <class TProperty>
void PropertyIndex<TProperty>::unobserve(filing_ptr filing) {
    Filing& held = filing->second;
    if (!held.observed) return;
    if (!isRegular(held)) --m_irregular;
    held.property->ValueChanged.detach(held.valueWatch);
    held.observed = false;
    ++m_irregular;
}

template <class TProperty>
void PropertyIndex<TProperty>::release(filing_ptr filing) {
    const Filing& held = filing->second;
    if (!held.observed && held.key == nullptr && held.entries == 0) erase(filing);
}

template <class TProperty>
void PropertyIndex<TProperty>::erase(filing_ptr filing) {
    Filing& held = filing->second;
    held.property->Destroyed.detach(held.destroyedWatch);
    if (held.observed) held.property->ValueChanged.detach(held.valueWatch);
    if (!isRegular(held)) --m_irregular;
    if (m_moved != 0) m_movedStale = true;
    m_filings.erase(filing);
}

template <class TProperty>
void PropertyIndex<TProperty>::forget(filing_ptr filing) {
    Filing& held = filing->second;
    if (held.key != nullptr) unfile(filing);
    if (held.located && held.entries == 1) {
        eraseEntry(filing, held.entry);
    }
    for (auto entry = m_index.begin(); held.entries != 0 && entry != m_index.end();) {
        const position next = std::next(entry);
        if (entry->second == held.property) eraseEntry(filing, entry);
        entry = next;
    }
    erase(filing);
}

template <class TProperty>
void PropertyIndex<TProperty>::clear() {
    for (auto held = m_filings.begin(); held != m_filings.end(); held = m_filings.begin()) {
        erase(held);
    }
    m_index.clear();
    m_objectMap.clear();
    m_filings.clear();
    m_irregular = 0;
    m_moved = 0;
    m_movedStale = false;
}

template <class TProperty>
std::vector<Object*> PropertyIndex<TProperty>::owners(typename value_map::const_iterator first,
                                                      typename value_map::const_iterator last) {
    std::vector<Object*> result;
    for (; first != last; ++first) result.push_back(first->second->getParent());
    return result;
}

template <class TProperty>
std::vector<Object*> PropertyIndex<TProperty>::get() const {
    std::vector<Object*> result;
    result.reserve(m_index.size());
    for (const auto& entry : m_index) result.push_back(entry.second->getParent());
    return result;
}

template <class TProperty>
typename PropertyIndex<TProperty>::property_ptr PropertyIndex<TProperty>::get(
    Object* object) const {
    const auto filed = m_objectMap.find(object);
    return filed == m_objectMap.end() ? nullptr : filed->second->second.property;
}

template <class TProperty>
std::vector<Object*> PropertyIndex<TProperty>::find(const key_type& value) const {
    const auto range = m_index.equal_range(value);
    return owners(range.first, range.second);
}

template <class TProperty>
std::vector<Object*> PropertyIndex<TProperty>::find(const std::string& text) const {
    if (m_index.empty()) return {};
    // The smallest value as prototype: the text is read with the filed values' own kind,
    // format and limits. A string kind stores its text as given, so checking it is enough.
    if constexpr (IS_TEXT) {
        if (!m_index.begin()->first.isValidValue(text)) return {};
        const auto range = m_index.equal_range(text);
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
            if (re.match(entry.first.key_type::getValue(), 0)) {
                result.push_back(entry.second->getParent());
            }
        }
    } else {
        for (const auto& entry : m_index) {
            if (re.match(entry.first.toString(), 0)) result.push_back(entry.second->getParent());
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
            const std::string& text = entry->first.key_type::getValue();
            if (text.compare(0, prefix.size(), prefix) != 0) break;
            // Without dot-all, ".*" stops at a line break; a match never covers the empty text.
            if (!text.empty() && (anyTail || text.find('\n', prefix.size()) == std::string::npos)) {
                result.push_back(entry->second->getParent());
            }
        }
    }
    return result;
}

template <class TProperty>
void PropertyIndex<TProperty>::registerPropertyEvents(property_type* property) {
    const filing_ptr filing = m_filings.find(property);
    if (filing == m_filings.end()) return;
    property->Destroyed.attach(filing->second.destroyedWatch);
    property->ValueChanged.attach(filing->second.valueWatch);
}

template <class TProperty>
void PropertyIndex<TProperty>::unregisterPropertyEvents(property_type* property) {
    const filing_ptr filing = m_filings.find(property);
    if (filing == m_filings.end()) return;
    property->Destroyed.detach(filing->second.destroyedWatch);
    property->ValueChanged.detach(filing->second.valueWatch);
}

template <class TProperty>
void PropertyIndex<TProperty>::onPropertyRemoved(const void*, PropertyEventPayload& payload) {
    const PropertyBase* source = payload.getSourceProperty();
    filing_ptr filing = m_filings.find(source);
    if (filing == m_filings.end()) return;
    if (filing->second.observed) {
        Object* parent = source->getParent();
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
        filing = m_filings.find(source);
    }
    // The property is going away all the same: nothing may keep pointing at it.
    if (filing != m_filings.end()) forget(filing);
}

template <class TProperty>
void PropertyIndex<TProperty>::onPropertyDataChanged(const void*,
                                                     ValueChangedEventPayload& payload) {
    property_ptr property = payload.concreteSource;
    const filing_ptr filing = m_filings.find(property);
    if (filing == m_filings.end()) return;
    const Object* owner = property->getParent();
    position entry = filing->second.entry;
    if (!isKeptAnswer(filing->second, owner, payload.oldValue)) {
        const auto range = m_index.equal_range(payload.oldValue);
        entry = walk(owner, range);
        if (entry == range.second) return;
    }
    const filing_ptr taken = entry->second == property ? filing : filingOf(entry);
    eraseEntry(taken, entry);
    addEntry(filing);
    if (taken != filing) release(taken);
}

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEX_H
