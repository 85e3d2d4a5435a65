#include "Data/Base/PropertyIndex.h"

#include <Poco/Bugcheck.h>

#include "Data/Base/Property.h"

namespace Kivo::Data::Base {

std::vector<Object*> PropertyIndexBase::findByPrefix(const std::string&) const {
    poco_bugcheck_msg("findByPrefix needs an index whose values are ordered by their text");
    return {};
}

template class PropertyIndex<Property<PropertyValueNumberBase<long>>>;
template class PropertyIndex<Property<PropertyValueString>>;
template class PropertyIndex<Property<PropertyValueUuid>>;
template class PropertyIndex<Property<PropertyValueUri>>;
template class PropertyIndex<Property<PropertyValueArray<PropertyValueString>>>;
template class PropertyIndex<Property<PropertyValueArray<
    PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_SERVICECATEGORY>>>>;
template class PropertyIndex<Property<
    PropertyValueArray<PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_VERSION>>>>;

}  // namespace Kivo::Data::Base
