#include "Data/Base/Property.h"

namespace Kivo::Data::Base {

template class Property<PropertyValueBoolean>;
template class Property<PropertyValueNumberBase<long>>;
template class Property<PropertyValueString>;
template class Property<PropertyValueUuid>;
template class Property<PropertyValueUri>;
template class Property<PropertyValueArray<PropertyValueString>>;
template class Property<PropertyValueArray<
    PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_SERVICECATEGORY>>>;
template class Property<
    PropertyValueArray<PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_VERSION>>>;
template class PropertyArray<PropertyValueString>;
template class PropertyArray<
    PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_SERVICECATEGORY>>;
template class PropertyArray<
    PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_VERSION>>;

}  // namespace Kivo::Data::Base
