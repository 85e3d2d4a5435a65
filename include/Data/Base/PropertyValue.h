#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYVALUE_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYVALUE_H

#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>

#include <Poco/Dynamic/Var.h>
#include <Poco/RegularExpression.h>

namespace Kivo::Data::Base {

/// The untyped face of the one value a property holds: JSON and text out, whole-text
/// regular-expression match, and ordering and equality against a value of unknown kind.
///
/// Two values are of like type when type() names the same stored C++ type; all string kinds
/// are alike, for instance. Ordering (<, >, compare) against an unlike value throws
/// std::runtime_error("Invalid property value conversion"); equality against an unlike value
/// is quietly false, and so, on purpose, is the untyped operator!= (it answers as == does).
///
/// Values carry no lock: the owning property and object serialise access.
class PropertyValueBase {
public:
    virtual ~PropertyValueBase() = default;

    /// The value as a variant holding bool, long or std::string (the kind decides).
    virtual Poco::Dynamic::Var getGenericValue() const = 0;
    /// The value ready to be put into a JSON document; getGenericValue() unless a kind
    /// (arrays, references) has a richer form. The argument is a depth hint kinds may use.
    virtual Poco::Dynamic::Var toJSON(int depth) const;
    /// The variant's text of getGenericValue(); throws what the variant's conversion throws.
    virtual std::string toString() const;
    /// Always "unspecified type".
    virtual std::string getValueType() const;
    /// Whether `text` parses to a value this object would accept; stores nothing.
    virtual bool isValidStringValue(const std::string& text) const = 0;
    /// True for the array kinds (PropertyValueArray): their JSON form is an array, and
    /// matches() looks at each element.
    virtual bool isArray() const = 0;
    /// True for the reference kinds (PropertyValueObjectReference), which point at another
    /// object.
    virtual bool isReference() const = 0;
    /// Whether `re` matches the whole text form, from its first character.
    virtual bool matches(const Poco::RegularExpression& re) const = 0;
    /// Whether this value orders before `other` by the typed ordering. Throws
    /// std::runtime_error("Invalid property value conversion") for an unlike value.
    virtual bool operator<(const PropertyValueBase& other) const = 0;
    /// Whether this value orders after `other`; throws as operator< does.
    virtual bool operator>(const PropertyValueBase& other) const = 0;
    /// Whether `other` is of like type and holds an equal value; false for an unlike value.
    virtual bool operator==(const PropertyValueBase& other) const = 0;
    /// Answers exactly as operator== does, on purpose (see the class comment); write
    /// !(a == b) to test values of unknown kind for inequality.
    virtual bool operator!=(const PropertyValueBase& other) const = 0;
    /// -1, 0 or 1 by the typed ordering; throws for an unlike value.
    virtual int compare(const PropertyValueBase& other) const = 0;
    /// The stored value type (not the value class).
    virtual const std::type_info& type() const = 0;

    /// Whether `other` stores the same C++ type as this value.
    bool isLikeType(const PropertyValueBase& other) const { return type() == other.type(); }
};

/// A value of stored type T. Setters answer "accepted", not "changed": storing an equal
/// value again returns true. Kinds refine validation (isValidValue) and parsing (parseString).
template <typename T>
class PropertyValue : public PropertyValueBase {
public:
    /// The stored type, T.
    typedef T value_type;

    /// Holds `value` as given, without asking isValidValue.
    explicit PropertyValue(const value_type& value) : m_value(value) {}
    /// A copy holding the same value.
    PropertyValue(const PropertyValue&) = default;
    /// Takes `other`'s value without asking isValidValue.
    PropertyValue& operator=(const PropertyValue&) = default;

