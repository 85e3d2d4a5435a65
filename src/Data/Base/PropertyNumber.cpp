#include "Data/Base/PropertyNumber.h"

namespace Kivo::Data::Base {

template class PropertyValueNumberBase<long>;

}  // namespace Kivo::Data::Base
