#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEX_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEX_H

#include <iterator>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

#include <Poco/Delegate.h>
#include <Poco/RegularExpression.h>
#include <Poco/SharedPtr.h>

#include "Data/Base/Object.h"
#include "Data/Base/PropertyBase.h"
#include "Data/Base/PropertyValue.h"
#include "Logging/Log.h"

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
    /// parent, another key (compared exactly), another value type, or an object filed already.
    virtual bool insert(PropertyBase* property) = 0;
    /// Drops the entry of `object`; false if it has none.
    virtual bool remove(Object* object) = 0;
    /// Every filed object, in ascending value order (equal values in filing order).
    virtual std::vector<Object*> get() const = 0;
    /// The property filed for `object`, or null.
    virtual PropertyBase* find(Object* object) const = 0;
    /// Objects whose value equals `text` parsed as the filed values' kind; none when the index
    /// is empty or the text does not parse.
    virtual std::vector<Object*> find(const std::string& text) const = 0;
    /// Objects whose value's text form `re` matches as a whole, in value order.
    virtual std::vector<Object*> find(const Poco::RegularExpression& re) const = 0;
    /// Whether findByPrefix may stand in for a trailing-wildcard expression: true where the
    /// values' order is the byte order of their texts.
    virtual bool isOrderedByText() const { return false; }
    /// What find(re) answers for re = "^" + prefix + ".*$" (prefix free of pattern syntax):
    /// the values starting with `prefix` whose rest holds no line break, in value order.
    /// REQUIRES: isOrderedByText().
    virtual std::vector<Object*> findByPrefix(const std::string& prefix) const;

    /// The key given at construction.
    const PropertyKey& getKey() const { return m_key; }

protected:
    /// The key of the properties the index files.
    const PropertyKey m_key;
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
/// Each object is filed once, under a copy of its property's value at filing time, and moves
/// when the property raises ValueChanged. Entries are keyed by the object the property belonged
/// to when it was filed. The position of every entry is kept, so re-filing and removal cost a
/// logarithmic lookup however many objects share a value; where a kept position no longer lies
/// among the entries of the property's current value, the linear walk over those entries
/// decides as it always has (including remove's fall-back to the entry after that range).
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
    explicit PropertyIndex(const PropertyKey& key) : PropertyIndexBase(key) {}
    /// Unsubscribes from every filed property.
    ~PropertyIndex() override { clear(); }

    bool insert(PropertyBase* property) override;
    /// The typed form of insert(PropertyBase*), with the same answers.
    bool insert(const property_ptr& property);
    bool remove(Object* object) override;
    /// remove(Object*) for the property's current parent; false for null.
    bool remove(const property_ptr& property);
    /// remove(Object*) for the property's current parent.
    bool remove(const property_type& property);
    /// Unfiles everything and unsubscribes from every filed property.
    void clear();

    std::vector<Object*> get() const override;
    /// The property filed for `object`, typed, or null.
    property_ptr get(Object* object) const;
    PropertyBase* find(Object* object) const override { return get(object); }
    /// Objects whose filed value equals `value` by the index's ordering, in filing order.
    std::vector<Object*> find(const key_type& value) const;
    std::vector<Object*> find(const std::string& text) const override;
    std::vector<Object*> find(const Poco::RegularExpression& re) const override;
    bool isOrderedByText() const override { return IS_TEXT; }
    std::vector<Object*> findByPrefix(const std::string& prefix) const override;

    /// Subscribes the index's handlers to `property`'s Destroyed and ValueChanged events.
    void registerPropertyEvents(property_type* property);
    /// Removes the subscriptions registerPropertyEvents made.
    void unregisterPropertyEvents(property_type* property);
    /// Destroyed: drops the property's entry.
    void onPropertyRemoved(const void* sender, PropertyEventPayload& payload);
    /// ValueChanged: re-files the property's object under the new value.
    void onPropertyDataChanged(const void* sender, ValueChangedEventPayload& payload);

