#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTY_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTY_H

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Data/Base/PropertyBase.h"
#include "Data/Base/PropertyIndex.h"
#include "Data/Base/PropertyNumber.h"
#include "Data/Base/PropertyString.h"
#include "Data/Base/PropertyUri.h"
#include "Data/Base/PropertyUuid.h"
#include "Data/Base/PropertyValue.h"

namespace Kivo::Data::Base {

template <class V>
class Property;

/// The typed value-changed event of a Property<V>. It is raised before the generic Updated
/// event, on the writing thread, while the owner's write lock is held.
template <class V>
class IPropertyValueChangedEventSource {
public:
    /// The value class, V.
    typedef V property_value;

    /// The generic previous value stays empty here: the typed old value is in `oldValue`.
    struct ValueChangedEventPayload : public PropertyEventPayload {
        /// The payload of a change of `source` away from `previous`.
        ValueChangedEventPayload(Property<V>* source, const V& previous)
            : PropertyEventPayload(source, PROPERTY_VALUE_CHANGED),
              concreteSource(source),
              oldValue(previous) {}
        /// The same, taking over `previous` instead of copying it.
        ValueChangedEventPayload(Property<V>* source, V&& previous)
            : PropertyEventPayload(source, PROPERTY_VALUE_CHANGED),
              concreteSource(source),
              oldValue(std::move(previous)) {}

        /// The property whose value changed, typed.
        Property<V>* concreteSource;  // not owned
        /// A copy of the value object before the change.
        V oldValue;
    };

    /// Raised for every accepted write, on the writing thread under the owner's write lock,
    /// just before Updated.
    Util::Event<ValueChangedEventPayload> ValueChanged;

protected:
    // Not virtual, which spares every property a second vtable pointer: the event source is
    // a part of a Property, never deleted through this interface.
    ~IPropertyValueChangedEventSource() = default;
};

/// A property holding one value object of class V (by value).
///
/// Every write follows one sequence: if the owner denies writing (isModifiable), return false
/// with nothing locked; take the owner's write lock; keep a copy of the old value; let the
/// value object accept or refuse the new value; if it accepted, raise ValueChanged and then
/// Updated, still under the lock; release and return the value object's answer. Storing an
/// equal value counts as a change when the value object accepts it.
///
/// Reads through getValue()/getPropertyValue() take no lock: hold the owner's read lock (see
/// PropertyLockGuard) where other threads may write.
template <class V>
class Property : public PropertyBase, public IPropertyValueChangedEventSource<V> {
public:
    /// The value class, V.
    typedef V property_value;
    /// The plain value the value class holds.
    typedef typename V::value_type value_type;
    /// The payload of ValueChanged.
    typedef typename IPropertyValueChangedEventSource<V>::ValueChangedEventPayload
        ValueChangedEventPayload;

    /// Neither constructor registers at `parent`; the owner registers the property itself.
    Property(const PropertyKey& key, Object* parent, const V& value)
        : PropertyBase(key, parent), m_value(value) {}
    /// The same with the arguments in another order and no parent by default.
    Property(const PropertyKey& key, const V& value, Object* parent = nullptr)
        : PropertyBase(key, parent), m_value(value) {}
    /// Copies key and value; the copy has no parent.
    Property(const Property& other) : PropertyBase(other.getKey(), nullptr), m_value(other.m_value) {}
    /// Copies key and value under `parent` (not registered there).
    Property(const Property& other, Object* parent)
        : PropertyBase(other.getKey(), parent), m_value(other.m_value) {}
    /// Assigns the other property's value object through the change sequence.
    Property& operator=(const Property& other) {
        if (this != &other) setPropertyValue(other.getPropertyValue());
        return *this;
    }
    /// Raises Destroyed while the value still exists.
    ~Property() override { notifyDestroyed(); }

