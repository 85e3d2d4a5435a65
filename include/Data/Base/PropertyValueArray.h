#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYVALUEARRAY_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYVALUEARRAY_H

#include <algorithm>
#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Array.h>
#include <Poco/RegularExpression.h>

#include "Data/Base/PropertyValue.h"

namespace Kivo::Data::Base {

/// The items of the JSON array `text`, each in the variant's text form (a number or a boolean
/// becomes its text, a nested array or object its JSON text). False, with `items` untouched,
/// when `text` is not a JSON array, or an item is null.
bool parseJsonArrayItems(const std::string& text, std::vector<std::string>& items);

/// An array of string-kind elements (T is PropertyValueString or one of its kinds), kept sorted
/// by text, duplicates kept. Its text form is a JSON array of the element texts.
///
/// A prototype element fixes the format of the whole array: each element made from text is a
/// copy of it, and every element must pass its format check. Constructors store their content
/// unchecked, as the string constructors do. A refused change leaves content and prototype as
/// they were. Ordering and equality are the multiset's (lexicographic over the sorted texts);
/// arrays of different element kinds are of unlike type.
template <typename T>
class PropertyValueArray : public PropertyValue<std::multiset<T>> {
public:
    /// The stored elements, sorted by text, duplicates kept.
    typedef std::multiset<T> value_type;
    /// The element kind, T.
    typedef T element_type;

    /// Empty, with a default-constructed prototype.
    PropertyValueArray() : PropertyValueArray(element_type()) {}
    /// Empty, with `defaultElement` as the prototype.
    explicit PropertyValueArray(const element_type& defaultElement)
        : PropertyValue<value_type>(value_type()), m_defaultElementValue(defaultElement) {}
    /// Holds `value` unchecked, with `defaultElement` as the prototype.
    PropertyValueArray(const value_type& value, const element_type& defaultElement)
        : PropertyValue<value_type>(value), m_defaultElementValue(defaultElement) {}
    /// A copy with the same elements and prototype.
    PropertyValueArray(const PropertyValueArray&) = default;
    /// Takes `other`'s elements and prototype, unchecked.
    PropertyValueArray& operator=(const PropertyValueArray&) = default;

    /// toJSON(0).
    Poco::Dynamic::Var getGenericValue() const override { return toJSON(0); }
    /// A new JSON array of the elements' toJSON(depth), in sorted order.
    Poco::Dynamic::Var toJSON(int depth) const override;
    /// Whether `text` is a JSON array whose every item the prototype accepts; stores nothing.
    bool isValidStringValue(const std::string& text) const override;
    /// True.
    bool isArray() const override { return true; }
    /// Replaces the whole content with the parsed array, or leaves it untouched and returns
    /// false when any part of `text` is refused.
    bool setValueFromString(const std::string& text) override;
    /// Whether `re` matches the whole text of at least one element; never for an empty array.
    bool matches(const Poco::RegularExpression& re) const override;
    /// Whether every element passes the prototype's format check.
    bool isValidValue(const value_type& value) const override;
    /// Reads a JSON array into `out`, each item made from the prototype and checked by it. On
    /// any refusal returns false; `out` is untouched when `text` is no JSON array and empty when
    /// an item is refused.
    bool parseString(const std::string& text, value_type& out) const override;

    /// Inserts a copy of `element` itself (its own format included) if its text passes the
    /// prototype's check.
    virtual bool addElement(const element_type& element);
    /// Inserts a copy of the prototype holding `text` if the prototype's check accepts `text`.
    virtual bool addElement(const std::string& text);
    /// Removes one element with the same text as `element`; false when there is none.
    virtual bool removeElement(const element_type& element);
    /// Whether an element with the same text as `element` is present.
    virtual bool hasElement(const element_type& element) const;

