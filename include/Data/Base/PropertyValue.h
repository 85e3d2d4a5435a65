#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYVALUE_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYVALUE_H

#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>

#include <Poco/Dynamic/Var.h>
#include <Poco/RegularExpression.h>

namespace Kivo::Data::Base {

// The untyped face of the one value a property holds: JSON and text out, whole-text
// regular-expression match, and ordering and equality against a value of unknown kind.
//
// Two values are of like type when type() names the same stored C++ type; all string kinds
// are alike, for instance. Ordering (<, >, compare) against an unlike value throws
// std::runtime_error("Invalid property value conversion"); equality against an unlike value
// is quietly false, and so, on purpose, is the untyped operator!= (it answers as == does).
//
// Values carry no lock: the owning property and object serialise access.
class PropertyValueBase {
public:
    virtual ~PropertyValueBase() = default;

    // The value as a variant holding bool, long or std::string (the kind decides).
    virtual Poco::Dynamic::Var getGenericValue() const = 0;
    // The value ready to be put into a JSON document; getGenericValue() unless a kind
    // (arrays, references) has a richer form. The argument is a depth hint kinds may use.
    virtual Poco::Dynamic::Var toJSON(int depth) const;
    // The variant's text of getGenericValue(); throws what the variant's conversion throws.
    virtual std::string toString() const;
    // Always "unspecified type".
    virtual std::string getValueType() const;
    // Whether `text` parses to a value this object would accept; stores nothing.
    virtual bool isValidStringValue(const std::string& text) const = 0;
    virtual bool isArray() const = 0;
    virtual bool isReference() const = 0;
    // Whether `re` matches the whole text form, from its first character.
    virtual bool matches(const Poco::RegularExpression& re) const = 0;
    virtual bool operator<(const PropertyValueBase& other) const = 0;
    virtual bool operator>(const PropertyValueBase& other) const = 0;
    virtual bool operator==(const PropertyValueBase& other) const = 0;
    virtual bool operator!=(const PropertyValueBase& other) const = 0;
    // -1, 0 or 1 by the typed ordering; throws for an unlike value.
    virtual int compare(const PropertyValueBase& other) const = 0;
    // The stored value type (not the value class).
    virtual const std::type_info& type() const = 0;

    // Whether `other` stores the same C++ type as this value.
    bool isLikeType(const PropertyValueBase& other) const { return type() == other.type(); }
};

// A value of stored type T. Setters answer "accepted", not "changed": storing an equal
// value again returns true. Kinds refine validation (isValidValue) and parsing (parseString).
template <typename T>
class PropertyValue : public PropertyValueBase {
public:
    typedef T value_type;

    explicit PropertyValue(const value_type& value) : m_value(value) {}
    PropertyValue(const PropertyValue&) = default;
    PropertyValue& operator=(const PropertyValue&) = default;

    bool isValidStringValue(const std::string& text) const override;
    bool isArray() const override { return false; }
    bool isReference() const override { return false; }
    bool matches(const Poco::RegularExpression& re) const override {
        return re.match(toString(), 0);
    }
    bool operator<(const PropertyValueBase& other) const override;
    bool operator>(const PropertyValueBase& other) const override;
    bool operator==(const PropertyValueBase& other) const override;
    bool operator!=(const PropertyValueBase& other) const override;
    int compare(const PropertyValueBase& other) const override;
    const std::type_info& type() const override { return typeid(T); }

    virtual const value_type& getValue() const { return m_value; }
    // Stores `value` if isValidValue accepts it; otherwise returns false and keeps the old one.
    virtual bool setValue(const value_type& value);
    // Parses and validates `text` and stores the result directly, bypassing setValue: an
    // adjustment a kind makes in setValue (such as rounding) does not apply to text.
    virtual bool setValueFromString(const std::string& text);
    virtual bool isValidValue(const value_type&) const { return true; }
    virtual bool operator<(const PropertyValue<T>& other) const { return m_value < other.m_value; }
    virtual bool operator>(const PropertyValue<T>& other) const { return m_value > other.m_value; }
    virtual bool operator==(const PropertyValue<T>& other) const {
        return m_value == other.m_value;
    }
    virtual bool operator!=(const PropertyValue<T>& other) const {
        return m_value != other.m_value;
    }
    // Parses `text` into `out`; on failure returns false and leaves `out` as the kind says.
    virtual bool parseString(const std::string& text, value_type& out) const = 0;

    operator const value_type&() const { return m_value; }
    // The text form; absent for string values, whose plain value already is that text.
    template <typename U = T, typename = std::enable_if_t<!std::is_same_v<U, std::string>>>
    operator std::string() const {
        return toString();
    }

    // `base` viewed as a value of type T; throws std::runtime_error("Invalid property value
    // conversion") when it stores another type.
    static PropertyValue<T>* convert(PropertyValueBase& base);
    static const PropertyValue<T>* convert(const PropertyValueBase& base);

protected:
    value_type m_value;
};

template <typename T>
PropertyValue<T>* PropertyValue<T>::convert(PropertyValueBase& base) {
    if (base.type() != typeid(T)) throw std::runtime_error("Invalid property value conversion");
    return static_cast<PropertyValue<T>*>(&base);
}

template <typename T>
const PropertyValue<T>* PropertyValue<T>::convert(const PropertyValueBase& base) {
    if (base.type() != typeid(T)) throw std::runtime_error("Invalid property value conversion");
    return static_cast<const PropertyValue<T>*>(&base);
}

template <typename T>
bool PropertyValue<T>::isValidStringValue(const std::string& text) const {
    value_type parsed(m_value);
    return parseString(text, parsed) && isValidValue(parsed);
}

template <typename T>
bool PropertyValue<T>::setValue(const value_type& value) {
    if (!isValidValue(value)) return false;
    m_value = value;
    return true;
}

template <typename T>
bool PropertyValue<T>::setValueFromString(const std::string& text) {
    value_type parsed(m_value);
    if (!parseString(text, parsed) || !isValidValue(parsed)) return false;
    m_value = parsed;
    return true;
}

template <typename T>
bool PropertyValue<T>::operator<(const PropertyValueBase& other) const {
    return *this < *convert(other);
}

template <typename T>
bool PropertyValue<T>::operator>(const PropertyValueBase& other) const {
    return *this > *convert(other);
}

template <typename T>
bool PropertyValue<T>::operator==(const PropertyValueBase& other) const {
    return isLikeType(other) && *this == *convert(other);
}

template <typename T>
bool PropertyValue<T>::operator!=(const PropertyValueBase& other) const {
    // Kept on purpose: the untyped inequality answers like the untyped equality.
    return isLikeType(other) && *this == *convert(other);
}

template <typename T>
int PropertyValue<T>::compare(const PropertyValueBase& other) const {
    const PropertyValue<T>& typed = *convert(other);
    if (*this < typed) return -1;
    return typed < *this ? 1 : 0;
}

// A boolean: only the exact texts "true" and "false" parse.
class PropertyValueBoolean : public PropertyValue<bool> {
public:
    explicit PropertyValueBoolean(bool value = false) : PropertyValue<bool>(value) {}

    Poco::Dynamic::Var getGenericValue() const override { return m_value; }
    bool isValidValue(const bool&) const override { return true; }
    // Leaves `out` untouched on failure.
    bool parseString(const std::string& text, bool& out) const override;
};

}  // namespace Kivo::Data::Base

// PropertyValueArray<T>, the array kind, lives beside this header and comes with it.
#include "Data/Base/PropertyValueArray.h"

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYVALUE_H