    /// The value object, untyped. Takes no lock.
    const PropertyValueBase& getPropertyValueBase() const override { return m_value; }
    /// False: a plain value has no empty state. Array properties override it.
    bool clear() override { return false; }
    /// The value object's setValueFromString, through the change sequence: false, without
    /// events, when the owner denies writing or the value object refuses `text`.
    bool setValueFromString(const std::string& text) override {
        return applyChange([&text](V& value) { return value.setValueFromString(text); });
    }
    /// Whether the value object is an array kind.
    bool isArray() const override { return m_value.isArray(); }
    /// Whether the value object is a reference kind.
    bool isReference() const override { return m_value.isReference(); }
    /// Whether `re` matches the whole of the value's toString() (for an array, its JSON text)
    /// from its first character. Takes no lock.
    bool matches(const Poco::RegularExpression& re) const override {
        return re.match(m_value.toString(), 0);
    }
    /// A PropertyIndex<Property<V>> for this key; none for booleans, which are not indexed.
    PropertyIndexBasePtr createIndex() const override {
        if constexpr (std::is_same_v<V, PropertyValueBoolean>) {
            return PropertyIndexBasePtr();
        } else {
            return PropertyIndexBasePtr(new PropertyIndex<Property<V>>(getKey()));
        }
    }
    /// The value object's toJSON(depth), under the owner's read lock.
    Poco::Dynamic::Var toJSON(int depth) const override {
        PropertyLockGuard guard(*this, false);
        return m_value.toJSON(depth);
    }

    /// The value object; valid while the property lives. Takes no lock.
    const V& getPropertyValue() const { return m_value; }
    /// The value object, as getPropertyValue().
    operator const V&() const { return m_value; }
    /// The plain value, the value object's getValue(). Takes no lock.
    const value_type& getValue() const { return m_value.getValue(); }
    /// The plain value, as getValue().
    operator const value_type&() const { return m_value.getValue(); }

    /// Stores `value` through the value object's setValue (its checks and adjustments apply).
    bool setValue(const value_type& value) {
        return applyChange([&value](V& current) { return current.setValue(value); });
    }
    /// Stores the plain value of `value`, checked by this property's own value object.
    bool setValue(const V& value) { return setValue(value.getValue()); }
    /// Replaces the whole value object, its constraints and format included; always accepted
    /// when the owner allows writing.
    bool setPropertyValue(const V& value) {
        return applyChange([&value](V& current) {
            current = value;
            return true;
        });
    }

    /// Raises ValueChanged (typed old value) and then Updated (old value in generic form).
    /// REQUIRES: the caller holds the owner's write lock, if there is an owner.
    void notifyValueChanged(const V& oldValue) { notifyValueChanged(V(oldValue)); }
    /// The same, taking over `oldValue`: the typed payload holds the one copy of it.
    /// REQUIRES: the caller holds the owner's write lock, if there is an owner.
    void notifyValueChanged(V&& oldValue) {
        ValueChangedEventPayload typed(this, std::move(oldValue));
        this->ValueChanged.notify(this, typed);
        // The generic old value is written only for whoever reads it. Subscribers get it
        // written beforehand: they may read the payload's field rather than its accessor.
        PropertyEventPayload generic(this, PropertyEventPayload::PROPERTY_VALUE_CHANGED,
                                     static_cast<const PropertyValueBase&>(typed.oldValue));
        if (!Updated.empty()) generic.getPreviousValue();
        notifyUpdated(generic);
    }

protected:
    /// The change sequence around `change`, which edits the value object and answers whether
    /// it accepted the change.
    template <typename Change>
    bool applyChange(Change&& change) {
        if (!isModifiable()) return false;
        PropertyLockGuard guard(*this, true);
        V oldValue(m_value);
        if (!change(m_value)) return false;
        notifyValueChanged(std::move(oldValue));
        return true;
    }

    /// The value object. Derived properties change it only through applyChange, so that
    /// every change follows the change sequence.
    V m_value;
};

/// A property whose value is an array of string-kind elements E (PropertyValueArray<E>),
/// editable element by element. clear, addElement, removeElement and setDefaultElement follow
/// the change sequence of every write: false with nothing locked when the owner denies
/// writing; otherwise, under the owner's write lock, ValueChanged and then Updated are raised
/// exactly when the array value accepted the change.
template <class E>
class PropertyArray : public Property<PropertyValueArray<E>> {
public:
    /// The element kind, E.
    typedef E element_type;
    /// The plain value of an element, its text.
    typedef typename E::value_type element_value_type;
    /// The array value class.
    typedef PropertyValueArray<E> property_value;