    /// Removes every element; the prototype stays. PropertyArray::clear does this with events.
    void clear() { this->m_value.clear(); }
    /// The number of elements, duplicates counted.
    std::size_t size() const { return this->m_value.size(); }
    /// Makes `element` the prototype unless an element present now fails its format check; then
    /// returns false and keeps the old prototype, so every element always passes the check in
    /// force, as a custom pattern is refused when the current text fails it.
    bool setDefaultElement(const element_type& element);
    /// Whether the text of `element` passes the prototype's format check.
    bool isValidElementValue(const element_type& element) const {
        return m_defaultElementValue.isValidValue(element.getValue());
    }

    /// The element texts, in sorted order.
    operator std::vector<std::string>() const;
    /// The elements, in sorted order.
    operator std::vector<element_type>() const {
        return std::vector<element_type>(this->m_value.begin(), this->m_value.end());
    }

private:
    static bool allPass(const value_type& value, const element_type& prototype);

    element_type m_defaultElementValue;
};

template <typename T>
Poco::Dynamic::Var PropertyValueArray<T>::toJSON(int depth) const {
    Poco::JSON::Array::Ptr array(new Poco::JSON::Array);
    for (const element_type& element : this->m_value) array->add(element.toJSON(depth));
    return array;
}

template <typename T>
bool PropertyValueArray<T>::isValidStringValue(const std::string& text) const {
    value_type parsed;
    return parseString(text, parsed);
}

template <typename T>
bool PropertyValueArray<T>::setValueFromString(const std::string& text) {
    value_type parsed;
    if (!parseString(text, parsed)) return false;
    this->m_value.swap(parsed);
    return true;
}

template <typename T>
bool PropertyValueArray<T>::matches(const Poco::RegularExpression& re) const {
    return std::any_of(this->m_value.begin(), this->m_value.end(),
                       [&re](const element_type& element) { return element.matches(re); });
}

template <typename T>
bool PropertyValueArray<T>::isValidValue(const value_type& value) const {
    return allPass(value, m_defaultElementValue);
}

template <typename T>
bool PropertyValueArray<T>::parseString(const std::string& text, value_type& out) const {
    std::vector<std::string> items;
    if (!parseJsonArrayItems(text, items)) return false;
    out.clear();
    for (const std::string& item : items) {
        element_type element(m_defaultElementValue);
        if (!element.setValueFromString(item)) {
            out.clear();
            return false;
        }
        out.insert(element);
    }
    return true;
}

template <typename T>
bool PropertyValueArray<T>::addElement(const element_type& element) {
    if (!isValidElementValue(element)) return false;
    this->m_value.insert(element);
    return true;
}

template <typename T>
bool PropertyValueArray<T>::addElement(const std::string& text) {
    element_type element(m_defaultElementValue);
    if (!element.setValue(text)) return false;
    this->m_value.insert(element);
    return true;
}

template <typename T>
bool PropertyValueArray<T>::removeElement(const element_type& element) {
    // Equal texts sort together; lower_bound finds the first of them.
    const auto found = this->m_value.lower_bound(element);
    if (found == this->m_value.end() || !(*found == element)) return false;
    this->m_value.erase(found);
    return true;
}

template <typename T>
bool PropertyValueArray<T>::hasElement(const element_type& element) const {
    return this->m_value.find(element) != this->m_value.end();
}

template <typename T>
bool PropertyValueArray<T>::setDefaultElement(const element_type& element) {
    if (!allPass(this->m_value, element)) return false;
    m_defaultElementValue = element;
    return true;
}

template <typename T>
PropertyValueArray<T>::operator std::vector<std::string>() const {
    std::vector<std::string> texts;
    texts.reserve(this->m_value.size());
    for (const element_type& element : this->m_value) texts.push_back(element.getValue());
    return texts;
}

template <typename T>
bool PropertyValueArray<T>::allPass(const value_type& value, const element_type& prototype) {
    return std::all_of(value.begin(), value.end(), [&prototype](const element_type& element) {
        return prototype.isValidValue(element.getValue());
    });
}

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYVALUEARRAY_H