private:
    static constexpr bool IS_TEXT = std::is_base_of_v<PropertyValue<std::string>, key_type>;
    typedef typename value_map::iterator position;

    // Where an object is filed: its property and its entry in m_index (end() if none).
    struct Filing {
        property_ptr property;
        position entry;
    };

    static Object* ownerOf(position entry) { return entry->second->getParent(); }
    bool inRangeOf(position entry, const key_type& value) const;
    // The first entry of `range` whose property belongs to `owner`, or the end of the range.
    static position walk(const Object* owner, std::pair<position, position> range);
    static std::vector<Object*> owners(typename value_map::const_iterator first,
                                       typename value_map::const_iterator last);
    // Forgets the entry at `entry` and whichever filing points at it.
    void eraseEntry(position entry);
    // Drops whatever filing holds `property`; false if none does.
    bool dropProperty(const PropertyBase* property);

    value_map m_index;
    std::map<Object*, Filing> m_objectMap;
    // The object each filed property was filed for; finds a property that lost its parent.
    std::map<const PropertyBase*, Object*> m_filedFor;
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
    const auto known = m_objectMap.find(owner);
    if (known != m_objectMap.end() && known->second.property != nullptr) return false;
    if (m_filedFor.count(property) != 0) return false;
    const position entry = m_index.emplace(property->getPropertyValue(), property);
    m_objectMap[owner] = Filing{property, entry};
    m_filedFor[property] = owner;
    registerPropertyEvents(property);
    return true;
}

template <class TProperty>
bool PropertyIndex<TProperty>::inRangeOf(position entry, const key_type& value) const {
    const PropertyIndexKeyLess<key_type> less;
    return entry != m_index.end() && !less(entry->first, value) && !less(value, entry->first);
}

template <class TProperty>
typename PropertyIndex<TProperty>::position PropertyIndex<TProperty>::walk(
    const Object* owner, std::pair<position, position> range) {
    position entry = range.first;
    while (entry != range.second && ownerOf(entry) != owner) ++entry;
    return entry;
}