    /// Does not register at `parent`.
    PropertyArray(const PropertyKey& key, Object* parent, const property_value& value)
        : Property<property_value>(key, parent, value) {}
    /// Copies key and value under `parent` (not registered there).
    PropertyArray(const PropertyArray& other, Object* parent)
        : Property<property_value>(other, parent) {}
    /// Assigns the other property's value object through the change sequence.
    PropertyArray& operator=(const PropertyArray& other) {
        Property<property_value>::operator=(other);
        return *this;
    }

    /// Empties the array. Raises both events even when it was empty already: subscribers see
    /// every clear.
    bool clear() override {
        return this->applyChange([](property_value& value) {
            value.clear();
            return true;
        });
    }
    /// The array value's addElement; see PropertyValueArray.
    bool addElement(const element_type& element) {
        return this->applyChange(
            [&element](property_value& value) { return value.addElement(element); });
    }
    /// Adds a copy of the prototype holding `text`; false, without events, when the
    /// prototype's check refuses `text`.
    bool addElement(const element_value_type& text) {
        return this->applyChange([&text](property_value& value) { return value.addElement(text); });
    }
    /// Removes one element with the same text as `element`; false, without events, when
    /// there is none.
    bool removeElement(const element_type& element) {
        return this->applyChange(
            [&element](property_value& value) { return value.removeElement(element); });
    }
    /// Refused, without events, when an element present now fails the new prototype's check.
    bool setDefaultElement(const element_type& element) {
        return this->applyChange(
            [&element](property_value& value) { return value.setDefaultElement(element); });
    }

    /// The elements, in sorted order.
    operator std::vector<element_type>() const { return this->m_value; }
    /// The element texts, in sorted order.
    operator std::vector<std::string>() const { return this->m_value; }
};

/// A boolean property; booleans are never indexed.
typedef Property<PropertyValueBoolean> PropertyBoolean;
/// An integer property, with the limits and resolution of its value.
typedef Property<PropertyValueNumberBase<long>> PropertyInteger;
/// A text property; the format of its value decides which texts it accepts.
typedef Property<PropertyValueString> PropertyString;
/// A UUID property; the null UUID is refused.
typedef Property<PropertyValueUuid> PropertyUuid;
/// A URI property; the empty URI is refused.
typedef Property<PropertyValueUri> PropertyUri;
/// An array of texts of the prototype's format.
typedef PropertyArray<PropertyValueString> PropertyStringArray;
/// An array of service categories (REGEX_FORMAT_SERVICECATEGORY).
typedef PropertyArray<
    PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_SERVICECATEGORY>>
    PropertyServiceCategoryArray;
/// An array of version numbers (REGEX_FORMAT_VERSION_NUMBER).
typedef PropertyArray<PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_VERSION>>
    PropertyVersionArray;

extern template class Property<PropertyValueBoolean>;
extern template class Property<PropertyValueNumberBase<long>>;
extern template class Property<PropertyValueString>;
extern template class Property<PropertyValueUuid>;
extern template class Property<PropertyValueUri>;
extern template class Property<PropertyValueArray<PropertyValueString>>;
extern template class Property<PropertyValueArray<
    PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_SERVICECATEGORY>>>;
extern template class Property<
    PropertyValueArray<PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_VERSION>>>;
extern template class PropertyIndex<Property<PropertyValueNumberBase<long>>>;
extern template class PropertyIndex<Property<PropertyValueString>>;
extern template class PropertyIndex<Property<PropertyValueUuid>>;
extern template class PropertyIndex<Property<PropertyValueUri>>;
extern template class PropertyIndex<Property<PropertyValueArray<PropertyValueString>>>;
extern template class PropertyIndex<Property<PropertyValueArray<
    PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_SERVICECATEGORY>>>>;
extern template class PropertyIndex<Property<
    PropertyValueArray<PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_VERSION>>>>;
extern template class PropertyArray<PropertyValueString>;
extern template class PropertyArray<
    PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_SERVICECATEGORY>>;
extern template class PropertyArray<
    PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_VERSION>>;

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTY_H
