#ifndef QESSERVICEDATALIB_DATA_OPTIONALPROPERTY_H
#define QESSERVICEDATALIB_DATA_OPTIONALPROPERTY_H

#include <memory>
#include <string>
#include <typeinfo>

#include "Data/Base/Property.h"
#include "Data/Base/PropertyBase.h"
#include "Data/Element.h"

namespace Kivo::Data {

/// The declaration of one optional property of an element: the key is always known to the
/// element, a property object exists only while a value is set.
///
/// The handle registers itself at its element on construction; the element keeps a
/// non-owning pointer to it, so the handle must live exactly as long as the element (make it a
/// member of the concrete element class). A key that is already taken, by another optional
/// property or by a present property, is a programming error: the constructor logs a warning
/// and throws Poco::BugcheckException("Registration of optional property has failed").
///
/// While a value exists the property object is registered at the element under the key; when
/// it goes away its Destroyed event turns the key back into a known-but-absent one.
/// isInitialValue() tells the element whether the next value write is the first one after
/// construction or clear(), which the element announces with OptionalPropertySet.
class OptionalPropertyBase {
public:
    /// Declares the optional property `key`, holding values of class `valueType`, and
    /// registers it at `parent`; throws as the class comment says when the key is taken.
    OptionalPropertyBase(const Base::PropertyKey& key, const std::type_info& valueType,
                         Element& parent);
    OptionalPropertyBase(const OptionalPropertyBase&) = delete;
    OptionalPropertyBase& operator=(const OptionalPropertyBase&) = delete;

    /// The property object, or null while no value exists.
    virtual Base::PropertyBase* getBase() = 0;
    /// Whether no value, and so no property object, exists now.
    virtual bool isNull() const = 0;
    /// Drops the value (and the property object); the key stays known.
    virtual void clear() = 0;
    /// Creates the property object if needed and sets it from `text` with the property's
    /// change sequence; false (and no property object created) when `text` is refused.
    virtual bool setValueFromString(const std::string& text) = 0;
    /// Whether setValueFromString would accept `text`; changes nothing.
    virtual bool isValidValue(const std::string& text) const = 0;
    /// Leaves the element's list of optional properties; the key stays known.
    virtual ~OptionalPropertyBase();
    /// Creates the property object with its initial value, if it does not exist.
    virtual void initPropertyValue() = 0;
    /// The value a first write starts from, which fixes format, limits and allowed words, so
    /// that a write can be judged while no property object exists; null where the concrete
    /// class does not say. Comes after the slots above; the base answers null.
    virtual const Base::PropertyValueBase* getPrototype() const { return nullptr; }

    /// True from construction, and again after clear(), until a value is in place: the next
    /// accepted write is then a first value.
    bool isInitialValue() const { return m_isInitialValue; }

    /// The key under which the element knows the property.
    const Base::PropertyKey key;
    /// The value class the property holds once created.
    const std::type_info& valueType;

protected:
    /// Raises the element's DataChanged for `key` (nothing while it is disabled). For a first
    /// value equal to the prototype's: the element sees no value change, yet the key appeared.
    void announceFirstValue();

    /// The element that declares the property; it outlives the handle.
    Element& m_parent;
    /// What isInitialValue() answers; the concrete handle keeps it current.
    bool m_isInitialValue;

private:
    friend class AbstractResource;
    friend class Element;

    // The element's next optional property handle in key order, or null.
    OptionalPropertyBase* m_nextOptional = nullptr;
};

/// A ready optional property holding a Property<V> once a value is set.
///
/// A value is created from a prototype value object (which fixes format, limits and so on) by
/// initPropertyValue() or by the first accepted setValueFromString(). Both announce the new
/// property to the element as a value change, so the element raises OptionalPropertySet and
/// its resource indexes the property. The first accepted setValueFromString raises one
/// DataChanged for the key, even when the value equals the prototype's; initPropertyValue
/// raises none, since the value equals its initial value. isInitialValue() turns false once
/// that first value is in place and true again after clear(), so a value set after clearing is
/// announced again (its property object is a new one).
///
/// REQUIRES: the element's write lock or a single thread, as for any write of the element.
template <class V>
class OptionalProperty : public OptionalPropertyBase {
public:
    /// Declares the optional property `key` of `parent`, whose values are copies of
    /// `prototype` (format, limits and so on) until written. Throws as OptionalPropertyBase.
    OptionalProperty(const Base::PropertyKey& key, Element& parent, const V& prototype = V())
        : OptionalPropertyBase(key, typeid(V), parent), m_prototype(prototype) {}
    ~OptionalProperty() override { clear(); }

    Base::PropertyBase* getBase() override { return m_property.get(); }
    /// The typed property, or null while no value exists.
    Base::Property<V>* get() { return m_property.get(); }
    bool isNull() const override { return m_property == nullptr; }
    void clear() override {
        m_property.reset();
        m_isInitialValue = true;
    }
    bool setValueFromString(const std::string& text) override;
    bool isValidValue(const std::string& text) const override {
        return (m_property ? m_property->getPropertyValue() : m_prototype).isValidStringValue(text);
    }
    void initPropertyValue() override;
    const Base::PropertyValueBase* getPrototype() const override { return &m_prototype; }

private:
    const V m_prototype;
    std::unique_ptr<Base::Property<V>> m_property;
};

template <class V>
bool OptionalProperty<V>::setValueFromString(const std::string& text) {
    const bool creating = m_property == nullptr;
    if (creating) {
        // Not registered yet, so discarding it raises nothing the element would see.
        std::unique_ptr<Base::Property<V>> created(
            new Base::Property<V>(key, &m_parent, m_prototype));
        if (!created->isModifiable() || !m_prototype.isValidStringValue(text)) return false;
        m_property = std::move(created);
        m_property->registerAtOwner();
    }
    if (!m_property->setValueFromString(text)) return false;
    m_isInitialValue = false;
    // The element reports the write only where the value differs from the prototype's.
    if (creating &&
        m_property->getPropertyValue().getGenericValue() == m_prototype.getGenericValue()) {
        announceFirstValue();
    }
    return true;
}

template <class V>
void OptionalProperty<V>::initPropertyValue() {
    if (m_property != nullptr) return;
    m_property.reset(new Base::Property<V>(key, &m_parent, m_prototype));
    m_property->registerAtOwner();
    Base::PropertyLockGuard guard(*m_property, true);
    m_property->notifyValueChanged(m_property->getPropertyValue());
    m_isInitialValue = false;
}

}  // namespace Kivo::Data

#endif  // QESSERVICEDATALIB_DATA_OPTIONALPROPERTY_H