template <class TProperty>
bool PropertyIndex<TProperty>::remove(Object* object) {
    const auto filing = m_objectMap.find(object);
    if (filing == m_objectMap.end() || filing->second.property == nullptr) return false;
    property_ptr property = filing->second.property;
    if (property->getKey() != m_key) return false;
    const key_type& value = property->getPropertyValue();
    const Object* owner = property->getParent();
    position entry = filing->second.entry;
    if (!inRangeOf(entry, value) || ownerOf(entry) != owner) {
        const auto range = m_index.equal_range(value);
        if (range.first == range.second) return false;
        // Past a range without the object's entry this takes the entry after the range: the
        // long-standing answer, kept so results do not change.
        entry = walk(owner, range);
    }
    if (entry == m_index.end()) return false;
    const position own = filing->second.entry;
    unregisterPropertyEvents(entry->second);
    m_filedFor.erase(property);
    m_objectMap.erase(filing);
    if (entry->second != property) {
        // The fall-back took another filing's entry; the object's own entry, filed under a
        // value its property no longer has, must not outlive the filing either.
        unregisterPropertyEvents(property);
        m_index.erase(own);
    }
    eraseEntry(entry);
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
void PropertyIndex<TProperty>::eraseEntry(position entry) {
    const auto other = m_filedFor.find(entry->second);
    if (other != m_filedFor.end()) {
        // The entry belonged to another filing (remove's fall-back): its property is no longer
        // observed, so the index must forget it entirely.
        unregisterPropertyEvents(entry->second);
        m_objectMap.erase(other->second);
        m_filedFor.erase(other);
    }
    m_index.erase(entry);
}

template <class TProperty>
bool PropertyIndex<TProperty>::dropProperty(const PropertyBase* property) {
    const auto filed = m_filedFor.find(property);
    if (filed == m_filedFor.end()) return false;
    const auto filing = m_objectMap.find(filed->second);
    property_ptr typed = filing->second.property;
    unregisterPropertyEvents(typed);
    if (filing->second.entry != m_index.end()) m_index.erase(filing->second.entry);
    m_objectMap.erase(filing);
    m_filedFor.erase(filed);
    return true;
}

template <class TProperty>
void PropertyIndex<TProperty>::clear() {
    for (auto& filing : m_objectMap) unregisterPropertyEvents(filing.second.property);
    m_index.clear();
    m_objectMap.clear();
    m_filedFor.clear();
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
    const auto filing = m_objectMap.find(object);
    return filing == m_objectMap.end() ? nullptr : filing->second.property;
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
    for (const auto& entry : m_index) {
        if constexpr (IS_TEXT) {
            if (re.match(entry.first.key_type::getValue(), 0)) result.push_back(entry.second->getParent());
        } else {
            if (re.match(entry.first.toString(), 0)) result.push_back(entry.second->getParent());
        }
    }
    return result;
}

template <class TProperty>
std::vector<Object*> PropertyIndex<TProperty>::findByPrefix(const std::string& prefix) const {
    if constexpr (IS_TEXT) {
        std::vector<Object*> result;
        for (auto entry = m_index.lower_bound(prefix); entry != m_index.end(); ++entry) {
            const std::string& text = entry->first.key_type::getValue();
            if (text.compare(0, prefix.size(), prefix) != 0) break;
            // ".*" stops at a line break and a match never covers the empty text.
            if (text.find('\n', prefix.size()) == std::string::npos && !text.empty()) {
                result.push_back(entry->second->getParent());
            }
        }
        return result;
    } else {
        return PropertyIndexBase::findByPrefix(prefix);
    }
}

template <class TProperty>
void PropertyIndex<TProperty>::registerPropertyEvents(property_type* property) {
    property->Destroyed += Poco::delegate(this, &PropertyIndex::onPropertyRemoved);
    property->ValueChanged += Poco::delegate(this, &PropertyIndex::onPropertyDataChanged);
}

template <class TProperty>
void PropertyIndex<TProperty>::unregisterPropertyEvents(property_type* property) {
    property->Destroyed -= Poco::delegate(this, &PropertyIndex::onPropertyRemoved);
    property->ValueChanged -= Poco::delegate(this, &PropertyIndex::onPropertyDataChanged);
}

template <class TProperty>
void PropertyIndex<TProperty>::onPropertyRemoved(const void*, PropertyEventPayload& payload) {
    const PropertyBase* source = payload.getSourceProperty();
    Object* parent = source->getParent();
    if (parent == nullptr) {
        QES_LOG_WARNING("ProperyIndex: Received event from a property with key "
                        << m_key << " but without parent");
        // The property is going away all the same: no entry may keep pointing at it.
        dropProperty(source);
        return;
    }
    if (remove(parent)) {
        QES_LOG_DEBUG("ProperyIndex: property " << m_key << " from " << parent->getType().identifier
                                                << " has been removed");
    } else {
        QES_LOG_WARNING("ProperyIndex: Received event from unknown property "
                        << m_key << " from " << parent->getType().identifier);
    }
    dropProperty(source);
}

template <class TProperty>
void PropertyIndex<TProperty>::onPropertyDataChanged(const void*,
                                                     ValueChangedEventPayload& payload) {
    property_ptr property = payload.concreteSource;
    const Object* owner = property->getParent();
    const auto filed = m_filedFor.find(property);
    if (filed == m_filedFor.end()) return;
    Filing& filing = m_objectMap.find(filed->second)->second;
    position entry = filing.entry;
    if (!inRangeOf(entry, payload.oldValue) || ownerOf(entry) != owner) {
        const auto range = m_index.equal_range(payload.oldValue);
        entry = walk(owner, range);
        if (entry == range.second) return;
    }
    // An entry of another property with the same owner (one that moved between objects) is
    // not this property's to move.
    if (entry->second != property) return;
    m_index.erase(entry);
    filing.entry = m_index.emplace(property->getPropertyValue(), property);
}

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEX_H
