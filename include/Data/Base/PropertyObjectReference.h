#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYOBJECTREFERENCE_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYOBJECTREFERENCE_H

#include "Data/Base/PropertyValue.h"

namespace Kivo::Data::Base {

/// A value that points at an object of class T, which it does not own; null means no target.
/// Kinds decide how a target is given as text and in JSON (getGenericValue, parseString), and
/// how the pointer is kept valid while the target lives.
template <class T>
class PropertyValueObjectReference : public PropertyValue<T*> {
public:
    /// Points at `target` (not owned), or nowhere.
    explicit PropertyValueObjectReference(T* target = nullptr) : PropertyValue<T*>(target) {}
    /// A copy pointing at the same target.
    PropertyValueObjectReference(const PropertyValueObjectReference&) = default;
    /// Points at `other`'s target.
    PropertyValueObjectReference& operator=(const PropertyValueObjectReference&) = default;

    /// True.
    bool isReference() const override { return true; }
};

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYOBJECTREFERENCE_H