    /// Whether parseString reads `text` and isValidValue accepts the result; stores nothing.
    bool isValidStringValue(const std::string& text) const override;
    /// False: one value, not an array.
    bool isArray() const override { return false; }
    /// False: a plain value, not a reference.
    bool isReference() const override { return false; }
    /// Whether `re` matches the whole of toString(), from its first character.
    bool matches(const Poco::RegularExpression& re) const override {
        return re.match(toString(), 0);
    }
    /// The typed operator< against `other` viewed as a value of type T. Throws
    /// std::runtime_error("Invalid property value conversion") for an unlike value.
    bool operator<(const PropertyValueBase& other) const override;
    /// The typed operator> against `other` viewed as a value of type T; throws as operator<.
    bool operator>(const PropertyValueBase& other) const override;
    /// The typed operator== where `other` stores a T; false for an unlike value.
    bool operator==(const PropertyValueBase& other) const override;
    /// The same answer as operator==, kept on purpose (see PropertyValueBase).
    bool operator!=(const PropertyValueBase& other) const override;
    /// -1, 0 or 1 by the typed operator<; throws for an unlike value as operator< does.
    int compare(const PropertyValueBase& other) const override;
    /// typeid(T).
    const std::type_info& type() const override { return typeid(T); }

    /// The stored value; the reference stays valid until the value next changes.
    virtual const value_type& getValue() const { return m_value; }
    /// Stores `value` if isValidValue accepts it; otherwise returns false and keeps the old one.
    virtual bool setValue(const value_type& value);
    /// Parses and validates `text` and stores the result directly, bypassing setValue: an
    /// adjustment a kind makes in setValue (such as rounding) does not apply to text.
    virtual bool setValueFromString(const std::string& text);
    /// Whether the value may be stored. The base accepts everything; kinds add their checks
    /// (formats, limits, allowed words).
    virtual bool isValidValue(const value_type&) const { return true; }
    /// T's operator< on the stored values; kinds may order otherwise.
    virtual bool operator<(const PropertyValue<T>& other) const { return m_value < other.m_value; }
    /// T's operator> on the stored values; kinds may order otherwise.
    virtual bool operator>(const PropertyValue<T>& other) const { return m_value > other.m_value; }
    /// T's operator== on the stored values; kinds may compare otherwise.
    virtual bool operator==(const PropertyValue<T>& other) const {
        return m_value == other.m_value;
    }
    /// T's operator!= on the stored values: a true inequality, unlike the untyped one.
    virtual bool operator!=(const PropertyValue<T>& other) const {
        return m_value != other.m_value;
    }
    /// Parses `text` into `out`; on failure returns false and leaves `out` as the kind says.
    virtual bool parseString(const std::string& text, value_type& out) const = 0;

    /// The stored value itself; unlike getValue(), never a kind's override of it.
    operator const value_type&() const { return m_value; }
    /// The text form; absent for string values, whose plain value already is that text.
    template <typename U = T, typename = std::enable_if_t<!std::is_same_v<U, std::string>>>
    operator std::string() const {
        return toString();
    }

    /// `base` viewed as a value of type T; throws std::runtime_error("Invalid property value
    /// conversion") when it stores another type.
    static PropertyValue<T>* convert(PropertyValueBase& base);
    /// The const form of convert(PropertyValueBase&), throwing alike.
    static const PropertyValue<T>* convert(const PropertyValueBase& base);

protected:
    /// The stored value. A kind that writes it directly bypasses isValidValue.
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

/// A boolean: only the exact texts "true" and "false" parse.
class PropertyValueBoolean : public PropertyValue<bool> {
public:
    /// Holds `value`, false unless given.
    explicit PropertyValueBoolean(bool value = false) : PropertyValue<bool>(value) {}

    Poco::Dynamic::Var getGenericValue() const override { return m_value; }
    /// Always true: both booleans are valid.
    bool isValidValue(const bool&) const override { return true; }
    /// Reads exactly "true" or "false", nothing else; leaves `out` untouched on failure.
    bool parseString(const std::string& text, bool& out) const override;
};

}  // namespace Kivo::Data::Base

// PropertyValueArray<T>, the array kind, lives beside this header and comes with it.
#include "Data/Base/PropertyValueArray.h"

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYVALUE_H
