#include "Data/Base/Property.h"

namespace Kivo::Data::Base {

template class Property<PropertyValueBoolean>;
template class Property<PropertyValueNumberBase<long>>;

}  // namespace Kivo::Data::Base
